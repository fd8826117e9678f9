#include "foundation/NetworkAddress.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

namespace talvo {
namespace {

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
