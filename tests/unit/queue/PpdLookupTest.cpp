// Where a model's PPD is found: the settings' file name in the PPD folder,
// then in the folders of the user's languages.

#include "queue/PpdLookup.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"

#include "LogCapture.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

const QVariantMap kSupported = {
    {u"Model 4000"_s, QVariantMap{{QString(kPPDFileNameKey), u"Talvo_Model_4000.ppd.gz"_s}}},
    {u"Model 6500"_s, QVariantMap{{QString(kSysObjIDKey), u".1.3.6.1.4.1.58101.1.6500"_s}}},
};

struct LookupCase
{
    const char* name;
    QStringList files; // made in the PPD folder
    QStringList languages;
    const char* found; // relative to the folder; nullptr: none
};

void PrintTo(const LookupCase& c, std::ostream* os)
{
    *os << c.name;
}

class PpdLookupTest : public testing::TestWithParam<LookupCase>
{};

TEST_P(PpdLookupTest, FindsTheFileItselfThenPerLanguage)
{
    const LookupCase& c = GetParam();
    QTemporaryDir folder;
    for (const QString& file : c.files) {
        QDir().mkpath(QFileInfo(folder.filePath(file)).path());
        QFile f(folder.filePath(file));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    }
    const auto path = getPPDPathForModel(u"Model 4000"_s, kSupported, folder.path(), c.languages);
    if (!c.found) {
        EXPECT_FALSE(path) << path->toStdString();
        return;
    }
    ASSERT_TRUE(path);
    EXPECT_EQ(*path, folder.filePath(QLatin1StringView(c.found)));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PpdLookupTest,
    testing::Values(LookupCase{"FileItselfFirst",
                               {u"Talvo_Model_4000.ppd.gz"_s, u"de/Talvo_Model_4000.ppd.gz"_s},
                               {u"de"_s},
                               "Talvo_Model_4000.ppd.gz"},
                    LookupCase{"LanguagesInPreferenceOrder",
                               {u"de/Talvo_Model_4000.ppd.gz"_s, u"fr_CA/Talvo_Model_4000.ppd.gz"_s},
                               {u"fr-CA"_s, u"de"_s},
                               "fr_CA/Talvo_Model_4000.ppd.gz"},
                    LookupCase{"LaterLanguage",
                               {u"de/Talvo_Model_4000.ppd.gz"_s},
                               {u"en-US"_s, u"en"_s, u"de"_s},
                               "de/Talvo_Model_4000.ppd.gz"},
                    LookupCase{"OtherLanguageOnly", {u"it/Talvo_Model_4000.ppd.gz"_s}, {u"de"_s}, nullptr},
                    LookupCase{"NameIsExact", {u"Talvo_Model_4000.ppd"_s}, {}, nullptr},
                    LookupCase{"FolderOfThatNameIsNoFile", {u"Talvo_Model_4000.ppd.gz/x"_s}, {}, nullptr}),
    [](const testing::TestParamInfo<LookupCase>& param) { return std::string(param.param.name); });

TEST(PpdLookup, ModelWithoutPpdNameIsLogged)
{
    for (const QString& model : {u"Model 6500"_s, u"Model 1"_s}) {
        test::LogCapture log;
        EXPECT_FALSE(getPPDPathForModel(model, kSupported, QDir::tempPath(), {}));
        EXPECT_EQ(log.lines(),
                  QStringList{u"getPPDPathForModel: cannot find PPD name for printer model "_s + model});
    }
}

TEST(PpdLookup, FolderIsTheSettingsOrTheInstalledOne)
{
    // The installed layout, as the build tree has it.
    setPluginResourcesPath(QStringLiteral(TALVO_BUILD_RESOURCE_DIR));
    const QString installed = QDir::cleanPath(QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/../ppd/talvo"));
    EXPECT_EQ(defaultPPDFolder({{QString(kVendorKey), u"Talvo"_s}}), installed);
    EXPECT_TRUE(QFileInfo(installed).isDir()) << installed.toStdString();
    EXPECT_EQ(
        defaultPPDFolder({{QString(kVendorKey), u"Talvo"_s}, {QString(kPPDDirectoryKey), u"/opt/ppd"_s}}),
        u"/opt/ppd"_s);
    EXPECT_EQ(defaultPPDFolder({{QString(kPPDDirectoryKey), u"ppd"_s}}),
              QDir::cleanPath(QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/ppd")));
}

} // namespace
} // namespace talvo
