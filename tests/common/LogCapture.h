#pragma once

// Catches the log lines written while it exists, from any thread, so a test
// can check that a failure was reported.
//
//     talvo::test::LogCapture log;
//     ...
//     EXPECT_TRUE(log.lines().join(u'\n').contains(u"can't figure out"_s));

#include <QStringList>
#include <QtGlobal>

#include <mutex>

namespace talvo::test {

// Collects every log line while it exists.
class LogCapture
{
public:
    LogCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        s_current = nullptr;
    }
    QStringList lines() const
    {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    static void handle(QtMsgType, const QMessageLogContext&, const QString& message)
    {
        if (LogCapture* self = s_current) {
            std::lock_guard lock(self->m_mutex);
            self->m_lines << message;
        }
    }
    static inline LogCapture* s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    mutable std::mutex m_mutex;
    QStringList m_lines;
};

} // namespace talvo::test
