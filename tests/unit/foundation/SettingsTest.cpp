#include "foundation/Settings.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/PropertyList.h"

#include "LogCapture.h"
#include "ScratchMount.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <functional>
#include <future>
#include <memory>
#include <thread>

#include <sys/stat.h>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

QByteArray readBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// f's result, or nullopt when it has not returned within a few seconds: a
// read that blocks fails the test instead of hanging it (the thread left
// blocked ends with the process).
template <class F> auto withinSeconds(F f) -> std::optional<decltype(f())>
{
    auto task = std::make_shared<std::packaged_task<decltype(f())()>>(std::move(f));
    auto result = task->get_future();
    std::thread([task] { (*task)(); }).detach();
    if (result.wait_for(std::chrono::seconds(5)) != std::future_status::ready)
        return std::nullopt;
    return result.get();
}

// Each test gets its own config folder (XDG_CONFIG_HOME) and settings file.
class SettingsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        m_savedConfigHome = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", m_dir.filePath(QStringLiteral("config")).toUtf8());
        setVendor(QString());
        m_settingsFile = m_dir.filePath(QStringLiteral("PluginSettings.plist"));
        ASSERT_TRUE(plist::writeXmlFile(m_settingsFile, shipped()).isOk());
    }
    void TearDown() override
    {
        qputenv("XDG_CONFIG_HOME", m_savedConfigHome);
        setVendor(QString());
    }

    static QVariantMap shippedDiscovery()
    {
        return {{useBonjourKey, true},
                {useSorlenDiscoveryKey, true},
                {snmpCommunityGetKey, QStringLiteral("public")},
                {snmpCommunitySetKey, QStringLiteral("private")}};
    }
    static QVariantMap shipped()
    {
        return {{kVendorKey, QStringLiteral("Talvo")},
                {kDiscoverySettingsKey, shippedDiscovery()},
                {kSupportedPrintersKey, QVariantMap{{QStringLiteral("Model 4000"), QVariantMap{}}}}};
    }
    QString prefsPath() const
    {
        return m_dir.filePath(QStringLiteral("config/com.talvo.installer.plugin.prefs"));
    }
    void writePrefs(const QVariant& prefs) { ASSERT_TRUE(plist::writeXmlFile(prefsPath(), prefs).isOk()); }

    QTemporaryDir m_dir;
    QByteArray m_savedConfigHome;
    QString m_settingsFile;
};

TEST_F(SettingsTest, UserPreferencesOverrideDiscoverySettingsKeyByKey)
{
    writePrefs(QVariantMap{{useBonjourKey, false}, {QStringLiteral("extra"), QStringLiteral("x")}});
    const auto settings = getSettingsDict(m_settingsFile);
    ASSERT_TRUE(settings);
    QVariantMap expected = shippedDiscovery();
    expected.insert(useBonjourKey, false);
    // Keys outside the discovery settings land inside them, never at the top.
    expected.insert(QStringLiteral("extra"), QStringLiteral("x"));
    EXPECT_EQ(settings->value(kDiscoverySettingsKey).toMap(), expected);
    EXPECT_FALSE(settings->contains(QStringLiteral("extra")));
    EXPECT_EQ(settings->value(kSupportedPrintersKey), shipped().value(kSupportedPrintersKey));
}

