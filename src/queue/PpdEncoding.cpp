#include "queue/PpdEncoding.h"

#include <QStringDecoder>
#include <QStringEncoder>

#include <optional>

namespace talvo::ppd {
namespace {

struct Bom
{
    QByteArrayView bytes;
    TextEncoding encoding;
    QStringConverter::Encoding converter;
};

// Longest first: a UTF-32LE mark begins with the UTF-16LE one.
const Bom kBoms[] = {
    {QByteArrayView("\xFF\xFE\x00\x00", 4), TextEncoding::Utf32LE, QStringConverter::Utf32LE},
    {QByteArrayView("\x00\x00\xFE\xFF", 4), TextEncoding::Utf32BE, QStringConverter::Utf32BE},
    {QByteArrayView("\xEF\xBB\xBF", 3), TextEncoding::Utf8WithBom, QStringConverter::Utf8},
    {QByteArrayView("\xFF\xFE", 2), TextEncoding::Utf16LE, QStringConverter::Utf16LE},
    {QByteArrayView("\xFE\xFF", 2), TextEncoding::Utf16BE, QStringConverter::Utf16BE},
};

// The text, when the bytes are exactly that text in the encoding: a decoder
// that drops an incomplete last unit without an error would lose bytes on
// the way back, so the way back is checked too.
std::optional<QString> decodeStrictly(const QByteArray& bytes, TextEncoding encoding,
                                      QStringConverter::Encoding converter)
{
    // The decoder drops the byte order mark itself.
    QStringDecoder decoder(converter, QStringConverter::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError() || encodeText(text, encoding) != bytes)
        return std::nullopt;
    return text;
}

} // namespace

DecodedText decodeText(const QByteArray& bytes)
{
    for (const Bom& bom : kBoms) {
        if (!bytes.startsWith(bom.bytes))
            continue;
        if (auto text = decodeStrictly(bytes, bom.encoding, bom.converter))
            return {*text, bom.encoding, QString()};
        return {QString::fromLatin1(bytes), TextEncoding::Latin1,
                QStringLiteral("The file starts with a byte order mark but its contents are not in that "
                               "encoding.")};
    }
    if (auto text = decodeStrictly(bytes, TextEncoding::Utf8, QStringConverter::Utf8))
        return {*text, TextEncoding::Utf8, QString()};
    return {
        QString::fromLatin1(bytes), TextEncoding::Latin1,
        QStringLiteral("The text encoding of the file's contents could not be determined: it is not UTF-8 "
                       "and has no byte order mark.")};
}

QByteArray encodeText(const QString& text, TextEncoding encoding)
{
    auto encode = [&text](QStringConverter::Encoding converter, bool bom) {
        QStringEncoder encoder(converter,
                               bom ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default);
        return QByteArray(encoder.encode(text));
    };
    switch (encoding) {
    case TextEncoding::Utf8:
        return text.toUtf8();
    case TextEncoding::Utf8WithBom:
        return encode(QStringConverter::Utf8, true);
    case TextEncoding::Utf16LE:
        return encode(QStringConverter::Utf16LE, true);
    case TextEncoding::Utf16BE:
        return encode(QStringConverter::Utf16BE, true);
    case TextEncoding::Utf32LE:
        return encode(QStringConverter::Utf32LE, true);
    case TextEncoding::Utf32BE:
        return encode(QStringConverter::Utf32BE, true);
    case TextEncoding::Latin1:
        break;
    }
    return text.toLatin1();
}

} // namespace talvo::ppd
