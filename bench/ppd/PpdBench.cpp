// talvo-ppd-bench [--runs N] [--json] [PPD.gz]
//
// Times the instantiation of a model PPD (default: the largest one in the
// installed PPD folder) with the printer's SNMP answers given, so that every
// installable option changes: gunzip, decoding, the rewrite and the atomic
// write of the result, as the printer setup runs them. Prints the median,
// minimum and maximum over N runs (default 50) and the rewrite alone; exits
// 1 when the median is not under the 50 ms target.

#include "foundation/Settings.h"
#include "queue/PpdEncoding.h"
#include "queue/PpdInstantiation.h"
#include "queue/PpdRewrite.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QRegularExpression>

#include <algorithm>
#include <cstdio>
#include <map>
#include <vector>

namespace {

constexpr double kTargetMs = 50.0;

QString largestPpd()
{
    const QDir folder(talvo::pathForPluginResources() + QStringLiteral("/../ppd/talvo"));
    const QFileInfoList files = folder.entryInfoList({QStringLiteral("*.ppd.gz")}, QDir::Files, QDir::Size);
    return files.isEmpty() ? QString() : files.first().absoluteFilePath();
}

// For each queried option, the answer of its last mapping line: a choice
// other than the shipped default.
std::map<QString, QString> answersChangingEveryOption(const QString& text)
{
    std::map<QString, QString> answers;
    static const QRegularExpression query(QStringLiteral("^\\*\\?OID(\\S+): \"([^\"]*)\""),
                                          QRegularExpression::MultilineOption);
    for (auto q = query.globalMatch(text); q.hasNext();) {
        const QRegularExpressionMatch m = q.next();
        const QRegularExpression mapping(QStringLiteral("^\\*OID") +
                                             QRegularExpression::escape(m.captured(1)) +
                                             QStringLiteral(" \\S+: \"([^\"]*)\""),
                                         QRegularExpression::MultilineOption);
        for (auto it = mapping.globalMatch(text); it.hasNext();)
            answers[m.captured(2)] = it.next().captured(1);
    }
    return answers;
}

struct Stats
{
    double median, min, max;
};

template <typename F> Stats measure(int runs, F&& run)
{
    std::vector<double> ms;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        run();
        ms.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
    }
    if (ms.empty())
        return {0, 0, 0};
    std::sort(ms.begin(), ms.end());
    return {ms[ms.size() / 2], ms.front(), ms.back()};
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.*=false"));
    QStringList arguments = QCoreApplication::arguments().mid(1);
    int runs = 50;
    bool json = false;
    QString ppdPath;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == QStringLiteral("--runs") && i + 1 < arguments.size())
            runs = std::max(1, arguments[++i].toInt());
        else if (arguments[i] == QStringLiteral("--json"))
            json = true;
        else if (!arguments[i].startsWith(u'-'))
            ppdPath = arguments[i];
        else {
            std::fputs("usage: talvo-ppd-bench [--runs N] [--json] [PPD.gz]\n", stderr);
            return 2;
        }
    }
    if (ppdPath.isEmpty())
        ppdPath = largestPpd();
    if (ppdPath.isEmpty()) {
        std::fputs("talvo-ppd-bench: no PPD found; build the talvo_ppds target\n", stderr);
        return 2;
    }

    // The answers, from the PPD's own mapping lines.
    const talvo::InstantiatedPPD plain =
        talvo::instantiatePPD(ppdPath, [](const QString&) { return std::nullopt; });
    if (!plain.ok()) {
        std::fprintf(stderr, "talvo-ppd-bench: %s\n", qPrintable(plain.error));
        return 1;
    }
    QFile file(plain.path);
    file.open(QIODevice::ReadOnly);
    const QByteArray bytes = file.readAll();
    const QString text = talvo::ppd::decodeText(bytes).text;
    const std::map<QString, QString> answers = answersChangingEveryOption(text);
    const talvo::ppd::ValueForOid given = [&answers](const QString& oid) -> std::optional<QString> {
        const auto it = answers.find(oid);
        return it == answers.end() ? std::nullopt : std::optional<QString>(it->second);
    };

    const Stats whole = measure(runs, [&] {
        const talvo::InstantiatedPPD ppd = talvo::instantiatePPD(ppdPath, given);
        if (!ppd.ok())
            std::abort();
    });
    const Stats rewrite = measure(runs, [&] { talvo::ppd::setInstallableDefaults(text, given); });

    const QString name = QFileInfo(ppdPath).fileName();
    if (json) {
        const QJsonObject result{{QStringLiteral("ppd"), name},
                                 {QStringLiteral("uncompressedBytes"), bytes.size()},
                                 {QStringLiteral("options"), static_cast<qint64>(answers.size())},
                                 {QStringLiteral("runs"), runs},
                                 {QStringLiteral("medianMs"), whole.median},
                                 {QStringLiteral("minMs"), whole.min},
                                 {QStringLiteral("maxMs"), whole.max},
                                 {QStringLiteral("rewriteMedianMs"), rewrite.median},
                                 {QStringLiteral("targetMs"), kTargetMs}};
        std::printf("%s\n", QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
    } else {
        std::printf(
            "%s (%lld bytes, %zu options answered): instantiation %.2f ms median (min %.2f, max %.2f) "
            "over %d runs, of which the rewrite %.2f ms; target under %.0f ms\n",
            qPrintable(name), static_cast<long long>(bytes.size()), answers.size(), whole.median, whole.min,
            whole.max, runs, rewrite.median, kTargetMs);
    }
    return whole.median < kTargetMs ? 0 : 1;
}
