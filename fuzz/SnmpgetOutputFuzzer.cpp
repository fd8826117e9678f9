// snmpget prints what the agent sent, so its output is as much outside input
// as an SNMP datagram. parseValue must take any bytes, read a value that is
// not quoted from its first line only, and give back the text of any OCTET
// STRING printed the way snmpget -Onqv prints one (net-snmp 5.9): in quotes
// with '"' and '\' escaped while every byte is printable or white space,
// otherwise as hex pairs, sixteen to a line.
#include "snmp/SnmpgetFallback.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>

namespace {

bool printableOrSpace(char c)
{
    const auto u = static_cast<unsigned char>(c);
    return u < 0x80 && (std::isprint(u) || std::isspace(u));
}

QByteArray printedBySnmpget(const QByteArray& value, bool& asHex)
{
    asHex = !std::all_of(value.cbegin(), value.cend(), printableOrSpace);
    QByteArray out = "\"";
    for (qsizetype i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (asHex) {
            if (i > 0 && i % 16 == 0)
                out += '\n';
            out +=
                QByteArray::number(static_cast<unsigned char>(c), 16).toUpper().rightJustified(2, '0') + ' ';
        } else {
            if (c == '"' || c == '\\')
                out += '\\';
            out += c;
        }
    }
    return out + "\"\n";
}

// The bytes a text would stand for if read as snmpget's hex form ("41 42 \n"
// and so on), nullopt when it is not in that form.
std::optional<QByteArray> asHexForm(const QByteArray& text)
{
    QByteArray bytes;
    qsizetype i = 0;
    while (i < text.size()) {
        if (text.size() - i < 3 || !std::isxdigit(static_cast<unsigned char>(text[i])) ||
            !std::isxdigit(static_cast<unsigned char>(text[i + 1])) || text[i + 2] != ' ' ||
            std::islower(static_cast<unsigned char>(text[i])) ||
            std::islower(static_cast<unsigned char>(text[i + 1])))
            return std::nullopt;
        bytes += static_cast<char>(text.mid(i, 2).toInt(nullptr, 16));
        i += 3;
        if (i < text.size() && text[i] == '\n')
            ++i;
    }
    if (bytes.isEmpty())
        return std::nullopt;
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using talvo::snmpget::parseValue;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    const auto value = parseValue(bytes);
    if (value && !bytes.startsWith('"') && value->contains(u'\n'))
        std::abort();

    // The same bytes as the string a printer sent.
    bool asHex = false;
    const auto back = parseValue(printedBySnmpget(bytes, asHex));
    QString expected;
    if (asHex) {
        expected = bytes.isValidUtf8() ? QString::fromUtf8(bytes) : QString::fromLatin1(bytes);
        if (expected == QStringView(u"\u0001"))
            expected.clear();
    } else {
        // Text that reads as the hex form of other bytes prints exactly as
        // those bytes do: snmpget's output cannot tell them apart.
        const auto hex = asHexForm(bytes);
        if (hex && !std::all_of(hex->cbegin(), hex->cend(), printableOrSpace))
            return 0;
        expected = QString::fromLatin1(bytes);
    }
    if (!back || *back != expected)
        std::abort();
    return 0;
}
