#include "snmp/SnmpCodec.h"

#include <gtest/gtest.h>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <memory>

namespace talvo {
namespace {

struct VarDeleter
{
    void operator()(netsnmp_variable_list* v) const { snmp_free_varbind(v); }
};
using Var = std::unique_ptr<netsnmp_variable_list, VarDeleter>;

Var makeVar(u_char type, const void* value, size_t length)
{
    const oid name[] = {1, 3, 6, 1, 2, 1, 1, 5, 0};
    netsnmp_variable_list* list = nullptr;
    snmp_varlist_add_variable(&list, name, std::size(name), type, value, length);
    return Var(list);
}

TEST(SnmpValue, ConvertedTypes)
{
    const long integer = -7;
    const char text[] = "Model 4000";
    const char utf8[] = "Gr\xc3\xbc\xc3\x9f";
    const char latin1[] = "Gr\xfc";
    const u_char bits[] = {0x80, 0x01};
    const oid objid[] = {1, 3, 6, 1, 4, 1, 58101, 1};
    counter64 big{};
    big.high = 1;
    big.low = 2;

    EXPECT_EQ(*snmp::valueFromVariable(*makeVar(ASN_INTEGER, &integer, sizeof integer)), QVariant(-7));
    EXPECT_EQ(*snmp::valueFromVariable(*makeVar(ASN_OCTET_STR, text, 10)),
              QVariant(QStringLiteral("Model 4000")));
    EXPECT_EQ(*snmp::valueFromVariable(*makeVar(ASN_OCTET_STR, utf8, 6)),
              QVariant(QStringLiteral("Gr\u00fc\u00df")));
    EXPECT_EQ(*snmp::valueFromVariable(*makeVar(ASN_OCTET_STR, latin1, 3)),
              QVariant(QStringLiteral("Gr\u00fc")));
    EXPECT_EQ(*snmp::valueFromVariable(*makeVar(ASN_BIT_STR, bits, 2)), QVariant(QByteArray("\x80\x01", 2)));
    // An OID value has no leading dot, unlike the OID text the map is keyed by.
    EXPECT_EQ(*snmp::valueFromVariable(*makeVar(ASN_OBJECT_ID, objid, sizeof objid)),
              QVariant(QStringLiteral("1.3.6.1.4.1.58101.1")));
    EXPECT_EQ(*snmp::valueFromVariable(*makeVar(ASN_COUNTER64, &big, sizeof big)),
              QVariant(qint64{(1LL << 32) + 2}));
}

TEST(SnmpValue, CountersGaugesTimeTicksAndAddressesAreLeftOut)
{
    const u_long number = 5;
    const u_char address[] = {10, 0, 0, 5};
    for (const unsigned type : {ASN_COUNTER, ASN_GAUGE, ASN_TIMETICKS}) {
        const auto var = makeVar(static_cast<u_char>(type), &number, sizeof number);
        EXPECT_FALSE(snmp::valueFromVariable(*var)) << type;
    }
    EXPECT_FALSE(snmp::valueFromVariable(*makeVar(ASN_IPADDRESS, address, 4)));
}

TEST(SnmpValue, OidTextForms)
{
    const oid sysName[] = {1, 3, 6, 1, 2, 1, 1, 5, 0};
    EXPECT_EQ(snmp::textForOid(sysName, std::size(sysName)), QStringLiteral(".1.3.6.1.2.1.1.5.0"));
    EXPECT_EQ(snmp::oidToString(sysName, sizeof sysName), QStringLiteral("1.3.6.1.2.1.1.5.0"));
    EXPECT_EQ(snmp::textForOid(sysName, 0), QString());
}

} // namespace
} // namespace talvo
