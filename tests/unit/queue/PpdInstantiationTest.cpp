// Instantiation around the rewrite, with the printer's answers given: real
// gunzip, the PPD's own encoding kept, and the temporary files it leaves:
// one, removed with its owner, or none at all on failure.

#include "queue/PpdInstantiation.h"

#include "LogCapture.h"
#include "PpdTestSupport.h"

#include <gtest/gtest.h>

#include <map>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;
using Answers = std::map<QString, QString>;

// What a fully fitted Model 9300 MFP answers.
const Answers kFitted = {
    {u".1.3.6.1.4.1.58101.3.1.1.0"_s, u"2097152"_s}, {u".1.3.6.1.4.1.58101.3.1.2.0"_s, u"3"_s},
    {u".1.3.6.1.4.1.58101.3.1.3.0"_s, u"1"_s},       {u".1.3.6.1.4.1.58101.3.1.4.0"_s, u"1"_s},
    {u".1.3.6.1.4.1.58101.3.1.5.0"_s, u"present"_s}, {u".1.3.6.1.4.1.58101.3.1.6.0"_s, u"booklet"_s},
};

ppd::ValueForOid given(const Answers& answers, QStringList* asked = nullptr)
{
    return [answers, asked](const QString& oid) -> std::optional<QString> {
        if (asked)
            *asked << oid;
        const auto it = answers.find(oid);
        return it == answers.end() ? std::nullopt : std::optional<QString>(it->second);
    };
}

QByteArray contents(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The bytes with each group default line ("*DefaultX: old" before X's first
// choice line) naming another choice.
QByteArray withDefaults(QByteArray bytes,
                        const std::map<QByteArray, std::pair<QByteArray, QByteArray>>& changes)
{
    for (const auto& [option, change] : changes)
        bytes.replace("*Default" + option + ": " + change.first + "\n*" + option + ' ',
                      "*Default" + option + ": " + change.second + "\n*" + option + ' ');
    return bytes;
}

TEST(PpdInstantiation, SetsTheDefaultsAndChangesNothingElse)
{
    test::PrivateTempFolder temp;
    const test::ShippedPpd& shipped = test::shippedPpd(u"Model 9300 MFP"_s);
    QStringList asked;
    QString path;
    {
        const InstantiatedPPD ppd = instantiatePPD(shipped.path, given(kFitted, &asked));
        ASSERT_TRUE(ppd.ok()) << ppd.error.toStdString();
        path = ppd.path;
        EXPECT_EQ(QFileInfo(path).path(), temp.path());
        EXPECT_TRUE(QFileInfo(path).fileName().startsWith(u"ppd_instantiated_"_s));
        EXPECT_EQ(temp.files(), QStringList{QFileInfo(path).fileName()});
        EXPECT_EQ(QFile::permissions(path) & (QFile::ReadOther | QFile::WriteOther), QFile::Permissions());
        EXPECT_EQ(asked.size(), 6) << asked.join(u' ').toStdString();

        EXPECT_EQ(contents(path), withDefaults(shipped.bytes, {{"Memory", {"512MB", "2GB"}},
                                                               {"OptionalTrays", {"None", "Tray3_5"}},
                                                               {"OptionalDuplexer", {"False", "True"}},
                                                               {"HardDisk", {"False", "True"}},
                                                               {"EnvelopeFeeder", {"False", "True"}},
                                                               {"Finisher", {"None", "Booklet"}}}));
        const ProcessResult check = test::cupstestppd(path);
        EXPECT_TRUE(check.succeeded()) << check.standardOutput.toStdString();
    }
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_TRUE(temp.files().isEmpty()) << temp.files().join(u' ').toStdString();
}

TEST(PpdInstantiation, LatinOnePpdIsWrittenBackInLatinOne)
{
    test::PrivateTempFolder temp;
    const test::ShippedPpd& shipped = test::shippedPpd(u"Model 4000"_s);
    ASSERT_TRUE(shipped.bytes.contains('\xA9')); // the copyright sign, in Latin 1
    test::LogCapture log;
    const InstantiatedPPD ppd =
        instantiatePPD(shipped.path, given({{u".1.3.6.1.4.1.58101.3.1.1.0"_s, u"524288"_s}}));
    ASSERT_TRUE(ppd.ok()) << ppd.error.toStdString();
    EXPECT_EQ(contents(ppd.path), withDefaults(shipped.bytes, {{"Memory", {"256MB", "512MB"}}}));
    EXPECT_TRUE(log.lines().join(u'\n').contains(u"after stringWithContentsOfFile error "_s));
}

TEST(PpdInstantiation, PpdWithoutQueryLinesIsOnlyDecompressed)
{
    test::PrivateTempFolder temp;
    QTemporaryDir sources;
    const QByteArray plain("*PPD-Adobe: \"4.3\"\n*DefaultMemory: 256MB\n");
    QStringList asked;
    const InstantiatedPPD ppd =
        instantiatePPD(test::gzipped(sources, u"plain.ppd"_s, plain), given(kFitted, &asked));
    ASSERT_TRUE(ppd.ok()) << ppd.error.toStdString();
    EXPECT_TRUE(QFileInfo(ppd.path).fileName().startsWith(u"ppd_unzipped_"_s));
    EXPECT_EQ(contents(ppd.path), plain);
    EXPECT_TRUE(asked.isEmpty());
}

TEST(PpdInstantiation, FailuresAreErrorsAndLeaveNoFile)
{
    test::PrivateTempFolder temp;
    QTemporaryDir sources;
    QFile notGzip(sources.filePath(u"plain.ppd.gz"_s));
    ASSERT_TRUE(notGzip.open(QIODevice::WriteOnly));
    notGzip.write("*PPD-Adobe: \"4.3\"\n");
    notGzip.close();
    std::stop_source stopped;
    stopped.request_stop();
    const struct
    {
        QString ppd;
        std::stop_token stop;
        const char* error;
    } cases[] = {
        {sources.filePath(u"missing.ppd.gz"_s), {}, "Cannot decompress the PPD file"},
        {notGzip.fileName(), {}, "not in gzip format"},
        {test::gzipped(sources, u"bad.ppd"_s, "*?OIDMemory: \".1.2\"\n"),
         {},
         "cannot be instantiated: the file has "},
        {test::shippedPpd(u"Model 4000"_s).path, stopped.get_token(), "stopped"},
    };
    for (const auto& c : cases) {
        const InstantiatedPPD ppd = instantiatePPD(c.ppd, given(kFitted), c.stop);
        EXPECT_FALSE(ppd.ok()) << c.error;
        EXPECT_TRUE(ppd.error.contains(QLatin1StringView(c.error))) << ppd.error.toStdString();
        EXPECT_TRUE(temp.files().isEmpty()) << temp.files().join(u' ').toStdString();
    }
}

TEST(PpdInstantiation, FileGoesWithItsLastOwnerUnlessReleased)
{
    test::PrivateTempFolder temp;
    const QString ppdPath = test::shippedPpd(u"Model 4000"_s).path;
    InstantiatedPPD first = instantiatePPD(ppdPath, given({}));
    const QString firstPath = first.path;
    InstantiatedPPD second = std::move(first);
    EXPECT_TRUE(first.path.isEmpty());
    EXPECT_EQ(second.path, firstPath);
    second = instantiatePPD(ppdPath, given({})); // the first file goes now
    EXPECT_FALSE(QFile::exists(firstPath));
    const QString kept = second.release();
    second = InstantiatedPPD();
    EXPECT_TRUE(QFile::exists(kept));
    EXPECT_TRUE(QFile::remove(kept));
}

} // namespace
} // namespace talvo
