#pragma once

// Logging categories of the foundation layer and the assertion helper every
// layer uses for programming errors.
//
//     qCWarning(lcFoundation) << "could not read" << path;
//     TALVO_ASSERT(notifyObject, "startDiscovery: notifyObject is nil");

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcFoundation)

namespace talvo {

// Logs a failed assertion with its source file and line and goes on: the
// system's assertion handler reports, it does not abort. Never throws, so it
// is safe inside C library callbacks.
void reportAssertionFailure(const char* description, const char* file, int line) noexcept;

} // namespace talvo

#define TALVO_ASSERT(condition, description)                                                                 \
    do {                                                                                                     \
        if (!(condition))                                                                                    \
            ::talvo::reportAssertionFailure((description), __FILE__, __LINE__);                              \
    } while (false)
