// The model PPDs as the build writes them: one per supported model, where the
// printer setup looks, compressed, valid for CUPS, and carrying the vendor
// lines the instantiation reads.

#include "queue/PpdEncoding.h"
#include "queue/PpdLookup.h"
#include "queue/PpdRewrite.h"

#include "PpdTestSupport.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

TEST(PpdShippedFiles, EveryModelHasItsPpdWhereTheSetupLooks)
{
    const QVariantMap settings = test::buildSettings();
    const QVariantMap supported = settings.value(kSupportedPrintersKey).toMap();
    ASSERT_EQ(supported.size(), 4);
    for (auto it = supported.cbegin(); it != supported.cend(); ++it) {
        SCOPED_TRACE(it.key().toStdString());
        // The folder found from the test binary's own resources folder.
        const auto path = getPPDPathForModel(it.key(), supported, defaultPPDFolder(settings), {});
        ASSERT_TRUE(path);
        EXPECT_EQ(QFileInfo(*path).path(), test::shippedPpdFolder());
        QFile file(*path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_TRUE(file.read(2) == QByteArray("\x1f\x8b")) << "not gzip-compressed";
    }
}

TEST(PpdShippedFiles, PassCupstestppd)
{
    for (const test::ShippedPpd& ppd : test::shippedPpds()) {
        const ProcessResult check = test::cupstestppd(ppd.path);
        EXPECT_TRUE(check.succeeded()) << ppd.model.toStdString() << ":\n"
                                       << check.standardOutput.toStdString();
    }
}

TEST(PpdShippedFiles, CarryTheVendorLinesOfTheirInstallableOptions)
{
    int bareOptions = 0;
    int translatedOptions = 0;
    qsizetype largest = 0;
    for (const test::ShippedPpd& ppd : test::shippedPpds()) {
        SCOPED_TRACE(ppd.model.toStdString());
        largest = std::max(largest, ppd.bytes.size());
        const QString text = ppd::decodeText(ppd.bytes).text;
        ASSERT_TRUE(ppd::needsInstantiation(text));
        const qsizetype start = text.indexOf(QLatin1StringView(ppd::kInstallableGroupOpen));
        const qsizetype end = text.indexOf(QLatin1StringView(ppd::kInstallableGroupClose));
        ASSERT_TRUE(start >= 0 && end > start);
        const qsizetype groupEnd = end + QLatin1StringView(ppd::kInstallableGroupClose).size();
        const ppd::OptionTableResult table =
            ppd::buildOptionTable(QStringView(text).sliced(start, groupEnd - start));
        ASSERT_TRUE(table.ok()) << table.error.toStdString();

        for (auto option = table.options.cbegin(); option != table.options.cend(); ++option) {
            SCOPED_TRACE(option.key().toStdString());
            const QString& key = option.key();
            // A query line with a vendor OID, and a mapping line for each choice.
            static const QRegularExpression vendorOid(u"^\\.1\\.3\\.6\\.1\\.4\\.1\\.58101(\\.\\d+)+$"_s);
            const QRegularExpressionMatch query =
                QRegularExpression(u"\\*\\?OID"_s + key + u": \"([^\"]*)\""_s).match(text);
            ASSERT_TRUE(query.hasMatch());
            EXPECT_TRUE(vendorOid.match(query.captured(1)).hasMatch()) << query.captured(1).toStdString();
            ASSERT_GE(option->size(), 3);
            for (const QString& choice : option->mid(1))
                EXPECT_TRUE(text.contains(u"*OID"_s + key + u' ' + choice + u": \""_s))
                    << choice.toStdString();
            // The factory default also stands outside the group.
            EXPECT_TRUE(text.left(start).contains(u"*Default"_s + key + u": "_s + option->first()));
            (text.contains(u'*' + key + u' ' + option->at(1) + u'/') ? translatedOptions : bareOptions) += 1;
        }
    }
    EXPECT_GT(bareOptions, 0);
    EXPECT_GT(translatedOptions, 0);
    EXPECT_GE(largest, 150 * 1024);
}

TEST(PpdShippedFiles, KeepTheirEncodings)
{
    // Model 4000 is English only and in ISO Latin 1; the translated models
    // are UTF-8, as CUPS wants translation strings.
    EXPECT_EQ(ppd::decodeText(test::shippedPpd(u"Model 4000"_s).bytes).encoding, ppd::TextEncoding::Latin1);
    EXPECT_EQ(ppd::decodeText(test::shippedPpd(u"Model 9300 MFP"_s).bytes).encoding, ppd::TextEncoding::Utf8);
}

} // namespace
} // namespace talvo
