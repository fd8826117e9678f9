#pragma once

// Reading a PPD's bytes as text and writing the text back in the same
// encoding, so that an instantiated PPD differs from the model's only in the
// lines the rewrite changed.
//
//     talvo::ppd::DecodedText decoded = talvo::ppd::decodeText(bytes);
//     if (!decoded.detectionError.isEmpty()) log(decoded.detectionError);
//     QByteArray again = talvo::ppd::encodeText(decoded.text, decoded.encoding);   // == bytes

#include <QByteArray>
#include <QString>

namespace talvo::ppd {

enum class TextEncoding { Utf8, Utf8WithBom, Utf16LE, Utf16BE, Utf32LE, Utf32BE, Latin1 };

struct DecodedText
{
    QString text;
    TextEncoding encoding = TextEncoding::Latin1;
    // Why the encoding could not be detected (the text was then read as
    // ISO Latin 1); empty when it was.
    QString detectionError;
};

// The encodings are tried in the order the printer setup has always used:
// detection first (a byte order mark, else UTF-8 when the bytes are valid
// UTF-8), then ISO Latin 1. Latin 1 takes any bytes, so it always succeeds;
// the UTF-8, UTF-16 and Mac OS Roman attempts that followed it in that
// order could never be reached and are left out.
DecodedText decodeText(const QByteArray& bytes);

// The text in the encoding (with its byte order mark where it had one).
QByteArray encodeText(const QString& text, TextEncoding encoding);

} // namespace talvo::ppd
