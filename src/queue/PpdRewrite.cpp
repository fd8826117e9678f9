#include "queue/PpdRewrite.h"

#include "queue/QueueLog.h"

#include <algorithm>

namespace talvo::ppd {
namespace {

constexpr QStringView kOpenUI = u"*OpenUI *";

// A text scanner as the rewrite has always used one: every scan first skips
// blanks and line breaks, then takes the text up to a marker, or up to the
// end when the marker does not come; a scan that would take nothing fails and
// leaves the position where it was.
class Scanner
{
public:
    explicit Scanner(QStringView text) : m_text(text) {}

    qsizetype position() const { return m_position; }
    void setPosition(qsizetype position) { m_position = position; }

    std::optional<QStringView> scanUpTo(QStringView marker)
    {
        qsizetype start = m_position;
        while (start < m_text.size() && m_text[start].isSpace())
            ++start;
        const qsizetype found = m_text.indexOf(marker, start);
        const qsizetype end = found < 0 ? m_text.size() : found;
        if (end == start)
            return std::nullopt;
        m_position = end;
        return m_text.sliced(start, end - start);
    }

private:
    QStringView m_text;
    qsizetype m_position = 0;
};

// An option keyword as a message shows it: a malformed file can make one
// run over many lines.
QString shown(const QString& keyword)
{
    constexpr qsizetype kShown = 40;
    QString text = keyword.size() > kShown ? keyword.left(kShown) + QStringLiteral("...") : keyword;
    return u'"' + text.replace(u'\n', u' ').replace(u'\r', u' ') + u'"';
}

OptionTableResult failure(QString message)
{
    return {{}, std::move(message)};
}

bool isNumericOid(QStringView oid)
{
    return !oid.isEmpty() &&
           std::all_of(oid.begin(), oid.end(), [](QChar c) { return (c >= u'0' && c <= u'9') || c == u'.'; });
}

} // namespace

OptionTableResult buildOptionTable(QStringView group)
{
    OptionTableResult result;
    Scanner scanner(group);
    // Each pass reads one "*OpenUI *" block; the loop ends when no further
    // block starts. Every pass starts from a later block than the one
    // before, so it always ends.
    while (scanner.scanUpTo(kOpenUI)) {
        const qsizetype blockStart = scanner.position();
        // The keyword runs up to the "/" of the option's translation string,
        // wherever that comes next.
        const auto head = scanner.scanUpTo(u"/");
        if (!head)
            continue;
        if (head->size() < kOpenUI.size())
            return failure(QStringLiteral("a \"*OpenUI *\" line is cut short"));
        const QString key = head->sliced(kOpenUI.size()).toString();
        QStringList list;

        if (!scanner.scanUpTo(u"*Default")) {
            result.options.insert(key, list);
            continue;
        }
        // Element 0: the default as written, up to the first choice line,
        // line break included.
        const QString choicePrefix = u'*' + key + u' ';
        const QString defaultPrefix = QStringLiteral("*Default") + key + QStringLiteral(": ");
        if (const auto defaultLine = scanner.scanUpTo(choicePrefix)) {
            if (defaultLine->size() < defaultPrefix.size())
                return failure(QStringLiteral("option %1: its default line \"%2\" is cut short")
                                   .arg(shown(key), defaultLine->trimmed().toString()));
            list << defaultLine->sliced(defaultPrefix.size()).toString();
        }

        // Choices with translation strings end at "/", choices without at ":".
        const qsizetype choicesStart = scanner.position();
        const auto choiceLines = scanner.scanUpTo(u"*CloseUI");
        const QString separator =
            choiceLines && choiceLines->contains(u'/') ? QStringLiteral("/") : QStringLiteral(":");
        scanner.setPosition(choicesStart);

        const QString ownQuery = QStringLiteral("*?") + key;
        bool blockEnded = false;
        while (const auto line = scanner.scanUpTo(separator)) {
            if (line->contains(u"*CloseUI") || line->contains(ownQuery)) {
                blockEnded = true;
                break;
            }
            // A line without the option's keyword (a comment, the rest of a
            // longer invocation) is no choice.
            if (const qsizetype at = line->indexOf(choicePrefix); at >= 0)
                list << line->sliced(at + choicePrefix.size()).toString();
            if (scanner.position() >= group.size())
                return failure(QStringLiteral("option %1: its choice lines run to the end of the "
                                              "InstallableOptions group without \"*CloseUI\"")
                                   .arg(shown(key)));
            scanner.setPosition(scanner.position() + 1);
        }

        // The next block is looked for from the option's last choice line.
        // The line is looked for from the start of this option's own block:
        // found in an earlier block (a repeated option), it would send the
        // scan back over the same blocks for ever.
        if (blockEnded) {
            const qsizetype last =
                list.isEmpty() ? -1
                               : group.indexOf(QString(choicePrefix + list.last() + separator), blockStart);
            if (last < 0)
                return failure(
                    QStringLiteral("option %1: its block ends before any choice line").arg(shown(key)));
            scanner.setPosition(last);
        }
        result.options.insert(key, list);
    }
    return result;
}

bool needsInstantiation(QStringView text)
{
    return text.contains(u"*?OID");
}

RewriteResult setInstallableDefaults(const QString& text, const ValueForOid& valueForOid)
{
    const QString openMarker = QLatin1StringView(kInstallableGroupOpen);
    const QString closeMarker = QLatin1StringView(kInstallableGroupClose);
    const qsizetype groupStart = text.indexOf(openMarker);
    const qsizetype close = text.indexOf(closeMarker);
    if (groupStart < 0)
        return {text,
                QStringLiteral("the file has SNMP query lines (\"*?OID\") but no \"%1\"").arg(openMarker)};
    if (close < 0)
        return {text, QStringLiteral("\"%1\" is missing").arg(closeMarker)};
    const qsizetype groupEnd = close + closeMarker.size();
    if (groupEnd < groupStart)
        return {text, QStringLiteral("\"%1\" comes before \"%2\"").arg(closeMarker, openMarker)};

    const QStringView group = QStringView(text).sliced(groupStart, groupEnd - groupStart);
    const OptionTableResult table = buildOptionTable(group);
    if (!table.ok())
        return {text, table.error};

    QString newGroup = group.toString();
    for (auto option = table.options.cbegin(); option != table.options.cend(); ++option) {
        const QString& key = option.key();
        const QStringList& list = option.value();

        // The OID: up to the next double quote, or to the end of the file.
        const QString queryMarker = QStringLiteral("*?OID") + key + QStringLiteral(": \"");
        const qsizetype query = text.indexOf(queryMarker);
        if (query < 0)
            continue;
        const qsizetype oidStart = query + queryMarker.size();
        const qsizetype quote = text.indexOf(u'"', oidStart);
        const qsizetype oidLength = (quote < 0 ? text.size() : quote) - oidStart;
        if (oidLength > kMaxOidLength) {
            qCWarning(lcQueue).noquote()
                << QStringLiteral("instantiatePPD: the OID of option %1 is longer than %2 "
                                  "characters; its default is left as it is")
                       .arg(shown(key), QString::number(kMaxOidLength));
            continue;
        }
        const QString oid = text.sliced(oidStart, oidLength);
        // Anything else would reach snmpget's command line as an option.
        if (!isNumericOid(oid)) {
            qCWarning(lcQueue).noquote()
                << QStringLiteral("instantiatePPD: option %1 names \"%2\", not a numeric OID; its default is "
                                  "left as it is")
                       .arg(shown(key), oid);
            continue;
        }

        const std::optional<QString> answer = valueForOid(oid);
        if (!answer)
            continue;
        // The first choice with a mapping line for exactly this answer;
        // element 0, the current default, is never compared.
        std::optional<QString> choice;
        for (qsizetype i = 1; i < list.size() && !choice; ++i) {
            const QString mapping =
                QStringLiteral("*OID") + key + u' ' + list[i] + QStringLiteral(": \"") + *answer + u'"';
            if (text.contains(mapping))
                choice = list[i];
        }
        if (!choice)
            continue;
        const QString defaultPrefix = QStringLiteral("*Default") + key + QStringLiteral(": ");
        newGroup.replace(defaultPrefix + list[0], defaultPrefix + *choice + u'\n');
        qCInfo(lcQueue).noquote() << QStringLiteral(
                                         "instantiatePPD: %1 answered \"%2\": default %3 is now %4")
                                         .arg(oid, *answer, shown(key), *choice);
    }

    QString rewritten = text;
    rewritten.replace(groupStart, groupEnd - groupStart, newGroup);
    return {rewritten, QString()};
}

} // namespace talvo::ppd
