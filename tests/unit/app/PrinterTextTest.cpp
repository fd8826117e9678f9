// A printer's values come from the network: whatever bytes an agent sent must
// neither drive the terminal that shows them nor break the JSON that carries them.

#include "app/PrinterJson.h"

#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

#include <QJsonDocument>

namespace talvo::cli {
namespace {

using namespace Qt::StringLiterals;

TEST(PrinterText, ControlCharactersAreShownAsEscapesAndJsonCarriesEveryValue)
{
    const QString hostile[] = {
        u"\x1b]0;x\x07"_s, // sets the terminal's title
        u"<b>x</b>"_s,     // markup is plain text here
        QString::fromLatin1("\xff\xfe\x9b"
                            "2J"), // bytes that were not UTF-8, C1 CSI among them
        u"a\\x1b\r\nb\x7f"_s,      // a backslash that looks like an escape
        QString(1, QChar(0)) + u"tail"_s,
    };
    for (const QString& value : hostile) {
        const QVariantMap printer{{kPrinterModelStrKey, value}, {kIPAddrStrKey, u"10.0.0.5"_s},
                                  {kDnsNameKey, value},         {kQueueConnectionTypeStrKey, u"Raw TCP"_s},
                                  {kCUPSQueueNameKey, u"q"_s},  {kCUPSPrinterURIKey, value}};
        const QString line = printerToText(printer);
        for (const QChar c : line) {
            const char16_t u = c.unicode();
            EXPECT_FALSE(u < 0x20 || u == 0x7f || (u >= 0x80 && u < 0xa0))
                << "raw control character " << int(u) << " in " << line.toStdString();
        }

        const QByteArray json = QJsonDocument(printerToJson(printer)).toJson(QJsonDocument::Compact);
        QJsonParseError error{};
        const QJsonDocument parsed = QJsonDocument::fromJson(json, &error);
        ASSERT_EQ(error.error, QJsonParseError::NoError) << json.toStdString();
        EXPECT_EQ(parsed.object().value(QLatin1StringView(kPrinterModelStrKey)).toString(), value);
    }
    // Escapes are unambiguous: a literal backslash is doubled.
    EXPECT_EQ(displayText(u"a\\x1b"_s), u"a\\\\x1b"_s);
}

} // namespace
} // namespace talvo::cli
