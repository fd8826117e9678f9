#include "discovery/UsbListing.h"

#include "foundation/DictionaryKeys.h"

#include <QStringDecoder>

#include <algorithm>
#include <array>
#include <utility>

namespace talvo {
namespace {

constexpr QLatin1StringView kUsbScheme{"usb://"};

bool isBlank(QChar c)
{
    const char16_t u = c.unicode();
    return u == u' ' || (u >= u'\t' && u <= u'\r');
}

// The backend prints what each device reports about itself: UTF-8 from
// most, ISO Latin 1 from some older ones. Each line is read as UTF-8 when it
// is valid UTF-8 and as Latin 1 otherwise, so one device's accented name
// neither spoils the other lines nor hides every device.
QString decodedText(QByteArrayView output)
{
    QString text;
    text.reserve(output.size());
    for (qsizetype from = 0; from <= output.size();) {
        qsizetype end = output.indexOf('\n', from);
        if (end < 0)
            end = output.size();
        const QByteArrayView line = output.sliced(from, end - from);
        QStringDecoder utf8(QStringDecoder::Utf8);
        const QString decoded = utf8(line);
        text += utf8.hasError() ? QString::fromLatin1(line) : decoded;
        if (end < output.size())
            text += u'\n';
        from = end + 1;
    }
    return text;
}

QString restOfLine(QStringView text, qsizetype from)
{
    const qsizetype end = text.indexOf(u'\n', from);
    return text.sliced(from, (end < 0 ? text.size() : end) - from).toString();
}

// Reads a text from left to right.
class Cursor
{
public:
    explicit Cursor(QStringView text, qsizetype pos = 0) : m_text(text), m_pos(pos) {}

    qsizetype pos() const { return m_pos; }
    bool atEnd() const { return m_pos >= m_text.size(); }

    void skipBlanks()
    {
        while (!atEnd() && isBlank(m_text[m_pos]))
            ++m_pos;
    }

    // The text up to the next blank, leading blanks skipped.
    QString word()
    {
        skipBlanks();
        const qsizetype start = m_pos;
        while (!atEnd() && !isBlank(m_text[m_pos]))
            ++m_pos;
        return m_text.sliced(start, m_pos - start).toString();
    }

    // A field between double quotes, the cursor on the opening one; a
    // backslash takes the next character as it is. nullopt when the cursor
    // is not on a quote or the field is not closed.
    std::optional<QString> quoted()
    {
        if (atEnd() || m_text[m_pos] != u'"')
            return std::nullopt;
        QString field;
        for (++m_pos; !atEnd();) {
            QChar c = m_text[m_pos++];
            if (c == u'"')
                return field;
            if (c == u'\\') {
                if (atEnd())
                    break;
                c = m_text[m_pos++];
            }
            field += c;
        }
        return std::nullopt;
    }

    // The legacy reading: double quotes skipped, then the text up to the
    // next one or the end; nullopt when that is empty.
    std::optional<QString> upToQuote()
    {
        while (!atEnd() && m_text[m_pos] == u'"')
            ++m_pos;
        const qsizetype start = m_pos;
        while (!atEnd() && m_text[m_pos] != u'"')
            ++m_pos;
        if (m_pos == start)
            return std::nullopt;
        return m_text.sliced(start, m_pos - start).toString();
    }

private:
    QStringView m_text;
    qsizetype m_pos;
};

std::optional<UsbDevice> parseDeviceLine(QStringView line)
{
    Cursor in(line);
    UsbDevice device;
    device.deviceClass = in.word();
    device.uri = in.word();
    if (device.uri.isEmpty())
        return std::nullopt;

    // Two to four quoted fields; the backend puts one blank between them,
    // any number (or none) is taken. Anything else on the line spoils it.
    const std::array fields{&device.makeAndModel, &device.info, &device.deviceId, &device.location};
    std::size_t count = 0;
    for (in.skipBlanks(); !in.atEnd(); in.skipBlanks()) {
        auto field = in.quoted();
        if (!field || count == fields.size())
            return std::nullopt;
        *fields[count++] = std::move(*field);
    }
    if (count < 2)
        return std::nullopt;
    device.model = parseIEEE1284DeviceId(device.deviceId).value(QString(kIEEE1284ModelKey));
    return device;
}

// The URI, then four readings up to a double quote (separator, make and
// model, separator, model), none of which may come up empty: a separator is
// the text between two quoted fields, so fields must be apart.
std::optional<UsbDevice> parseLegacyDevice(Cursor& in)
{
    UsbDevice device;
    device.uri = in.word();
    std::array<QString, 4> parts;
    for (QString& part : parts) {
        auto text = in.upToQuote();
        if (!text)
            return std::nullopt;
        part = std::move(*text);
    }
    device.makeAndModel = parts[1];
    device.info = device.model = parts[3];
    return device;
}

} // namespace

UsbListing parseUsbListing(QByteArrayView output)
{
    const QString text = decodedText(output);
    UsbListing listing;
    listing.reportsNoDevice = text.isEmpty();
    for (const QStringView line : QStringView(text).split(u'\n')) {
        if (std::all_of(line.begin(), line.end(), isBlank))
            continue;
        listing.entries.push_back({line.toString(), parseDeviceLine(line)});
    }
    return listing;
}

UsbListing parseLegacyUsbListing(QByteArrayView output)
{
    const QString text = decodedText(output);
    UsbListing listing;
    qsizetype from = 0;
    for (qsizetype at; (at = text.indexOf(kUsbScheme, from, Qt::CaseInsensitive)) >= 0;) {
        Cursor in(text, at);
        auto device = parseLegacyDevice(in);
        // A device read in full is passed over; after one that was not, the
        // search goes on right behind its "usb://".
        from = device ? in.pos() : at + kUsbScheme.size();
        listing.entries.push_back({restOfLine(text, at), std::move(device)});
    }
    listing.reportsNoDevice = listing.entries.empty();
    return listing;
}

QMap<QString, QString> parseIEEE1284DeviceId(QStringView deviceId)
{
    QMap<QString, QString> fields;
    for (const QStringView piece : deviceId.split(u';')) {
        const QList<QStringView> parts = piece.split(u':');
        if (parts.size() == 2)
            fields.insert(parts[0].toString(), parts[1].toString());
    }
    return fields;
}

} // namespace talvo
