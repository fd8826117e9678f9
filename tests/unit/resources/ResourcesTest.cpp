// The resources folder of the build tree as the programs see it: every text
// key the code looks up has an English text with the placeholders its caller
// fills and a German one with the same placeholders, the user's language
// chooses the texts, Qt's own buttons and the walkup text, and every picture
// the code or the settings name is there and draws.
#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"
#include "pane/Localization.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QFile>
#include <QIcon>
#include <QLocale>
#include <QMessageBox>
#include <QPixmap>
#include <QRegularExpression>
#include <QSet>
#include <QSvgRenderer>
#include <QTextDocument>
#include <QTranslator>
#include <QWizard>

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
    "Preferences Not Saved", "WaitTitle", "WaitText", "AdvancedAddressInvalid", "Walkup Mode", "Discovered Mode",
    "Manual Mode", "Walkup Instructions", "Searching For Printers", "Checking The Address"};
// clang-format on
const std::map<std::string_view, int> kArguments{
    {"CreatedPrintQueue", 3}, {"CheckingAddress", 1},     {"No Device", 1},    {"No Printer", 1},
    {"Unknown Printer", 1},   {"Unsupported Printer", 2}, {"TestPageSent", 1}, {"TestPageFailed", 1},
};

// Texts German shares with English, each for its reason.
const std::map<std::string_view, const char*> kSameInGerman{
    {"SNMP", "the protocol's name on the button that opens its settings"},
    {"OK", "German buttons say OK as well"},
};

const QLocale kEnglish(QLocale::English, QLocale::UnitedStates);
const QLocale kGerman(QLocale::German, QLocale::Germany);

QSet<int> placeholders(const QString& text)
{
    static const QRegularExpression marker(QStringLiteral("%(\\d+)"));
    QSet<int> numbers;
    for (const QRegularExpressionMatch& m : marker.globalMatch(text))
        numbers.insert(m.captured(1).toInt());
    return numbers;
}

class ResourcesTextTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        // The compiled texts themselves: a key whose English text is the key
        // ("Location") is told apart from a key without a text only here.
        ASSERT_TRUE(m_english.load(QStringLiteral("talvo_en"), kResources + QStringLiteral("/translations")));
    }
    void TearDown() override { QLocale::setDefault(QLocale::system()); }

    QString english(const char* key) const { return m_english.translate(nullptr, key); }

    QTranslator m_english;
};

TEST_F(ResourcesTextTest, EveryKeyHasEnglishTextWithItsPlaceholders)
{
    QLocale::setDefault(kEnglish);
    ASSERT_TRUE(installTranslations(kResources));
    for (const char* key : kTexts) {
        SCOPED_TRACE(key);
        const QString text = english(key);
        ASSERT_FALSE(text.isEmpty()) << "no English text";
        EXPECT_EQ(localizedStringForKey(key), text);
        QSet<int> expected;
        for (int n = 1; n <= (kArguments.contains(key) ? kArguments.at(key) : 0); ++n)
            expected.insert(n);
        EXPECT_EQ(placeholders(text), expected) << text.toStdString();
    }
    // The address field starts with this label less its colon.
    EXPECT_TRUE(localizedStringForKey("IP Address or DNS Name").endsWith(u':'));
}

TEST_F(ResourcesTextTest, EveryKeyHasGermanTextWithTheEnglishPlaceholders)
{
    QLocale::setDefault(kGerman);
    ASSERT_TRUE(installTranslations(kResources));
    for (const char* key : kTexts) {
        SCOPED_TRACE(key);
        const QString text = localizedStringForKey(key);
        if (kSameInGerman.contains(key))
            EXPECT_EQ(text, english(key));
        else
            EXPECT_NE(text, english(key)) << "left in English";
        EXPECT_EQ(placeholders(text), placeholders(english(key))) << text.toStdString();
        EXPECT_EQ(text.count(u'\n'), english(key).count(u'\n')) << "line breaks";
    }
    EXPECT_TRUE(localizedStringForKey("IP Address or DNS Name").endsWith(u':'));
}

// Qt's own buttons follow the language of ours, and installing again (here
// English after German) replaces what was installed before rather than
// piling up under it.
TEST_F(ResourcesTextTest, QtButtonsFollowTheLanguage)
{
    struct Case
    {
        QLocale locale;
        QString wizardTitle, back, cancel;
    };
    const Case cases[] = {
        {kGerman, QStringLiteral("Talvo-Druckereinrichtung"), QStringLiteral("< &Zur\u00fcck"),
         QStringLiteral("Abbrechen")},
        {kEnglish, QStringLiteral("Talvo Printer Setup"), QStringLiteral("< &Back"),
         QStringLiteral("Cancel")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.locale.name().toStdString());
        QLocale::setDefault(c.locale);
        ASSERT_TRUE(installTranslations(kResources));
        EXPECT_EQ(localizedStringForKey("WizardTitle"), c.wizardTitle);
        QWizard wizard;
        wizard.setWizardStyle(QWizard::ClassicStyle);
        EXPECT_EQ(wizard.buttonText(QWizard::BackButton), c.back);
        QMessageBox box;
        box.setStandardButtons(QMessageBox::Cancel);
        EXPECT_EQ(box.button(QMessageBox::Cancel)->text(), c.cancel);
    }
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

// A language with a walkup text of its own gets it, by its language alone
// when there is none for its country; any other gets the English one.
TEST(ResourcesWalkupTest, EachLanguageGetsItsOwnTextElseEnglish)
{
    const std::pair<QLocale, QString> cases[] = {
        {QLocale(QLocale::German, QLocale::Germany), QStringLiteral("Walkup_de.html")},
        {QLocale(QLocale::German, QLocale::Switzerland), QStringLiteral("Walkup_de.html")},
        {QLocale(QLocale::English, QLocale::UnitedStates), QStringLiteral("Walkup.html")},
        {QLocale(QLocale::French, QLocale::France), QStringLiteral("Walkup.html")},
        {QLocale::c(), QStringLiteral("Walkup.html")},
    };
    for (const auto& [locale, file] : cases) {
        QLocale::setDefault(locale);
        EXPECT_EQ(localizedResourcePath(kResources, QStringLiteral("Walkup"), QStringLiteral("html")),
                  kResources + u'/' + file)
            << locale.name().toStdString();
    }
    QLocale::setDefault(QLocale::system());
}

TEST(ResourcesWalkupTest, IsRichText)
{
    for (const QString& name : {QStringLiteral("Walkup.html"), QStringLiteral("Walkup_de.html")}) {
        QFile file(kResources + u'/' + name);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
        EXPECT_TRUE(Qt::mightBeRichText(QString::fromUtf8(file.readAll()))) << name.toStdString();
    }
}

} // namespace
} // namespace talvo
