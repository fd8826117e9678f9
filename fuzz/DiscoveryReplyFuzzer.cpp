// Discovery replies and requests come from anyone on the network. The parsers
// must never read past the datagram, and what a reply says must survive being
// written again.
#include "discovery/BroadcastPacket.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    talvo::broadcast::parseRequest(bytes);
    const auto reply = talvo::broadcast::parseReply(bytes);
    if (!reply)
        return 0;
    const auto again =
        talvo::broadcast::parseReply(talvo::broadcast::buildReply(reply->model, reply->address, reply->mac));
    if (!again || again->model != reply->model || again->address != reply->address ||
        again->mac != reply->mac)
        std::abort();
    return 0;
}
