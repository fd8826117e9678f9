#include "foundation/NetworkAddress.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

struct AddressCase
{
    const char* text;
    bool dotsOK;
    bool valid;
};

void PrintTo(const AddressCase& c, std::ostream* os)
{
    *os << '"' << c.text << '"';
}

class TypedAddressTest : public testing::TestWithParam<AddressCase>
{};

TEST_P(TypedAddressTest, DotsAndLooseValidity)
{
    const AddressCase& c = GetParam();
    EXPECT_EQ(isDotsOK(c.text), c.dotsOK);
    EXPECT_EQ(isValidIPAddress(c.text), c.valid);
}

INSTANTIATE_TEST_SUITE_P(
    Typed, TypedAddressTest,
    testing::Values(AddressCase{"10.0.0.1", true, true}, AddressCase{"10..0.1", false, false},
                    AddressCase{"10.0.1", false, false}, AddressCase{"10.0.0.1.", false, false},
                    AddressCase{"192.168.1.300", true, false}, AddressCase{"0.1.2.3", true, false},
                    AddressCase{"a.1.2.3", true, false},
                    // Only the first part must be a non-zero number: the rest is read like atoi.
                    AddressCase{"10.0.0.0", true, true}, AddressCase{"10.x.y.z", true, true},
                    AddressCase{"10.-1.2.3", true, true}, AddressCase{"10.1.2.255abc", true, true},
                    // A leading or trailing dot leaves three parts.
                    AddressCase{".10.1.2", true, false}, AddressCase{"10.1.2.", true, false},
                    AddressCase{"", false, false}, AddressCase{"256.1.1.1", true, false},
                    AddressCase{"99999999999999999999.1.1.1", true, false}));

TEST(StrictAddress, AcceptsFourDecimalOctetsOnly)
{
    EXPECT_EQ(parseIPv4Address(u"10.0.0.1"), inet_addr("10.0.0.1"));
    EXPECT_EQ(parseIPv4Address(u"255.255.255.255"), 0xffffffffu);
    EXPECT_EQ(parseIPv4Address(u"0.0.0.0"), 0u);
    // Everything the loose check or inet_aton would let through, and text
    // that would reach a program as an option or a transport prefix.
    for (const char16_t* bad :
         {u"10.x.y.z", u"10.0.0.256", u"tcp:h:161", u"-v3", u"010.0.0.1", u"10.1", u"0x0a.0.0.1",
          u" 10.0.0.1", u"10.0.0.1 ", u"10.0.0.1x", u"10..0.1", u"", u"1.2.3.4.5", u"\u0661.2.3.4"})
        EXPECT_FALSE(parseIPv4Address(bad)) << QString::fromUtf16(bad).toStdString();
    EXPECT_FALSE(parseIPv4Address(QStringView(u"10.0.0.1\0x", 10)));
}

struct HostNameCase
{
    QString text;
    bool hostName;
};

void PrintTo(const HostNameCase& c, std::ostream* os)
{
    *os << '"' << c.text.toStdString() << '"';
}

class HostNameTextTest : public testing::TestWithParam<HostNameCase>
{};

TEST_P(HostNameTextTest, AcceptsWellFormedNamesThatBeginWithALetter)
{
    EXPECT_EQ(isHostNameText(GetParam().text), GetParam().hostName);
}

const QString kLabel63 = QString(63, u'a');

INSTANTIATE_TEST_SUITE_P(
    Typed, HostNameTextTest,
    testing::Values(
        HostNameCase{u"printer-a"_s, true}, HostNameCase{u"office.lan"_s, true}, HostNameCase{u"P"_s, true},
        HostNameCase{u"a1.b-2.C3"_s, true}, HostNameCase{u"a.0"_s, true}, HostNameCase{kLabel63, true},
        HostNameCase{kLabel63 + u"a"_s, false},
        // 253 characters in four labels is the longest name; 255 is too long.
        HostNameCase{kLabel63 + u'.' + kLabel63 + u'.' + kLabel63 + u'.' + QString(61, u'b'), true},
        HostNameCase{kLabel63 + u'.' + kLabel63 + u'.' + kLabel63 + u'.' + QString(63, u'b'), false},
        // A digit first: a mistyped address, never looked up as a name.
        HostNameCase{u"10.x.y.z"_s, false}, HostNameCase{u"10.0.0.1"_s, false},
        HostNameCase{u"2nd-floor"_s, false},
        // What a program would read as a transport or an option.
        HostNameCase{u"tcp:h:161"_s, false}, HostNameCase{u"-v3"_s, false}, HostNameCase{u"a-.b"_s, false},
        HostNameCase{u"a.-b"_s, false}, HostNameCase{u"a-"_s, false}, HostNameCase{u"a..b"_s, false},
        HostNameCase{u"a."_s, false}, HostNameCase{u".a"_s, false}, HostNameCase{u"a_b"_s, false},
        HostNameCase{u""_s, false}, HostNameCase{u"a b"_s, false}, HostNameCase{u" a"_s, false},
        HostNameCase{u"a\n"_s, false}, HostNameCase{u"dr\u00fccker"_s, false},
        HostNameCase{QString::fromUtf16(u"a\0b", 3), false}, HostNameCase{u"a/b"_s, false}));

TEST(InetAddressText, RoundTripsThroughNetworkOrder)
{
    EXPECT_EQ(stringForInetAddr(inet_addr("10.1.2.3")), QStringLiteral("10.1.2.3"));
    EXPECT_EQ(stringForInetAddr(inet_addr("255.255.255.255")), QStringLiteral("255.255.255.255"));
    EXPECT_EQ(ipAddressString2in_addr_t(QStringLiteral("10.1.2.3")), inet_addr("10.1.2.3"));
}

TEST(InetAddressText, ResolvesNamesAndReportsFailureByNoValue)
{
    EXPECT_EQ(ipAddressString2in_addr_t(QStringLiteral("localhost")), inet_addr("127.0.0.1"));
    EXPECT_FALSE(ipAddressString2in_addr_t(QString()));
    EXPECT_FALSE(ipAddressString2in_addr_t(QStringLiteral("no-such-printer.invalid")));
}

} // namespace
} // namespace talvo
