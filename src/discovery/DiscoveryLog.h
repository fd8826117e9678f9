#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcDiscovery)

namespace talvo {

// Logs a failed system call as "NSGenericException <error text>". Takes the
// error number as an argument: the logging itself may change errno.
void logSystemError(int error);

} // namespace talvo
