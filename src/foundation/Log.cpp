#include "foundation/Log.h"

Q_LOGGING_CATEGORY(lcFoundation, "talvo.foundation")

namespace talvo {

void reportAssertionFailure(const char* description, const char* file, int line) noexcept
{
    try {
        qCCritical(lcFoundation, "Assertion failure in %s:%d: %s", file, line, description);
    } catch (...) {
        // Logging must never let an exception escape into a C callback.
    }
}

} // namespace talvo
