#pragma once

#include <QString>

#include <utility>

namespace talvo {

// The outcome of an operation that can fail: success, or an error with a text
// meant for the user or the log. Errors travel as values, never as a global.
class [[nodiscard]] Status
{
public:
    static Status ok() { return Status{}; }
    static Status error(QString message) { return Status{std::move(message)}; }

    bool isOk() const { return !m_failed; }
    explicit operator bool() const { return isOk(); }
    const QString& message() const { return m_message; }

private:
    Status() = default;
    explicit Status(QString message) : m_failed(true), m_message(std::move(message)) {}

    bool m_failed = false;
    QString m_message;
};

} // namespace talvo
