#include "queue/SchedulerQueues.h"

#include <cups/cups.h>

#include <memory>

namespace talvo {
namespace {

constexpr int kConnectMilliseconds = 10'000;
constexpr double kReplySeconds = 10.0;

struct HttpClose
{
    void operator()(http_t* http) const { httpClose(http); }
};
struct IppDelete
{
    void operator()(ipp_t* ipp) const { ippDelete(ipp); }
};

// The names one listing operation returns. A scheduler without any printer
// (or class) answers "not found", which is an empty list, not a failure.
bool appendNames(http_t* http, ipp_op_t operation, QStringList& names, QString& error)
{
    ipp_t* request = ippNewRequest(operation);
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes", nullptr,
                 "printer-name");
    const std::unique_ptr<ipp_t, IppDelete> response(cupsDoRequest(http, request, "/"));
    const ipp_status_t status = cupsLastError();
    if (status == IPP_STATUS_ERROR_NOT_FOUND)
        return true;
    if (!response || status > IPP_STATUS_OK_CONFLICTING) {
        error = QString::fromUtf8(cupsLastErrorString());
        return false;
    }
    for (ipp_attribute_t* a = ippFindAttribute(response.get(), "printer-name", IPP_TAG_NAME); a;
         a = ippFindNextAttribute(response.get(), "printer-name", IPP_TAG_NAME)) {
        if (const char* name = ippGetString(a, 0, nullptr))
            names << QString::fromUtf8(name);
    }
    return true;
}

} // namespace

std::optional<QStringList> schedulerQueueNames(QString* error)
{
    QString why;
    const auto failed = [&](const QString& reason) -> std::optional<QStringList> {
        if (error)
            *error = QStringLiteral("cannot ask the print scheduler (%1) for its queues: %2")
                         .arg(QString::fromUtf8(cupsServer()), reason);
        return std::nullopt;
    };
    const std::unique_ptr<http_t, HttpClose> http(httpConnect2(
        cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1, kConnectMilliseconds, nullptr));
    if (!http)
        return failed(QString::fromUtf8(cupsLastErrorString()));
    httpSetTimeout(http.get(), kReplySeconds, nullptr, nullptr);
    QStringList names;
    if (!appendNames(http.get(), IPP_OP_CUPS_GET_PRINTERS, names, why) ||
        !appendNames(http.get(), IPP_OP_CUPS_GET_CLASSES, names, why))
        return failed(why);
    return names;
}

} // namespace talvo
