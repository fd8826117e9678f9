// The Advanced Search and SNMP community sheets against a real discovery
// engine: what the user can type, and what reaches the engine and the user
// preferences file.

#include "LogCapture.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/PropertyList.h"
#include "foundation/Settings.h"
#include "pane/AddPrintQueueSettings.h"
#include "pane/SnmpStringsSheet.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTemporaryDir>
#include <QTest>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

// Replaces the field's text the way a user does (select all, then type or
// delete), so the field reports an edit.
void type(QLineEdit* field, const QString& text)
{
    field->selectAll();
    if (text.isEmpty())
        QTest::keyClick(field, Qt::Key_Backspace);
    else
        QTest::keyClicks(field, text);
}

bool logged(const test::LogCapture& log, const QString& text)
{
    return log.lines().join(u'\n').contains(text);
}

TEST(AdvancedSearchSheet, BroadcastAddressKeepsNetworkBitsAndSetsHostBits)
{
    struct Case
    {
        QString gateway, mask, broadcast; // empty broadcast: refused
    };
    const Case cases[] = {
        {u"192.168.5.0"_s, u"255.255.255.0"_s, u"192.168.5.255"_s},
        {u"192.168.5.7"_s, u"255.255.0.0"_s, u"192.168.255.255"_s},
        {u"10.20.30.40"_s, u"255.255.255.255"_s, u"10.20.30.40"_s},
        {u"172.16.0.0"_s, u"255.240.0.0"_s, u"172.31.255.255"_s},
        {u"10.1.2.x"_s, u"255.0.0.0"_s, QString()}, // passes the loose check, is no address
        {u"10.1.2.0"_s, u"255.255.255"_s, QString()},
    };
    for (const Case& c : cases) {
        const auto broadcast = AddPrintQueueSettings::broadcastAddressForSubnet(c.gateway, c.mask);
        EXPECT_EQ(broadcast ? stringForInetAddr(*broadcast) : QString(), c.broadcast)
            << c.gateway.toStdString() << " " << c.mask.toStdString();
    }
}

TEST(AdvancedSearchSheet, SearchFollowsTheChosenTargetAndItsFields)
{
    PrinterDiscoveryEngine engine({});
    AddPrintQueueSettings sheet(&engine, nullptr);
    sheet.open();
    EXPECT_EQ(sheet.windowTitle(), u"Advanced Sheet Title"_s); // no translations loaded: the key
    EXPECT_TRUE(sheet.gatewaySubnetRadioButton()->isChecked());
    EXPECT_FALSE(sheet.searchButton()->isEnabled());

    // Each step types into a field (or clicks a radio) and checks the outcome.
    struct Step
    {
        QLineEdit* field;
        QRadioButton* radio;
        QString text;
        bool gatewayRadioOn, searchEnabled;
    };
    QLineEdit* const gateway = sheet.gatewayTextField();
    QLineEdit* const mask = sheet.subnetTextField();
    QLineEdit* const address = sheet.ipAddressTextField();
    QRadioButton* const gatewayRadio = sheet.gatewaySubnetRadioButton();
    QRadioButton* const addressRadio = sheet.ipAddressRadioButton();
    const Step steps[] = {
        {gateway, nullptr, u"192.168.5.0"_s, true, false}, // mask still empty
        {mask, nullptr, u"255.255.255.0"_s, true, true},
        {address, nullptr, u"10.0.0"_s, false, false}, // typing chooses the address
        {address, nullptr, u"10.0.0.9"_s, false, true},
        {mask, nullptr, u"255.255"_s, true, false}, // back to the subnet, mask incomplete
        {mask, nullptr, u"255.255.0.0"_s, true, true},
        {gateway, nullptr, u"0.1.2.3"_s, true, false},
        {nullptr, addressRadio, {}, false, true},
        {nullptr, addressRadio, {}, false, true}, // clicking the radio that is on keeps it on
        {nullptr, gatewayRadio, {}, true, false},
    };
    int index = 0;
    for (const Step& s : steps) {
        if (s.field)
            type(s.field, s.text);
        else
            s.radio->click();
        EXPECT_EQ(gatewayRadio->isChecked(), s.gatewayRadioOn) << "step " << index;
        EXPECT_NE(addressRadio->isChecked(), s.gatewayRadioOn) << "step " << index;
        EXPECT_EQ(sheet.searchButton()->isEnabled(), s.searchEnabled) << "step " << index;
        ++index;
    }
}

