#include "foundation/NetworkAddress.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cctype>
#include <climits>
#include <cstring>

namespace talvo {

QString stringForInetAddr(uint32_t networkOrderAddress)
{
    in_addr address{};
    address.s_addr = networkOrderAddress;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return QString::fromLatin1(text);
}

std::optional<uint32_t> ipAddressString2in_addr_t(const QString& hostOrAddress)
{
    const QByteArray host = hostOrAddress.toUtf8();
    if (host.isEmpty())
        return std::nullopt;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.constData(), nullptr, &hints, &found) != 0 || !found)
        return std::nullopt;
    std::optional<uint32_t> result;
    for (const addrinfo* ai = found; ai; ai = ai->ai_next) {
        if (ai->ai_family == AF_INET && ai->ai_addr) {
            sockaddr_in sin{};
            std::memcpy(&sin, ai->ai_addr, sizeof sin);
            result = sin.sin_addr.s_addr;
            break;
        }
    }
    freeaddrinfo(found);
    return result;
}

std::optional<uint32_t> parseIPv4Address(QStringView text)
{
    // inet_pton alone would do, but it reads a C string: a NUL inside the
    // text would cut it short, and non-ASCII text must not reach it at all.
    if (text.isEmpty() || text.size() > 15)
        return std::nullopt;
    char ascii[16] = {};
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (!((c >= u'0' && c <= u'9') || c == u'.'))
            return std::nullopt;
        ascii[i] = static_cast<char>(c);
    }
    in_addr address{};
    if (inet_pton(AF_INET, ascii, &address) != 1)
        return std::nullopt;
    return address.s_addr;
}

bool isHostNameText(QStringView text)
{
    constexpr qsizetype kMaxName = 253;
    constexpr qsizetype kMaxLabel = 63;
    if (text.isEmpty() || text.size() > kMaxName)
        return false;
    const char16_t first = text.front().unicode();
    if (!((first >= u'a' && first <= u'z') || (first >= u'A' && first <= u'Z')))
        return false;
    qsizetype labelLength = 0;
    char16_t previous = 0;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u == u'.') {
            // An empty label, or one that ends with '-'.
            if (labelLength == 0 || previous == u'-')
                return false;
            labelLength = 0;
        } else {
            const bool letterOrDigit =
                (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9');
            if (!letterOrDigit && (u != u'-' || labelLength == 0))
                return false;
            if (++labelLength > kMaxLabel)
                return false;
        }
        previous = u;
    }
    // The last label: not empty (no trailing dot), not ending with '-'.
    return labelLength > 0 && previous != u'-';
}

bool isIPv4OrHostNameText(QStringView text)
{
    return parseIPv4Address(text) || isHostNameText(text);
}

bool isDotsOK(std::string_view text)
{
    int dots = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '.')
            continue;
        if (i + 1 < text.size() && text[i + 1] == '.')
            return false;
        ++dots;
    }
    return dots == 3;
}

namespace {

// atoi's reading of a part: leading blanks, an optional sign, then digits;
// anything else ends the number. Saturates instead of overflowing.
long atoiValue(std::string_view part)
{
    std::size_t i = 0;
    while (i < part.size() && std::isspace(static_cast<unsigned char>(part[i])))
        ++i;
    bool negative = false;
    if (i < part.size() && (part[i] == '-' || part[i] == '+'))
        negative = part[i++] == '-';
    long value = 0;
    for (; i < part.size() && std::isdigit(static_cast<unsigned char>(part[i])); ++i) {
        if (value < LONG_MAX / 10)
            value = value * 10 + (part[i] - '0');
    }
    return negative ? -value : value;
}

} // namespace

bool isValidIPAddress(std::string_view text)
{
    if (!isDotsOK(text))
        return false;
    // Split on '.' skipping empty parts, as strtok does.
    int accepted = 0;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find('.', start);
        if (end == std::string_view::npos)
            end = text.size();
        const std::string_view part = text.substr(start, end - start);
        start = end + 1;
        if (part.empty())
            continue;
        const long value = atoiValue(part);
        if (accepted == 0 && value == 0)
            return false;
        if (value > 255 || accepted == 4)
            return false;
        ++accepted;
    }
    return accepted > 3;
}

} // namespace talvo
