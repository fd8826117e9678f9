// Preference and saved-list files come from the user's disk and may be
// anything. Whatever parses must write back and parse again to the same value.
#include "foundation/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto parsed = talvo::plist::parse(
        QByteArrayView(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    if (!parsed)
        return 0;
    const auto xml = talvo::plist::toXml(*parsed);
    if (!xml)
        return 0; // e.g. a date outside the writable range
    const auto again = talvo::plist::parse(*xml);
    if (!again)
        std::abort();
    return 0;
}
