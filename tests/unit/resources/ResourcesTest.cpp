// The resources folder of the build tree as the programs see it: every text
// key the code looks up has an English text with the placeholders its caller
// fills, and every picture the code or the settings name is there and draws.
#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"
#include "pane/Localization.h"

#include <QCoreApplication>
#include <QFile>
#include <QIcon>
#include <QPixmap>
#include <QRegularExpression>
#include <QSet>
#include <QSvgRenderer>
#include <QTextDocument>
#include <QTranslator>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string_view>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

const QString kResources = QStringLiteral(TALVO_BUILD_RESOURCE_DIR);

// Every key the code looks up, and the %1 .. %N that QString::arg fills in
// the few texts that have any.
// clang-format off
const char* const kTexts[] = {
    "PaneTitle", "Discovered Printers", "Advanced Search", "Walkup Button Tooltip",
    "Discover Button Tooltip", "Manual Button Tooltip", "SNMP", "IP Address or DNS Name",
    "Select Printer Model", "Location", "Contact", "Not Set", "Save List", "Load List",
    "Creating Print Queue", "Queue Creation Failed", "Print Queue Created", "CreatedPrintQueue",
    "LpAdminErrorMessage", "LpAdminUnknownError", "PPDNotFoundErrorMessage", "NoQueueAlertTitle",
    "NoQueueAlertText", "Select Printer", "Continue", "CheckingAddress", "InvalidAddress", "No Device",
    "No Printer", "Unknown Printer", "Unsupported Printer", "Select a printer model\u2026",
    "Advanced Sheet Info Label", "Gateway Info Label", "Gateway Label", "IP Address Info Label",
    "IP Address Label", "Subnet Label", "Search Button Title", "Cancel Button Title", "Advanced Sheet Title",
    "SNMP Get Community Label", "SNMP Set Community Label", "OK", "SNMP Sheet Title", "WizardTitle",
    "WelcomeTitle", "WelcomeText", "ClosingTitle", "ClosingText", "ClosingNoQueueText", "Queue Name",
    "Printer Model", "Device URI", "Print Test Page", "TestPageSent", "TestPageFailed", "Save List Failed",
    "Preferences Not Saved", "WaitTitle", "WaitText", "AdvancedAddressInvalid"};
// clang-format on
const std::map<std::string_view, int> kArguments{
    {"CreatedPrintQueue", 3}, {"CheckingAddress", 1},     {"No Device", 1},    {"No Printer", 1},
    {"Unknown Printer", 1},   {"Unsupported Printer", 2}, {"TestPageSent", 1}, {"TestPageFailed", 1},
};

TEST(ResourcesTextTest, EveryKeyHasEnglishTextWithItsPlaceholders)
{
    ASSERT_TRUE(installTranslations(kResources));
    // The compiled texts themselves: a key whose English text is the key
    // ("Location") is told apart from a key without a text only here.
    QTranslator english;
    ASSERT_TRUE(english.load(QStringLiteral("talvo_en"), kResources + QStringLiteral("/translations")));
    static const QRegularExpression marker(QStringLiteral("%(\\d+)"));
    for (const char* key : kTexts) {
        SCOPED_TRACE(key);
        const QString text = english.translate(nullptr, key);
        ASSERT_FALSE(text.isEmpty()) << "no English text";
        EXPECT_EQ(localizedStringForKey(key), text);
        QSet<int> markers, expected;
        for (const QRegularExpressionMatch& m : marker.globalMatch(text))
            markers.insert(m.captured(1).toInt());
        for (int n = 1; n <= (kArguments.contains(key) ? kArguments.at(key) : 0); ++n)
            expected.insert(n);
        EXPECT_EQ(markers, expected) << text.toStdString();
    }
    // The address field starts with this label less its colon.
    EXPECT_TRUE(localizedStringForKey("IP Address or DNS Name").endsWith(u':'));
}

// Every picture the code names, and every model icon the settings name (a
// missing one falls back to the generic icon without a word), drawn at the
// size the list and a 2x screen ask for.
TEST(ResourcesImageTest, EveryImageDraws)
{
    QStringList files{u"Mode_Beacon_up.svg"_s,       u"Mode_Beacon.svg"_s,
                      u"Mode_Discovered_up.svg"_s,   u"Mode_Discovered.svg"_s,
                      u"Mode_IPDNSUNC_up.svg"_s,     u"Mode_IPDNSUNC.svg"_s,
                      u"UnknownPrinter.svg"_s,       u"NoHost.svg"_s,
                      u"NotPrinter.svg"_s,           u"Generic Printer icon.svg"_s,
                      u"talvo-add-print-queue.svg"_s};
    const auto settings =
        getSettingsDict(QStringLiteral(TALVO_SOURCE_DIR) + QStringLiteral("/resources/PluginSettings.plist"));
    ASSERT_TRUE(settings.has_value());
    const QVariantMap models = settings->value(kSupportedPrintersKey).toMap();
    ASSERT_FALSE(models.isEmpty());
    for (const QVariant& model : models)
        files << model.toMap().value(kPrinterIconImgKey).toString();
    for (const QString& file : files) {
        const QString path = kResources + QStringLiteral("/images/") + file;
        EXPECT_TRUE(QSvgRenderer(path).isValid()) << file.toStdString();
        // Scaled to fit, keeping its shape: the wide mode buttons keep their width.
        const QPixmap pixmap = QIcon(path).pixmap(QSize(128, 128));
        EXPECT_EQ(std::max(pixmap.width(), pixmap.height()), 128) << file.toStdString();
    }
}

TEST(ResourcesWalkupTest, IsRichText)
{
    QFile file(kResources + QStringLiteral("/Walkup.html"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QString html = QString::fromUtf8(file.readAll());
    EXPECT_TRUE(Qt::mightBeRichText(html));
}

} // namespace
} // namespace talvo
