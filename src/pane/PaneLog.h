#pragma once
// The pane's logging category: its log lines keep the texts users and
// support staff already search for.

#include <QLoggingCategory>

namespace talvo {
Q_DECLARE_LOGGING_CATEGORY(lcPane)
} // namespace talvo