// An empty or blank community in the user's file is dropped with one log
// line each; the other entries of the file still count.
TEST_F(SettingsTest, BlankCommunityInPreferencesKeepsTheShippedOne)
{
    const struct
    {
        const char* what;
        QVariant get, set; // invalid: not in the file
        QString getAfter, setAfter;
        int logLines;
    } cases[] = {
        {"both empty", QString(), QString(), u"public"_s, u"private"_s, 2},
        {"blank get", u" \t\n"_s, u"s3t"_s, u"public"_s, u"s3t"_s, 1},
        {"blank set", u"g3t"_s, u"  "_s, u"g3t"_s, u"private"_s, 1},
        {"a list is no community", QVariantList{}, {}, u"public"_s, u"private"_s, 1},
        {"usable, with blanks around", u" g "_s, u"s"_s, u" g "_s, u"s"_s, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        QVariantMap prefs{{useBonjourKey, false}};
        if (c.get.isValid())
            prefs.insert(snmpCommunityGetKey, c.get);
        if (c.set.isValid())
            prefs.insert(snmpCommunitySetKey, c.set);
        writePrefs(prefs);
        test::LogCapture log;
        const auto settings = getSettingsDict(m_settingsFile);
        ASSERT_TRUE(settings);
        const QVariantMap discovery = settings->value(kDiscoverySettingsKey).toMap();
        EXPECT_EQ(discovery.value(snmpCommunityGetKey), c.getAfter);
        EXPECT_EQ(discovery.value(snmpCommunitySetKey), c.setAfter);
        EXPECT_EQ(discovery.value(useBonjourKey), false);
        EXPECT_EQ(log.lines().filter(u"the shipped value is used"_s).size(), c.logLines)
            << log.lines().join(u'\n').toStdString();
    }
}

TEST_F(SettingsTest, UnusableUserFileLeavesSettingsUnmerged)
{
    const QByteArray userFiles[] = {
        *plist::toXml(QVariantList{QStringLiteral("not a dictionary")}),
        QByteArray("<plist><dict><key>UseBonjour</key><false/>"),
        QByteArray(),
    };
    for (const QByteArray& bytes : userFiles) {
        writeBytes(prefsPath(), bytes);
        const auto settings = getSettingsDict(m_settingsFile);
        ASSERT_TRUE(settings);
        EXPECT_EQ(*settings, shipped()) << bytes.toStdString();
    }
}

TEST_F(SettingsTest, MissingOrMalformedSettingsFileGivesNothing)
{
    EXPECT_FALSE(getSettingsDict(m_dir.filePath(QStringLiteral("absent.plist"))));
    writeBytes(m_settingsFile, "<?xml version=\"1.0\"?><plist><array></array></plist>");
    EXPECT_FALSE(getSettingsDict(m_settingsFile));
}

TEST_F(SettingsTest, SavedPreferencesAreReadBackOnTheNextStart)
{
    // The vendor word is set only after the first load, as the pane does; the
    // load must still read the file that the save below writes.
    ASSERT_TRUE(getSettingsDict(m_settingsFile));
    setVendor(QStringLiteral("Talvo"));
    ASSERT_TRUE(writeOverrideSettingsDict({{snmpCommunityGetKey, QStringLiteral("s3cret")}}));
    EXPECT_TRUE(QFile::exists(prefsPath()));

    setVendor(QString()); // a new process
    const auto settings = getSettingsDict(m_settingsFile);
    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->value(kDiscoverySettingsKey).toMap().value(snmpCommunityGetKey),
              QStringLiteral("s3cret"));
}

TEST_F(SettingsTest, OverrideWriteKeepsOtherEntriesAndGivenEntriesWin)
{
    setVendor(QStringLiteral("Talvo"));
    writePrefs(
        QVariantMap{{snmpCommunityGetKey, QStringLiteral("b")}, {snmpCommunitySetKey, QStringLiteral("c")}});
    ASSERT_TRUE(writeOverrideSettingsDict({{snmpCommunityGetKey, QStringLiteral("a")}}));
    EXPECT_EQ(plist::readFile(prefsPath())->toMap(),
              (QVariantMap{{snmpCommunityGetKey, QStringLiteral("a")},
                           {snmpCommunitySetKey, QStringLiteral("c")}}));
}

TEST_F(SettingsTest, MalformedPreferencesAreKeptAsideNotOverwritten)
{
    setVendor(QStringLiteral("Talvo"));
    const QByteArray damaged = "<?xml version=\"1.0\"?><plist><dict><key>snmpSetCommunity</key><string>c";
    writeBytes(prefsPath(), damaged);

    ASSERT_TRUE(writeOverrideSettingsDict({{snmpCommunityGetKey, QStringLiteral("a")}}));
    EXPECT_EQ(plist::readFile(prefsPath())->toMap(),
              (QVariantMap{{snmpCommunityGetKey, QStringLiteral("a")}}));
    const QStringList kept = QDir(m_dir.filePath(QStringLiteral("config")))
                                 .entryList({QStringLiteral("com.talvo.installer.plugin.prefs.invalid-*")});
    ASSERT_EQ(kept.size(), 1);
    EXPECT_EQ(readBytes(m_dir.filePath(QStringLiteral("config/")) + kept.first()), damaged);
}

