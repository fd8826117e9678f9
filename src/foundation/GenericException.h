#pragma once

#include <stdexcept>

namespace talvo {

// The one exception the system raises on purpose, with a reason such as
// "Memory Error". Queue creation catches it and shows the reason to the user.
class GenericException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace talvo
