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

namespace talvo {
namespace {

const QString kResources = QStringLiteral(TALVO_BUILD_RESOURCE_DIR);

struct TextCase
{
    const char* key;
    int arguments; // %1 .. %N that QString::arg fills
};

void PrintTo(const TextCase& c, std::ostream* os)
{
    *os << '"' << c.key << '"';
}

class ResourcesTextTest : public testing::TestWithParam<TextCase>
{
protected:
    static void SetUpTestSuite()
    {
        ASSERT_TRUE(installTranslations(kResources));
        s_english = new QTranslator(QCoreApplication::instance());
        ASSERT_TRUE(
            s_english->load(QStringLiteral("talvo_en"), kResources + QStringLiteral("/translations")));
    }

    // The compiled texts themselves: a key whose English text is the key
    // ("Location") is told apart from a key without a text only here.
    static inline QTranslator* s_english = nullptr;
};

TEST_P(ResourcesTextTest, HasTextWithItsPlaceholders)
{
    const TextCase& c = GetParam();
    const QString english = s_english->translate(nullptr, c.key);
    ASSERT_FALSE(english.isEmpty()) << "no English text";
    EXPECT_EQ(localizedStringForKey(c.key), english);

    QSet<int> markers;
    static const QRegularExpression marker(QStringLiteral("%(\\d+)"));
    for (const QRegularExpressionMatch& m : marker.globalMatch(english))
        markers.insert(m.captured(1).toInt());
    QSet<int> expected;
    for (int n = 1; n <= c.arguments; ++n)
        expected.insert(n);
    EXPECT_EQ(markers, expected) << english.toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Keys, ResourcesTextTest,
    testing::Values(
        // Pane
        TextCase{"PaneTitle", 0}, TextCase{"Discovered Printers", 0}, TextCase{"Advanced Search", 0},
        TextCase{"Walkup Button Tooltip", 0}, TextCase{"Discover Button Tooltip", 0},
        TextCase{"Manual Button Tooltip", 0}, TextCase{"SNMP", 0}, TextCase{"IP Address or DNS Name", 0},
        TextCase{"Select Printer Model", 0}, TextCase{"Location", 0}, TextCase{"Contact", 0},
        TextCase{"Not Set", 0}, TextCase{"Save List", 0}, TextCase{"Load List", 0},
        TextCase{"Creating Print Queue", 0}, TextCase{"Queue Creation Failed", 0},
        // Queue creation
        TextCase{"Print Queue Created", 0}, TextCase{"CreatedPrintQueue", 3},
        TextCase{"LpAdminErrorMessage", 0}, TextCase{"LpAdminUnknownError", 0},
        TextCase{"PPDNotFoundErrorMessage", 0}, TextCase{"NoQueueAlertTitle", 0},
        TextCase{"NoQueueAlertText", 0}, TextCase{"Select Printer", 0}, TextCase{"Continue", 0},
        // Manual mode
        TextCase{"CheckingAddress", 1}, TextCase{"InvalidAddress", 0}, TextCase{"No Device", 1},
        TextCase{"No Printer", 1}, TextCase{"Unknown Printer", 1}, TextCase{"Unsupported Printer", 2},
        TextCase{"Select a printer model\u2026", 0},
        // Advanced search sheet
        TextCase{"Advanced Sheet Info Label", 0}, TextCase{"Gateway Info Label", 0},
        TextCase{"Gateway Label", 0}, TextCase{"IP Address Info Label", 0}, TextCase{"IP Address Label", 0},
        TextCase{"Subnet Label", 0}, TextCase{"Search Button Title", 0}, TextCase{"Cancel Button Title", 0},
        TextCase{"Advanced Sheet Title", 0},
        // SNMP community strings sheet
        TextCase{"SNMP Get Community Label", 0}, TextCase{"SNMP Set Community Label", 0}, TextCase{"OK", 0},
        TextCase{"SNMP Sheet Title", 0},
        // Wizard
        TextCase{"WizardTitle", 0}, TextCase{"WelcomeTitle", 0}, TextCase{"WelcomeText", 0},
        TextCase{"ClosingTitle", 0}, TextCase{"ClosingText", 0}, TextCase{"ClosingNoQueueText", 0},
        TextCase{"Queue Name", 0}, TextCase{"Printer Model", 0}, TextCase{"Device URI", 0},
        TextCase{"Print Test Page", 0}, TextCase{"TestPageSent", 1}, TextCase{"TestPageFailed", 1}));

// The address field starts with this label less its colon, so the label
// must have one to lose.
TEST_F(ResourcesTextTest, AddressLabelEndsWithColon)
{
    EXPECT_TRUE(localizedStringForKey("IP Address or DNS Name").endsWith(u':'));
}

// The picture of `file` in the images folder, drawn at the size the list and
// a 2x screen ask for; null when the file is missing or not a picture.
QPixmap drawImage(const QString& file)
{
    const QString path = kResources + QStringLiteral("/images/") + file;
    if (!QSvgRenderer(path).isValid())
        return {};
    return QIcon(path).pixmap(QSize(128, 128));
}

class ResourcesImageTest : public testing::TestWithParam<const char*>
{};

TEST_P(ResourcesImageTest, Draws)
{
    const QPixmap pixmap = drawImage(QString::fromUtf8(GetParam()));
    ASSERT_FALSE(pixmap.isNull());
    // Scaled to fit, keeping its shape: the wide mode buttons keep their width.
    EXPECT_EQ(std::max(pixmap.width(), pixmap.height()), 128);
}

INSTANTIATE_TEST_SUITE_P(Named, ResourcesImageTest,
                         testing::Values("Mode_Beacon_up.svg", "Mode_Beacon.svg", "Mode_Discovered_up.svg",
                                         "Mode_Discovered.svg", "Mode_IPDNSUNC_up.svg", "Mode_IPDNSUNC.svg",
                                         "UnknownPrinter.svg", "NoHost.svg", "NotPrinter.svg",
                                         "Generic Printer icon.svg", "Model_4000.svg", "Model_6500.svg",
                                         "Model_8560.svg", "Model_9300_MFP.svg",
                                         "talvo-add-print-queue.svg"));

// A model whose icon is missing falls back to the generic icon without a word,
// so a settings entry naming the wrong file would go unnoticed in the pane.
TEST(ResourcesSettingsTest, EveryModelIconDraws)
{
    const auto settings =
        getSettingsDict(QStringLiteral(TALVO_SOURCE_DIR) + QStringLiteral("/resources/PluginSettings.plist"));
    ASSERT_TRUE(settings.has_value());
    const QVariantMap models = settings->value(kSupportedPrintersKey).toMap();
    ASSERT_FALSE(models.isEmpty());
    for (auto it = models.cbegin(); it != models.cend(); ++it) {
        const QString icon = it.value().toMap().value(kPrinterIconImgKey).toString();
        EXPECT_FALSE(drawImage(icon).isNull()) << it.key().toStdString() << ": " << icon.toStdString();
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
