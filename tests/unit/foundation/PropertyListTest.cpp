#include "foundation/PropertyList.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QFile>
#include <QPoint>
#include <QTemporaryDir>
#include <QTimeZone>

#include <plist/plist.h>

#include <cstdlib>

namespace talvo {
namespace {

QVariantMap everyKind()
{
    return {
        {QStringLiteral("string"), QStringLiteral("Gr\u00fc\u00dfe <&> \"quoted\"")},
        {QStringLiteral("true"), true},
        {QStringLiteral("false"), false},
        {QStringLiteral("integer"), qlonglong{4000}},
        {QStringLiteral("negative"), qlonglong{-5}},
        {QStringLiteral("large"), qulonglong{18446744073709551615ULL}},
        {QStringLiteral("real"), 2.5},
        {QStringLiteral("data"), QByteArray("\x00\x01\xff", 3)},
        {QStringLiteral("date"), QDateTime(QDate(2026, 11, 23), QTime(8, 30, 5), QTimeZone::utc())},
        {QStringLiteral("array"), QVariantList{QStringLiteral("a"), QVariantList{}, QVariantMap{}}},
        {QStringLiteral("dict"), QVariantMap{{QStringLiteral("nested"), QStringLiteral("yes")}}},
    };
}

TEST(PropertyList, XmlRoundTripKeepsEveryKindOfValue)
{
    const auto xml = plist::toXml(everyKind());
    ASSERT_TRUE(xml);
    const auto back = plist::parse(*xml);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->toMap(), everyKind());
}

TEST(PropertyList, ReadsBinaryPropertyLists)
{
    plist_t dict = plist_new_dict();
    plist_dict_set_item(dict, "UseBonjour", plist_new_bool(0));
    plist_dict_set_item(dict, "snmpGetCommunity", plist_new_string("secret"));
    char* bin = nullptr;
    uint32_t length = 0;
    plist_to_bin(dict, &bin, &length);
    plist_free(dict);
    const QByteArray bytes(bin, static_cast<qsizetype>(length));
    std::free(bin);

    ASSERT_TRUE(bytes.startsWith("bplist00"));
    const auto parsed = plist::parse(bytes);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->toMap(), (QVariantMap{{QStringLiteral("UseBonjour"), false},
                                            {QStringLiteral("snmpGetCommunity"), QStringLiteral("secret")}}));
}

TEST(PropertyList, RejectsWhatIsNotAPropertyList)
{
    const QByteArray inputs[] = {
        QByteArray(),
        QByteArray("not a plist"),
        QByteArray("<?xml version=\"1.0\"?><plist><dict><key>a</key>"), // cut short
        QByteArray("bplist00\x01\x02"),
    };
    for (const QByteArray& input : inputs)
        EXPECT_FALSE(plist::parse(input)) << input.toStdString();

    EXPECT_FALSE(plist::toXml(QVariant()));
    EXPECT_FALSE(plist::toXml(QVariantMap{{QStringLiteral("point"), QVariant::fromValue(QPoint(1, 2))}}));
}

// A NUL byte inside a string of a damaged file once aborted the whole program
// from inside libplist.
TEST(PropertyList, NulByteInsideAStringIsReadNotFatal)
{
    const QByteArray xml("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>k</key>"
                         "<string>ab\0cd</string></dict></plist>",
                         97);
    const auto parsed = plist::parse(xml);
    ASSERT_TRUE(parsed);
    EXPECT_TRUE(parsed->toMap().value(QStringLiteral("k")).toString().startsWith(QStringLiteral("ab")));
}

TEST(PropertyList, NestingIsBoundedBothWays)
{
    QVariant deep = QStringLiteral("leaf");
    for (int i = 0; i <= plist::kMaxDepth + 1; ++i)
        deep = QVariantList{deep};
    EXPECT_FALSE(plist::toXml(deep));

    QByteArray xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int i = 0; i <= plist::kMaxDepth + 1; ++i)
        xml += "<array>";
    for (int i = 0; i <= plist::kMaxDepth + 1; ++i)
        xml += "</array>";
    xml += "</plist>";
    EXPECT_FALSE(plist::parse(xml));
}

TEST(PropertyList, FailedWriteLeavesTheOldFileWhole)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("sub/folder/list.plist"));
    ASSERT_TRUE(plist::writeXmlFile(path, everyKind()).isOk()); // creates the folders

    const Status refused = plist::writeXmlFile(path, QVariantMap{{QStringLiteral("bad"), QVariant()}});
    EXPECT_FALSE(refused.isOk());
    EXPECT_FALSE(refused.message().isEmpty());
    EXPECT_EQ(plist::readFile(path)->toMap(), everyKind());
}

} // namespace
} // namespace talvo
