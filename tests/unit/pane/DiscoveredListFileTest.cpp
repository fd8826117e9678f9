#include "pane/DiscoveredListFile.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/PropertyList.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QIcon>
#include <QTemporaryDir>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

class DiscoveredListFileTest : public testing::Test
{
protected:
    QString path() const { return m_dir.filePath(u"DiscoveredPrinters.plist"_s); }

    static QVariantMap stored(const QString& ip)
    {
        return {{kIPAddrStrKey, ip},
                {kPrinterModelStrKey, u"Model 4000"_s},
                {kQueueConnectionTypeStrKey, u"Raw TCP"_s},
                {kIPAddressNumberKey, qlonglong{84017162}}};
    }
    static QVariantMap shown(const QString& ip)
    {
        QVariantMap printer = stored(ip);
        printer.insert(kPrinterIconImgKey, QVariant::fromValue(QIcon()));
        printer.insert(kPrinterPresentationStrKey, u"<b>Model 4000 - %1</b>"_s.arg(ip));
        return printer;
    }

    QTemporaryDir m_dir;
};

TEST_F(DiscoveredListFileTest, RoundTripLeavesOutDisplayKeys)
{
    ASSERT_TRUE(writeDiscoveredList(path(), {shown(u"10.0.0.5"_s), shown(u"10.0.0.6"_s)}));
    QFile file(path());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray xml = file.readAll();
    EXPECT_FALSE(xml.contains("printerIcon") || xml.contains("presentationText"));

    EXPECT_EQ(readDiscoveredList(path()), (QList<QVariantMap>{stored(u"10.0.0.5"_s), stored(u"10.0.0.6"_s)}));
}

TEST_F(DiscoveredListFileTest, UnreadableFilesGiveNothingAndOtherElementsAreSkipped)
{
    const QString garbage = m_dir.filePath(u"garbage"_s);
    QFile file(garbage);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("<?xml version=\"1.0\"?><plist><array><dict>");
    file.close();
    const QString dictionary = m_dir.filePath(u"dictionary"_s);
    ASSERT_TRUE(plist::writeXmlFile(dictionary, stored(u"10.0.0.5"_s)));

    for (const QString& unreadable : {m_dir.filePath(u"absent"_s), garbage, dictionary, m_dir.path()})
        EXPECT_FALSE(readDiscoveredList(unreadable)) << unreadable.toStdString();

    ASSERT_TRUE(plist::writeXmlFile(path(), QVariantList{u"text"_s, stored(u"10.0.0.5"_s), qlonglong{3},
                                                         QVariantList{stored(u"10.0.0.6"_s)}}));
    EXPECT_EQ(readDiscoveredList(path()), QList<QVariantMap>{stored(u"10.0.0.5"_s)});
}

// A printer that answered one query with NULL is saved without that value,
// not the whole list refused.
TEST_F(DiscoveredListFileTest, NullValuesAreLeftOut)
{
    QVariantMap answered = stored(u"10.0.0.5"_s);
    answered.insert(u"sysLocation"_s, QVariant());
    answered.insert(u"networks"_s,
                    QVariantList{u"10.0.0.0"_s, QVariant(), QVariantMap{{u"mask"_s, QVariant()}}});
    ASSERT_TRUE(writeDiscoveredList(path(), {answered, stored(u"10.0.0.6"_s)}));

    QVariantMap expected = stored(u"10.0.0.5"_s);
    expected.insert(u"networks"_s, QVariantList{u"10.0.0.0"_s, QVariantMap{}});
    EXPECT_EQ(readDiscoveredList(path()), (QList<QVariantMap>{expected, stored(u"10.0.0.6"_s)}));
}

TEST_F(DiscoveredListFileTest, FailedWriteLosesNothing)
{
    // No folder is made for the list.
    const QString missing = m_dir.filePath(u"Desktop/DiscoveredPrinters.plist"_s);
    EXPECT_FALSE(writeDiscoveredList(missing, {stored(u"10.0.0.5"_s)}));
    EXPECT_FALSE(QFileInfo::exists(m_dir.filePath(u"Desktop"_s)));

    // A value no property list can hold fails the write; the old list stays.
    ASSERT_TRUE(writeDiscoveredList(path(), {stored(u"10.0.0.5"_s)}));
    QVariantMap odd = stored(u"10.0.0.6"_s);
    odd.insert(u"extra"_s, QVariant::fromValue(QIcon()));
    EXPECT_FALSE(writeDiscoveredList(path(), {odd}));
    EXPECT_EQ(readDiscoveredList(path()), QList<QVariantMap>{stored(u"10.0.0.5"_s)});
    EXPECT_EQ(QDir(m_dir.path()).entryList(QDir::Files), QStringList{u"DiscoveredPrinters.plist"_s});
}

} // namespace
} // namespace talvo
