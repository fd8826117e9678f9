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

QByteArray xmlPlist(const QByteArray& body)
{
    return "<?xml version=\"1.0\"?><plist version=\"1.0\">" + body + "</plist>";
}

QByteArray nestedXml(int depth, const QByteArray& open = "<array>", const QByteArray& close = "</array>")
{
    return xmlPlist(open.repeated(depth) + close.repeated(depth));
}

QByteArray be32(quint64 v)
{
    const char bytes[] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                          static_cast<char>(v)};
    return QByteArray(bytes, 4);
}

// A binary property list of the given objects, the first one on top; each
// object names others by 4-byte reference.
QByteArray binaryPlist(const QList<QByteArray>& objects)
{
    QByteArray bytes = "bplist00";
    QByteArray table;
    for (const QByteArray& object : objects) {
        table += be32(static_cast<quint64>(bytes.size()));
        bytes += object;
    }
    const auto tableOffset = static_cast<quint64>(bytes.size());
    bytes += table;
    bytes += QByteArray(6, '\0') + '\x04' + '\x04';
    bytes += QByteArray(4, '\0') + be32(static_cast<quint64>(objects.size())); // objects
    bytes += QByteArray(8, '\0');                                              // top: object 0
    bytes += QByteArray(4, '\0') + be32(tableOffset);
    return bytes;
}

// Object i an array of `width` references to object i + 1, the last an empty
// array; `width` 2 makes a chain whose values double at every level.
QByteArray chainedArrays(int count, int width = 1)
{
    QList<QByteArray> objects;
    for (int i = 0; i + 1 < count; ++i) {
        QByteArray object(1, static_cast<char>(0xa0 | width));
        for (int w = 0; w < width; ++w)
            object += be32(static_cast<quint64>(i + 1));
        objects.append(object);
    }
    objects.append(QByteArray(1, '\xa0'));
    return binaryPlist(objects);
}

// A binary dictionary key holding a NUL made libplist's key getter assert
// and abort the program (found by fuzzing the preference reader).
TEST(PropertyList, NulInsideABinaryKeyIsNotFatal)
{
    const QByteArray dictionary = QByteArray(1, '\xd1') + be32(1) + be32(2);
    const QByteArray value = QByteArray("\x51v", 2);
    const QByteArray keys[] = {
        QByteArray("\x53"
                   "a\0b",
                   4),                // ASCII, NUL inside
        QByteArray("\x62\0a\0\0", 5), // UTF-16, U+0000 at the end
    };
    for (const QByteArray& key : keys) {
        const auto parsed = plist::parse(binaryPlist({dictionary, key, value}));
        if (parsed) {
            EXPECT_EQ(parsed->toMap().size(), 1);
        }
    }
}

// libplist builds, copies and frees its trees recursively: 200,000 nested
// arrays crash it, so nesting is measured in the bytes before it sees them,
// the way its XML and binary readers would find it.
TEST(PropertyList, NestingIsMeasuredBeforeParsing)
{
    QVariant deep = QStringLiteral("leaf");
    for (int i = 0; i <= plist::kMaxDepth + 1; ++i)
        deep = QVariantList{deep};
    EXPECT_FALSE(plist::toXml(deep));

    const struct
    {
        const char* what;
        QByteArray bytes;
        bool parsed;
    } cases[] = {
        {"XML at the limit", nestedXml(plist::kMaxDepth), true},
        {"XML one deeper", nestedXml(plist::kMaxDepth + 1), false},
        {"XML 200,000 deep", nestedXml(200'000), false},
        {"dictionaries", nestedXml(plist::kMaxDepth + 1, "<dict><key>k</key>", "</dict>"), false},
        {"empty tags do not nest",
         xmlPlist("<array>" + QByteArray("<array/><dict />").repeated(500) + "</array>"), true},
        {"closing tags in comments do not count",
         xmlPlist(QByteArray("<array><!-- </array> -->").repeated(plist::kMaxDepth + 1) +
                  QByteArray("</array>").repeated(plist::kMaxDepth + 1)),
         false},
        {"quoted text libplist could read otherwise", xmlPlist("<array a=\"></array>\"></array>"), false},
        {"binary at the limit", chainedArrays(plist::kMaxDepth), true},
        {"binary one deeper", chainedArrays(plist::kMaxDepth + 1), false},
        {"binary 200,000 deep", chainedArrays(200'000), false},
        {"binary cycle", binaryPlist({QByteArray("\xa1\0\0\0\0", 5)}), false},
        {"binary shared 40 levels", chainedArrays(40, 2), false},
        {"binary shared 10 levels", chainedArrays(10, 2), true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(plist::parse(c.bytes).has_value(), c.parsed) << c.what;
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
