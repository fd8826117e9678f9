// The Advanced Search and SNMP community sheets against a real discovery
// engine: what the user can type, and what reaches the engine and the user
// preferences file.

#include "LogCapture.h"
#include "ScratchMount.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/PropertyList.h"
#include "foundation/Settings.h"
#include "pane/AddPrintQueueSettings.h"
#include "pane/SnmpStringsSheet.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
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

const QVariantMap kStrings{{snmpCommunityGetKey, u"public"_s}, {snmpCommunitySetKey, u"private"_s}};

TEST(AdvancedSearchSheet, BroadcastAddressKeepsNetworkBitsAndSetsHostBits)
{
    const QString cases[][3] = {
        // gateway, mask, broadcast (empty: refused)
        {u"192.168.5.0"_s, u"255.255.255.0"_s, u"192.168.5.255"_s},
        {u"192.168.5.7"_s, u"255.255.0.0"_s, u"192.168.255.255"_s},
        {u"10.20.30.40"_s, u"255.255.255.255"_s, u"10.20.30.40"_s},
        {u"172.16.0.0"_s, u"255.240.0.0"_s, u"172.31.255.255"_s},
        {u"10.1.2.x"_s, u"255.0.0.0"_s, QString()}, // passes the loose check, is no address
        {u"10.1.2.0"_s, u"255.255.255"_s, QString()},
        {u"010.1.2.0"_s, u"255.0.0.0"_s, QString()}, // never read as octal
        {u"10.1.2.0"_s, u"255.255.255.256"_s, QString()},
    };
    for (const auto& [gateway, mask, expected] : cases) {
        const auto broadcast = AddPrintQueueSettings::broadcastAddressForSubnet(gateway, mask);
        EXPECT_EQ(broadcast ? stringForInetAddr(*broadcast) : QString(), expected) << gateway.toStdString();
    }
}

TEST(AdvancedSearchSheet, SearchFollowsTheChosenTargetAndItsFields)
{
    PrinterDiscoveryEngine engine({});
    AddPrintQueueSettings sheet(&engine, nullptr);
    sheet.open();
    QRadioButton* const gatewayRadio = sheet.gatewaySubnetRadioButton();
    QRadioButton* const addressRadio = sheet.ipAddressRadioButton();
    // Each step types into a field or clicks a radio (no target: as opened).
    const struct
    {
        QWidget* target;
        QString text;
        bool gatewayRadioOn, searchEnabled;
    } steps[] = {
        {nullptr, {}, true, false},
        {sheet.gatewayTextField(), u"192.168.5.0"_s, true, false}, // mask still empty
        {sheet.subnetTextField(), u"255.255.255.0"_s, true, true},
        {sheet.ipAddressTextField(), u"10.0.0"_s, false, false}, // typing chooses the address
        {sheet.ipAddressTextField(), u"10.0.0.9"_s, false, true},
        {sheet.subnetTextField(), u"255.255"_s, true, false}, // back to the subnet, mask incomplete
        {sheet.subnetTextField(), u"255.255.0.0"_s, true, true},
        {sheet.gatewayTextField(), u"10.0.0.256"_s, true, false},
        {addressRadio, {}, false, true},
        {addressRadio, {}, false, true}, // clicking the radio that is on keeps it on
        {gatewayRadio, {}, true, false},
    };
    for (int i = 0; const auto& s : steps) {
        if (auto* field = qobject_cast<QLineEdit*>(s.target))
            type(field, s.text);
        else if (auto* radio = qobject_cast<QRadioButton*>(s.target))
            radio->click();
        EXPECT_EQ(gatewayRadio->isChecked(), s.gatewayRadioOn) << "step " << i;
        EXPECT_NE(addressRadio->isChecked(), s.gatewayRadioOn) << "step " << i;
        EXPECT_EQ(sheet.searchButton()->isEnabled(), s.searchEnabled) << "step " << i++;
    }
}

