#pragma once

// IPv4 addresses as the system carries them: unsigned 32-bit values in network
// byte order (the printer dictionary's "in_addr_t") and dotted-quad text.
//
//     QString text = talvo::stringForInetAddr(addr);          // "10.0.0.5"
//     if (auto a = talvo::ipAddressString2in_addr_t(u"printer.lan"_s)) ...
//     bool typed = talvo::isValidIPAddress("10.0.0.5");
//     bool name = talvo::isHostNameText(u"printer-a.office.lan");

#include <QString>
#include <QStringView>

#include <cstdint>
#include <optional>
#include <string_view>

namespace talvo {

// Dotted-quad text of an address in network byte order.
QString stringForInetAddr(uint32_t networkOrderAddress);

// Resolves a host name or dotted quad to its first IPv4 address, in network
// byte order. Blocks while a name is looked up. nullopt when the text is empty,
// does not resolve, or has no IPv4 address.
std::optional<uint32_t> ipAddressString2in_addr_t(const QString& hostOrAddress);

// Four decimal octets and nothing else, read as inet_pton reads them:
// "10.0.0.1", never "010.0.0.1", "10.1", "0x0a.0.0.1", " 10.0.0.1" or
// "10.0.0.1x". Network byte order. Every address that enters from a reply, a
// tag, the command line or a text field goes through this one parser.
std::optional<uint32_t> parseIPv4Address(QStringView text);

// A well-formed DNS host name as a user may type one: dot-separated labels of
// ASCII letters, digits and '-', each 1 to 63 characters and neither beginning
// nor ending with '-', 253 characters at most, the first character a letter
// and no trailing dot. Together with parseIPv4Address this is the whole rule
// for a typed address: text that is neither never reaches a name lookup, a
// URI or a program's command line (so "tcp:h:161" or "-v3" cannot).
bool isHostNameText(QStringView text);

// parseIPv4Address accepts it or isHostNameText does: what a typed address
// must be before anything is done with it.
bool isIPv4OrHostNameText(QStringView text);

// True when the text holds exactly three dots and no two in a row.
bool isDotsOK(std::string_view text);

// The deliberately loose check of a typed address: three dots, four non-empty
// parts, the first a non-zero number; each part read like atoi (a non-number
// counts as 0, a '-' makes it negative) and none above 255. Host names are not
// accepted here; callers try name resolution separately.
bool isValidIPAddress(std::string_view text);

} // namespace talvo