TEST(AdvancedSearchSheet, SearchHandsTheTargetToTheEngineAndCancelNothing)
{
    PrinterDiscoveryEngine engine({});
    const QStringList before = engine.knownSearchSubnets();
    test::LogCapture log;

    // Cancel with a valid subnet and with a valid address: nothing arrives.
    for (const bool useAddress : {false, true}) {
        AddPrintQueueSettings sheet(&engine, nullptr);
        sheet.open();
        type(sheet.gatewayTextField(), u"192.168.9.0"_s);
        type(sheet.subnetTextField(), u"255.255.255.0"_s);
        if (useAddress)
            type(sheet.ipAddressTextField(), u"10.9.8.6"_s);
        sheet.cancelButton()->click();
        EXPECT_EQ(sheet.result(), QDialog::Rejected);
    }
    EXPECT_EQ(engine.knownSearchSubnets(), before);

    AddPrintQueueSettings subnetSheet(&engine, nullptr);
    subnetSheet.open();
    type(subnetSheet.gatewayTextField(), u"192.168.5.7"_s);
    type(subnetSheet.subnetTextField(), u"255.255.0.0"_s);
    subnetSheet.searchButton()->click();
    EXPECT_EQ(subnetSheet.result(), QDialog::Accepted);
    EXPECT_EQ(engine.knownSearchSubnets(), before + QStringList{u"192.168.255.255"_s});

    AddPrintQueueSettings addressSheet(&engine, nullptr);
    addressSheet.open();
    type(addressSheet.ipAddressTextField(), u"10.9.8.7"_s);
    addressSheet.searchButton()->click();
    // A stopped engine keeps the address handed over; the next one replaces
    // it and says which one it was (the cancelled 10.9.8.6 never arrived).
    engine.addPrinterForSearchFromOtherThread(0);
    EXPECT_TRUE(logged(log, u"the address 10.9.8.7 is replaced"_s)) << log.lines().join(u'\n').toStdString();
    EXPECT_FALSE(logged(log, u"10.9.8.6"_s));
    EXPECT_EQ(log.lines().count(u"AddPrintQueueSettings: closeAdvancedSheet"_s), 4);
}

// The sheet closed one way after the user typed; what the engine and the
// user preferences file hold afterwards.
struct SnmpCase
{
    const char* name;
    QString typedGet, typedSet; // null: left as shown
    enum Close { Ok, Cancel, Escape } close;
    QString getAfter, setAfter;
    bool fileWritten;
};

void PrintTo(const SnmpCase& c, std::ostream* os)
{
    *os << c.name;
}

class SnmpStringsSheetTest : public testing::TestWithParam<SnmpCase>
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_config.isValid());
        qputenv("XDG_CONFIG_HOME", m_config.path().toUtf8());
        setVendor(u"talvo"_s);
    }
    void TearDown() override
    {
        setVendor(QString());
        qunsetenv("XDG_CONFIG_HOME");
    }
    QTemporaryDir m_config;
};

