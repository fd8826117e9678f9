#include "snmp/SnmpgetFallback.h"

#include "snmp/SnmpLibrary.h"

#include <QRegularExpression>
#include <QStringDecoder>

#include <cctype>

namespace talvo {
namespace snmpget {
namespace {

// The fixed SNMPv3 identity every Talvo printer accepts.
constexpr char kSecurityName[] = "Kdrivers";
constexpr char kAuthPassPhrase[] = "k7PaqLwe2ZumR9tobex4";
constexpr char kPrivPassPhrase[] = "MOVAF38xelUbrestu5ja";

QStringList v3Arguments(const char* authProtocol)
{
    return {QStringLiteral("-u"), QLatin1StringView(kSecurityName),
            QStringLiteral("-a"), QLatin1StringView(authProtocol),
            QStringLiteral("-A"), QLatin1StringView(kAuthPassPhrase),
            QStringLiteral("-l"), QStringLiteral("authPriv"),
            QStringLiteral("-x"), QStringLiteral("DES"),
            QStringLiteral("-X"), QLatin1StringView(kPrivPassPhrase)};
}

QString textFromBytes(const QByteArray& bytes)
{
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(bytes);
    return utf8.hasError() ? QString::fromLatin1(bytes) : text;
}

bool printableOrSpace(char c)
{
    const auto u = static_cast<unsigned char>(c);
    return u < 0x80 && (std::isprint(u) || std::isspace(u));
}

// The bytes of net-snmp's hex form ("47 72 C3 BC " over lines of 16), or
// nullopt when the text is not in that form. Text whose bytes would all have
// been printed as a string is a string that merely looks like hex.
std::optional<QByteArray> fromHexForm(const QByteArray& text)
{
    // \A and \z: a "$" would also match before a final newline, so a string
    // such as "11 \n\n" would pass for the hex form of one byte.
    static const QRegularExpression hexForm(QStringLiteral("\\A(?:[0-9A-F]{2} \\n?)+\\z"));
    if (!hexForm.match(QString::fromLatin1(text)).hasMatch())
        return std::nullopt;
    QByteArray bytes;
    for (const QByteArray& pair : text.simplified().split(' '))
        bytes.append(static_cast<char>(pair.toInt(nullptr, 16)));
    // A NUL makes net-snmp print hex, at the end of a value too ("Talvo" and
    // a NUL is "54 61 6C 76 6F 00 "): only bytes that are all printable mean
    // the text was a string that merely looks like hex.
    if (std::all_of(bytes.cbegin(), bytes.cend(), printableOrSpace))
        return std::nullopt;
    return bytes;
}

// The contents of the quoted string at the start of the output, unescaped,
// or nullopt when it has no closing quote.
std::optional<QByteArray> quotedString(const QByteArray& output)
{
    QByteArray text;
    for (qsizetype i = 1; i < output.size(); ++i) {
        const char c = output[i];
        if (c == '"')
            return text;
        if (c == '\\' && i + 1 < output.size())
            text.append(output[++i]);
        else
            text.append(c);
    }
    return std::nullopt;
}

} // namespace

bool isUsableCommunity(const QString& community)
{
    return !community.trimmed().isEmpty();
}

QStringList arguments(int version, const QString& community, const QString& host, const QString& oid)
{
    // A host beginning with '-' would be taken for an option.
    if (host.isEmpty() || host.startsWith(u'-'))
        return {};
    QStringList versionArguments;
    switch (version) {
    case kVersion1:
        // "-c" alone would make snmpget take "-v1" for the community.
        if (!isUsableCommunity(community))
            return {};
        versionArguments = {QStringLiteral("-c") + community, QStringLiteral("-v1")};
        break;
    case kVersion3SHA:
        versionArguments = v3Arguments("SHA");
        break;
    case kVersion3MD5:
        versionArguments = v3Arguments("MD5");
        break;
    default:
        return {};
    }
    return QStringList{QStringLiteral("snmpget"), QStringLiteral("-r2"), QStringLiteral("-t1"),
                       QStringLiteral("-Onqv")} +
           versionArguments + QStringList{host, oid};
}

std::optional<QString> parseValue(const QByteArray& output)
{
    if (output.isEmpty())
        return std::nullopt;

    QString value;
    if (output.startsWith('"')) {
        const auto quoted = quotedString(output);
        if (!quoted)
            return std::nullopt;
        const auto hex = fromHexForm(*quoted);
        value = textFromBytes(hex ? *hex : *quoted);
    } else {
        const qsizetype end = output.indexOf('\n');
        value = QString::fromUtf8(end < 0 ? output : output.left(end));
        static const QStringList exceptions = {
            QStringLiteral("No Such Object available"),
            QStringLiteral("No Such Instance currently exists"),
            QStringLiteral("No more variables left in this MIB View"),
        };
        for (const QString& e : exceptions) {
            if (value.startsWith(e))
                return std::nullopt;
        }
        if (value.isEmpty())
            return std::nullopt;
    }
    // A printer answers U+0001 alone for "no value".
    if (value == QStringView(u"\u0001"))
        return QString();
    return value;
}

} // namespace snmpget

std::optional<QString> doSNMPQueryOn(const QString& host, const QString& community, const QString& oid,
                                     int& version, const ProcessOptions& options)
{
    using namespace snmpget;
    if (version == kUnknown) {
        version = kNone;
        const QString probe = QLatin1StringView(kProbeOid);
        for (const int candidate : {kVersion1, kVersion3SHA, kVersion3MD5}) {
            if (options.stopToken.stop_requested())
                return std::nullopt;
            int local = candidate;
            const auto answer = doSNMPQueryOn(host, community, probe, local, options);
            if (answer && !answer->isEmpty()) {
                version = candidate;
                break;
            }
        }
    }

    if (version == kVersion1 && !isUsableCommunity(community)) {
        qCWarning(lcSnmp) << "No SNMPv1 community to ask with: snmpget is not run";
        return std::nullopt;
    }
    const QStringList argv = arguments(version, community, host, oid);
    if (argv.isEmpty())
        return std::nullopt;
    const ProcessResult result = runProcess(argv, options);
    if (result.status == ProcessResult::Status::FailedToStart)
        qCWarning(lcSnmp).noquote() << "Cannot run snmpget:" << result.errorText;
    if (result.status != ProcessResult::Status::Exited)
        return std::nullopt;
    return parseValue(result.standardOutput);
}

} // namespace talvo