// Each field the chosen target needs: text that is not four decimal octets
// keeps Search off and shows the hint under that field only; a good value
// hides it again. An empty field keeps Search off without a hint.
TEST(AdvancedSearchSheet, EachFieldIsCheckedStrictlyAndSaysWhy)
{
    PrinterDiscoveryEngine engine({});
    AddPrintQueueSettings sheet(&engine, nullptr);
    sheet.open();
    EXPECT_FALSE(sheet.searchButton()->isEnabled());
    const QList<QLabel*> hints{sheet.gatewayInvalidLabel(), sheet.subnetInvalidLabel(),
                               sheet.ipAddressInvalidLabel()};
    const auto shown = [&] {
        QList<bool> visible;
        for (QLabel* hint : hints)
            visible.append(hint->isVisibleTo(&sheet));
        return visible;
    };
    EXPECT_EQ(shown(), QList<bool>({false, false, false}));

    const struct
    {
        QLineEdit* field;
        QString good;
        QList<bool> hintWhenBad;
    } fields[] = {
        {sheet.gatewayTextField(), u"192.168.5.0"_s, {true, false, false}},
        {sheet.subnetTextField(), u"255.255.255.0"_s, {false, true, false}},
        {sheet.ipAddressTextField(), u"10.0.0.9"_s, {false, false, true}},
    };
    // The other field of a subnet holds a good value, so only the one typed counts.
    type(sheet.subnetTextField(), u"255.255.255.0"_s);
    type(sheet.gatewayTextField(), u"192.168.5.0"_s);
    for (const auto& f : fields) {
        for (const QString& bad :
             {u"10.x.y.z"_s, u"10.0.0.256"_s, u"tcp:h:161"_s, u"-v3"_s, u"010.0.0.1"_s}) {
            SCOPED_TRACE((f.field->objectName() + u' ' + bad).toStdString());
            type(f.field, bad);
            EXPECT_FALSE(sheet.searchButton()->isEnabled());
            EXPECT_EQ(shown(), f.hintWhenBad);
        }
        type(f.field, QString());
        EXPECT_FALSE(sheet.searchButton()->isEnabled());
        EXPECT_EQ(shown(), QList<bool>({false, false, false}));
        type(f.field, f.good);
        EXPECT_TRUE(sheet.searchButton()->isEnabled());
        EXPECT_EQ(shown(), QList<bool>({false, false, false}));
    }
    // A bad subnet field stops mattering once the single address is chosen.
    type(sheet.gatewayTextField(), u"10.x.y.z"_s);
    EXPECT_EQ(shown(), QList<bool>({true, false, false}));
    sheet.ipAddressRadioButton()->click();
    EXPECT_TRUE(sheet.searchButton()->isEnabled());
    EXPECT_EQ(shown(), QList<bool>({false, false, false}));
}

TEST(AdvancedSearchSheet, SearchHandsTheTargetToTheEngineAndCancelNothing)
{
    PrinterDiscoveryEngine engine({});
    const QStringList before = engine.knownSearchSubnets();
    test::LogCapture log;
    // Cancel with a valid subnet, then also a valid address; then Search with
    // the subnet, then with the address.
    for (const int run : {0, 1, 2, 3}) {
        AddPrintQueueSettings sheet(&engine, nullptr);
        sheet.open();
        type(sheet.gatewayTextField(), u"192.168.5.7"_s);
        type(sheet.subnetTextField(), u"255.255.0.0"_s);
        if (run % 2 == 1)
            type(sheet.ipAddressTextField(), run == 1 ? u"10.9.8.6"_s : u"10.9.8.7"_s);
        (run < 2 ? sheet.cancelButton() : sheet.searchButton())->click();
        EXPECT_EQ(sheet.result(), run < 2 ? QDialog::Rejected : QDialog::Accepted);
        EXPECT_EQ(engine.knownSearchSubnets().size(), before.size() + (run < 2 ? 0 : 1));
    }
    EXPECT_EQ(engine.knownSearchSubnets(), before + QStringList{u"192.168.255.255"_s});
    EXPECT_EQ(log.lines().count(u"AddPrintQueueSettings: closeAdvancedSheet"_s), 4);
}

TEST(SnmpStringsSheet, ClosingHandsTheStringsOnOnlyWithOk)
{
    const struct
    {
        QString typedGet, typedSet;                      // null: left as shown
        QPushButton* (SnmpStringsSheet::*close)() const; // null: Escape
        QString getAfter, setAfter;                      // null: as before, and no file written
    } cases[] = {
        {u"secret"_s, {}, &SnmpStringsSheet::okButton, u"secret"_s, u"private"_s},
        {{}, {}, &SnmpStringsSheet::okButton, {}, {}}, // unchanged: nothing written
        {u"secret"_s, u"x"_s, &SnmpStringsSheet::cancelButton, {}, {}},
        {u"secret"_s, {}, nullptr, {}, {}},
    };
    for (int i = 0; const auto& c : cases) {
        SCOPED_TRACE(i++);
        QTemporaryDir config;
        qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
        setVendor(u"talvo"_s);
        PrinterDiscoveryEngine engine(kStrings);
        SnmpStringsSheet sheet(&engine, nullptr);
        test::LogCapture log;
        sheet.showSNMPStringsSheet();
        if (!c.typedSet.isNull())
            type(sheet.setTextField(), c.typedSet);
        if (!c.typedGet.isNull())
            type(sheet.getTextField(), c.typedGet);
        if (c.close)
            (sheet.*c.close)()->click();
        else
            QTest::keyClick(&sheet, Qt::Key_Escape);
        EXPECT_EQ(sheet.snmpSheetDlgResult(), c.close == &SnmpStringsSheet::okButton);
        const bool written = !c.getAfter.isNull();
        EXPECT_EQ(engine.readCommunity(), written ? c.getAfter : u"public"_s);
        EXPECT_EQ(engine.writeCommunity(), written ? c.setAfter : u"private"_s);
        EXPECT_EQ(log.lines().count(u"snmpStringsSheetDidEnd"_s), 1);
        const QString prefsFile = filePathForUserPrefs().value_or(QString());
        ASSERT_TRUE(prefsFile.startsWith(config.path()));
        ASSERT_EQ(QFile::exists(prefsFile), written);
        if (written) {
            const QVariantMap prefs = plist::readFile(prefsFile).value_or(QVariant()).toMap();
            EXPECT_EQ(prefs.value(snmpCommunityGetKey), c.getAfter);
            EXPECT_EQ(prefs.value(snmpCommunitySetKey), c.setAfter);
        }
    }
    setVendor(QString());
    qunsetenv("XDG_CONFIG_HOME");
}

