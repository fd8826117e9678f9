// Broadcast discovery datagrams built from any fields: a request as the
// engine sends it and a reply as a printer sends it must each read back as
// what was put in, as far as the format carries it: 8-bit texts, a reply's
// texts cut at 127 bytes, and a request's list cut at the first printer that
// the length rule leaves out.
#include "discovery/BroadcastPacket.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

// Any text, characters beyond Latin-1 included (they are sent as '?').
QString anyText(FuzzedDataProvider& fuzz, std::size_t maxBytes)
{
    return QString::fromStdString(fuzz.ConsumeRandomLengthString(maxBytes));
}

QString as8Bit(const QString& text, qsizetype maxBytes = -1)
{
    return QString::fromLatin1(text.toLatin1().left(maxBytes < 0 ? text.size() : maxBytes));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace talvo::broadcast;
    FuzzedDataProvider fuzz(data, size);

    const QString model = anyText(fuzz, 200);
    const QString address = anyText(fuzz, 200);
    const QString mac = anyText(fuzz, 200);
    const auto reply = parseReply(buildReply(model, address, mac));
    if (!reply || reply->model != as8Bit(model, 127) || reply->address != as8Bit(address, 127) ||
        reply->mac != as8Bit(mac, 127))
        std::abort();

    // Copies of a text make lists that reach the size limit from short inputs.
    const auto replyAddr = fuzz.ConsumeIntegral<uint32_t>();
    QStringList known;
    while (fuzz.remaining_bytes() > 0) {
        const int copies = fuzz.ConsumeIntegralInRange(1, 16);
        const QString text = anyText(fuzz, 300);
        for (int i = 0; i < copies; ++i)
            known << text;
    }
    const Request request = buildRequest(replyAddr, known);
    const auto parsed = parseRequest(request.datagram);
    if (!parsed || parsed->replyAddr != replyAddr)
        std::abort();
    const qsizetype listed = parsed->knownPrinterAddresses.size();
    if (listed > known.size() || request.exceeded != (listed < known.size()))
        std::abort();
    qsizetype length = 15;
    for (qsizetype i = 0; i < listed; ++i) {
        const QString text = as8Bit(known[i]);
        if (parsed->knownPrinterAddresses[i] != text || length + text.size() + 1 > maxUDPPacketPayload)
            std::abort();
        length += 4 + text.size();
    }
    if (request.datagram.size() != length ||
        (request.exceeded && length + known[listed].size() + 1 <= maxUDPPacketPayload))
        std::abort();
    return 0;
}