// A pipe, a link to /dev/zero, a file too large or nested too deep in place of
// the preferences: the shipped settings are used, the log says why, nothing
// blocks or crashes; saving leaves a pipe or device alone and keeps a
// damaged file aside.
TEST_F(SettingsTest, DamagedPreferenceFileLeavesTheShippedSettings)
{
    const QString prefs = prefsPath();
    ASSERT_TRUE(QDir().mkpath(QFileInfo(prefs).absolutePath()));
    const struct
    {
        const char* what;
        std::function<void()> make;
        const char* reason; // in the log
        bool saved;         // kept aside and replaced; else refused and left alone
    } cases[] = {
        {"a pipe", [&] { ASSERT_EQ(::mkfifo(QFile::encodeName(prefs).constData(), 0600), 0); },
         "it is not a regular file", false},
        {"a link to /dev/zero", [&] { ASSERT_TRUE(QFile::link(QStringLiteral("/dev/zero"), prefs)); },
         "it is not a regular file", false},
        {"200,000 nested arrays",
         [&] {
             writeBytes(prefs, "<?xml version=\"1.0\"?><plist version=\"1.0\">" +
                                   QByteArray("<array>").repeated(200'000) +
                                   QByteArray("</array>").repeated(200'000) + "</plist>");
         },
         "it nests arrays or dictionaries deeper than 128 levels", true},
        {"too large", [&] { writeBytes(prefs, QByteArray(plist::kMaxFileBytes + 1, ' ')); },
         "it is larger than 4194304 bytes", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        QDir(QFileInfo(prefs).absolutePath()).removeRecursively();
        ASSERT_TRUE(QDir().mkpath(QFileInfo(prefs).absolutePath()));
        c.make();
        struct stat before = {};
        ASSERT_EQ(::lstat(QFile::encodeName(prefs).constData(), &before), 0);

        setVendor(QString());
        test::LogCapture log;
        const auto settings = withinSeconds([this] { return getSettingsDict(m_settingsFile); });
        ASSERT_TRUE(settings) << "the settings read did not return";
        EXPECT_EQ(*settings, shipped());
        EXPECT_TRUE(log.lines().join(u'\n').contains(
            QStringLiteral("Cannot read %1: %2").arg(prefs, QLatin1StringView(c.reason))))
            << log.lines().join(u'\n').toStdString();

        setVendor(QStringLiteral("Talvo"));
        const auto written = withinSeconds([] {
            return writeOverrideSettingsDict({{snmpCommunityGetKey, QStringLiteral("a")}});
        });
        ASSERT_TRUE(written) << "the preferences write did not return";
        EXPECT_EQ(written->isOk(), c.saved) << written->message().toStdString();
        struct stat after = {};
        ASSERT_EQ(::lstat(QFile::encodeName(prefs).constData(), &after), 0);
        if (c.saved) {
            EXPECT_EQ(plist::readFile(prefs)->toMap(),
                      (QVariantMap{{snmpCommunityGetKey, QStringLiteral("a")}}));
            EXPECT_EQ(QDir(QFileInfo(prefs).absolutePath()).entryList(QDir::Files).size(), 2);
        } else {
            EXPECT_TRUE(written->message().contains(prefs) &&
                        written->message().contains(u"not a regular file"))
                << written->message().toStdString();
            EXPECT_EQ(after.st_mode, before.st_mode);
            EXPECT_EQ(after.st_ino, before.st_ino);
        }
    }
}

// On a full disk the write fails naming the file and the reason, and the
// preferences file keeps what it held.
TEST_F(SettingsTest, FailedPreferenceWriteKeepsTheOldFile)
{
    test::ScratchMount scratch(64 * 1024);
    ASSERT_TRUE(scratch.ready()) << scratch.failure().toStdString();
    qputenv("XDG_CONFIG_HOME", scratch.path().toUtf8());
    setVendor(QStringLiteral("Talvo"));
    const QString prefs = scratch.filePath(QStringLiteral("com.talvo.installer.plugin.prefs"));
    ASSERT_TRUE(writeOverrideSettingsDict({{snmpCommunityGetKey, QStringLiteral("old")}}));
    const QByteArray old = readBytes(prefs);
    ASSERT_TRUE(scratch.fill());

    const Status written = writeOverrideSettingsDict({{snmpCommunityGetKey, QStringLiteral("new")}});
    EXPECT_EQ(written.message(), QStringLiteral("Cannot write %1: No space left on device").arg(prefs));
    EXPECT_EQ(readBytes(prefs), old);
    EXPECT_EQ(QDir(scratch.path()).entryList(QDir::Files | QDir::Hidden).size(), 2); // and the filler
}

TEST_F(SettingsTest, WithoutVendorWordThereIsNoPreferenceFile)
{
    EXPECT_FALSE(filePathForUserPrefs());
    EXPECT_FALSE(writeOverrideSettingsDict({{snmpCommunityGetKey, QStringLiteral("a")}}));
    EXPECT_FALSE(QDir(m_dir.filePath(QStringLiteral("config"))).exists());

    setVendor(QStringLiteral("Talvo"));
    EXPECT_EQ(filePathForUserPrefs(), prefsPath());
}

TEST_F(SettingsTest, VersionTextShowsMissingValuesAsNull)
{
    const QString info = m_dir.filePath(QLatin1StringView(kVersionFileName));
    EXPECT_FALSE(getVersionInfoString(m_dir.path()));
    ASSERT_TRUE(
        plist::writeXmlFile(info, QVariantMap{{kBundleShortVersionKey, QStringLiteral("1.0")}}).isOk());
    EXPECT_EQ(getVersionInfoString(m_dir.path()), QStringLiteral("1.0 ((null))"));
    EXPECT_EQ(getVersionInfoString(QStringLiteral(TALVO_BUILD_RESOURCE_DIR)), QStringLiteral("1.0.0 (66)"));
}

TEST(VendorWord, LowerCaseAndCapitalisedForms)
{
    const struct
    {
        const char* word;
        const char* lower;
        const char* caps;
    } cases[] = {
        {"Talvo", "talvo", "Talvo"},
        {"TALVO", "talvo", "Talvo"},
        {"tALVO systems", "talvo systems", "Talvo Systems"},
        {"", "", ""},
    };
    for (const auto& c : cases) {
        setVendor(QString::fromUtf8(c.word));
        EXPECT_EQ(vendor(), QString::fromUtf8(c.lower));
        EXPECT_EQ(vendorWithCaps(), QString::fromUtf8(c.caps));
    }
    setVendor(QString());
}

// The product file shipped with the driver: every model to discover must be
// fully described, or the pane would list a printer it cannot set up.
TEST(ShippedSettings, EveryDiscoveredModelIsFullyDescribed)
{
    const auto settings = plist::readFile(QStringLiteral(TALVO_SOURCE_DIR "/resources/PluginSettings.plist"));
    ASSERT_TRUE(settings);
    const QVariantMap map = settings->toMap();
    EXPECT_EQ(map.value(kVendorKey), QStringLiteral("Talvo"));
    const QVariantMap discovery = map.value(kDiscoverySettingsKey).toMap();
    for (const Key k : {useBonjourKey, useSorlenDiscoveryKey, useSorlenWalkupKey, useUSBDiscoveryKey})
        EXPECT_EQ(discovery.value(k), true) << k.data();
    EXPECT_EQ(discovery.value(snmpCommunityGetKey), QStringLiteral("public"));
    EXPECT_EQ(discovery.value(snmpCommunitySetKey), QStringLiteral("private"));

    const QVariantMap supported = map.value(kSupportedPrintersKey).toMap();
    const QStringList models = discovery.value(discoverPrinterTypesKey).toStringList();
    EXPECT_GE(models.size(), 4);
    QStringList allOids;
    for (const QString& model : models) {
        SCOPED_TRACE(model.toStdString());
        ASSERT_TRUE(supported.contains(model));
        const QVariantMap record = supported.value(model).toMap();
        EXPECT_TRUE(record.value(kPPDFileNameKey).toString().endsWith(QStringLiteral(".ppd.gz")));
        EXPECT_FALSE(record.value(kPrinterIconImgKey).toString().isEmpty());
        const QVariant oids = record.value(kSysObjIDKey);
        const QStringList list =
            oids.typeId() == QMetaType::QString ? QStringList{oids.toString()} : oids.toStringList();
        ASSERT_FALSE(list.isEmpty());
        for (const QString& oid : list)
            EXPECT_TRUE(oid.startsWith(QStringLiteral(".1.3.6.1.4.1.58101."))) << oid.toStdString();
        allOids += list;
    }
    // One sysObjectID names one model.
    EXPECT_EQ(allOids.size(), QSet<QString>(allOids.begin(), allOids.end()).size());
}

} // namespace
} // namespace talvo