// The preferences folder on a read-only mount (file modes would not stop
// root): OK shows an alert naming the file and the reason, the old file
// stays, and the change stays pending, so the next OK - with nothing typed -
// writes it once the folder is writable again.
TEST(SnmpStringsSheet, FailedSaveIsShownAndWrittenByTheNextOk)
{
    test::ScratchMount config(64 * 1024);
    ASSERT_TRUE(config.ready()) << config.failure().toStdString();
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    setVendor(u"talvo"_s);
    const QString prefsFile = config.filePath(u"com.talvo.installer.plugin.prefs"_s);
    ASSERT_TRUE(writeOverrideSettingsDict(kStrings));
    ASSERT_TRUE(config.setReadOnly(true));

    QWidget pane;
    PrinterDiscoveryEngine engine(kStrings);
    SnmpStringsSheet sheet(&engine, &pane);
    const auto alert = [] {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (window->objectName() == u"preferencesNotSavedAlert"_s && window->isVisible())
                return qobject_cast<QMessageBox*>(window);
        }
        return static_cast<QMessageBox*>(nullptr);
    };
    sheet.showSNMPStringsSheet();
    type(sheet.getTextField(), u"secret"_s);
    sheet.okButton()->click();
    QMessageBox* shown = alert();
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->text(), u"Cannot write %1: Read-only file system"_s.arg(prefsFile));
    EXPECT_EQ(shown->windowModality(), Qt::WindowModal);
    EXPECT_EQ(plist::readFile(prefsFile)->toMap(), kStrings);
    shown->accept();
    QApplication::processEvents();

    ASSERT_TRUE(config.setReadOnly(false));
    sheet.showSNMPStringsSheet();
    sheet.okButton()->click();
    EXPECT_FALSE(alert());
    EXPECT_EQ(plist::readFile(prefsFile)->toMap(),
              (QVariantMap{{snmpCommunityGetKey, u"secret"_s}, {snmpCommunitySetKey, u"private"_s}}));
    setVendor(QString());
    qunsetenv("XDG_CONFIG_HOME");
}

// OK is on only while both fields hold more than blanks, whichever field was
// edited last; an empty community can never be handed on.
TEST(SnmpStringsSheet, OkFollowsTheTrimmedTextOfBothFields)
{
    PrinterDiscoveryEngine engine(kStrings);
    SnmpStringsSheet sheet(&engine, nullptr);
    sheet.showSNMPStringsSheet();
    EXPECT_TRUE(sheet.okButton()->isEnabled());
    const struct
    {
        QLineEdit* field;
        QString text;
        bool okEnabled;
    } steps[] = {
        {sheet.getTextField(), u"  \t"_s, false},
        {sheet.setTextField(), u" x "_s, false}, // the read community is still blank
        {sheet.getTextField(), u"p"_s, true},
        {sheet.setTextField(), u""_s, false},
        {sheet.getTextField(), u"q"_s, false}, // the write community is still empty
    };
    for (const auto& s : steps) {
        type(s.field, s.text);
        EXPECT_EQ(sheet.okButton()->isEnabled(), s.okEnabled) << s.text.toStdString();
    }
    sheet.okButton()->click(); // disabled: nothing happens
    EXPECT_TRUE(sheet.isVisible());
    EXPECT_EQ(engine.writeCommunity(), u"private"_s);

    // Cancelled after edits: the next opening shows the engine's strings again.
    sheet.cancelButton()->click();
    sheet.showSNMPStringsSheet();
    EXPECT_EQ(sheet.getTextField()->text(), u"public"_s);
    EXPECT_EQ(sheet.setTextField()->text(), u"private"_s);
    EXPECT_TRUE(sheet.okButton()->isEnabled());
    sheet.cancelButton()->click();

    // Checked at opening too: an engine that holds a blank community.
    PrinterDiscoveryEngine blank({{snmpCommunityGetKey, u"public"_s}, {snmpCommunitySetKey, u" "_s}});
    SnmpStringsSheet blankSheet(&blank, nullptr);
    blankSheet.showSNMPStringsSheet();
    EXPECT_FALSE(blankSheet.okButton()->isEnabled());
}

} // namespace
} // namespace talvo
