// Typed text through the address checks and the queue-name and shell helpers:
// none may crash, and each keeps its promise about the shape of its output.
#include "foundation/NetworkAddress.h"
#include "foundation/QueueNaming.h"
#include "foundation/ShellText.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const bool valid = talvo::isValidIPAddress(text);
    if (valid && !talvo::isDotsOK(text))
        std::abort(); // a valid address always has its three dots

    const QString qtext = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
    const QString queue = talvo::convertStrForCupsQueueName(qtext);
    if (queue.size() != qtext.size())
        std::abort();
    for (const QChar c : queue) {
        const char16_t u = c.unicode();
        if (!((u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'_'))
            std::abort();
    }

    const QByteArray escaped = talvo::shellEscapeStr(qtext).toUtf8();
    if (escaped.size() > 2 * qtext.toUtf8().size())
        std::abort();
    return 0;
}
