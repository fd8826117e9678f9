// SNMP replies come from anyone who can reach our one SNMP socket. Decoding
// must never crash or read past the datagram, and a message that decodes must
// survive being encoded again: decode(encode(m)) == m.
#include "snmp/SnmpCodec.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto message = talvo::snmp::decodeMessage(bytes);
    if (!message)
        return 0;
    // Values that are not converted carry no value to write back.
    for (const auto& v : message->varbinds) {
        if (!v.converted)
            return 0;
    }
    const QByteArray encoded = talvo::snmp::encodeResponse(*message);
    if (encoded.isEmpty())
        return 0; // a message net-snmp cannot write exactly is refused, not mangled
    const auto again = talvo::snmp::decodeMessage(encoded);
    if (!again || *again != *message)
        std::abort();
    return 0;
}