TEST_P(SnmpStringsSheetTest, ClosingHandsTheStringsOnOnlyWithOk)
{
    const SnmpCase& c = GetParam();
    PrinterDiscoveryEngine engine(
        {{QString(snmpCommunityGetKey), u"public"_s}, {QString(snmpCommunitySetKey), u"private"_s}});
    SnmpStringsSheet sheet(&engine, nullptr);
    test::LogCapture log;

    // A first opening cancelled after an edit: the next one shows the engine's strings.
    sheet.showSNMPStringsSheet();
    type(sheet.getTextField(), u"discarded"_s);
    sheet.cancelButton()->click();
    sheet.showSNMPStringsSheet();
    EXPECT_EQ(sheet.getTextField()->text(), u"public"_s);
    EXPECT_EQ(sheet.setTextField()->text(), u"private"_s);

    if (!c.typedSet.isNull())
        type(sheet.setTextField(), c.typedSet);
    if (!c.typedGet.isNull())
        type(sheet.getTextField(), c.typedGet);
    switch (c.close) {
    case SnmpCase::Ok:
        sheet.okButton()->click();
        break;
    case SnmpCase::Cancel:
        sheet.cancelButton()->click();
        break;
    case SnmpCase::Escape:
        QTest::keyClick(&sheet, Qt::Key_Escape);
        break;
    }
    EXPECT_FALSE(sheet.isVisible());
    EXPECT_EQ(sheet.snmpSheetDlgResult(), c.close == SnmpCase::Ok);
    EXPECT_EQ(engine.snmpGetString(), c.getAfter);
    EXPECT_EQ(engine.snmpSetString(), c.setAfter);
    EXPECT_EQ(log.lines().count(u"snmpStringsSheetDidEnd"_s), 2);

    const QString prefsFile = filePathForUserPrefs().value_or(QString());
    ASSERT_TRUE(prefsFile.startsWith(m_config.path()));
    ASSERT_EQ(QFile::exists(prefsFile), c.fileWritten);
    if (c.fileWritten) {
        const QVariantMap prefs = plist::readFile(prefsFile).value_or(QVariant()).toMap();
        EXPECT_EQ(prefs.value(snmpCommunityGetKey), c.getAfter);
        EXPECT_EQ(prefs.value(snmpCommunitySetKey), c.setAfter);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Closings, SnmpStringsSheetTest,
    testing::Values(SnmpCase{"OkChanged", u"secret"_s, {}, SnmpCase::Ok, u"secret"_s, u"private"_s, true},
                    // Emptying a field disables OK until the other field is edited; the
                    // empty string is then passed on.
                    SnmpCase{"OkEmptySet", u"secret"_s, u""_s, SnmpCase::Ok, u"secret"_s, u""_s, true},
                    SnmpCase{"OkUnchanged", {}, {}, SnmpCase::Ok, u"public"_s, u"private"_s, false},
                    SnmpCase{"Cancel", u"secret"_s, u"x"_s, SnmpCase::Cancel, u"public"_s, u"private"_s,
                             false},
                    SnmpCase{"Escape", u"secret"_s, {}, SnmpCase::Escape, u"public"_s, u"private"_s, false}),
    [](const testing::TestParamInfo<SnmpCase>& p) { return std::string(p.param.name); });

TEST(SnmpStringsSheetOkButton, FollowsTheTrimmedTextOfTheFieldBeingEdited)
{
    PrinterDiscoveryEngine engine(
        {{QString(snmpCommunityGetKey), u"public"_s}, {QString(snmpCommunitySetKey), u"private"_s}});
    SnmpStringsSheet sheet(&engine, nullptr);
    sheet.showSNMPStringsSheet();
    struct Step
    {
        QLineEdit* field;
        QString text;
        bool okEnabled;
    };
    const Step steps[] = {
        {sheet.getTextField(), u"  \t"_s, false},
        {sheet.setTextField(), u" x "_s, true}, // only the edited field counts
        {sheet.setTextField(), u""_s, false},
        {sheet.getTextField(), u"p"_s, true},
    };
    for (const Step& s : steps) {
        type(s.field, s.text);
        EXPECT_EQ(sheet.okButton()->isEnabled(), s.okEnabled) << s.text.toStdString();
    }
    sheet.cancelButton()->click();
}

} // namespace
} // namespace talvo
