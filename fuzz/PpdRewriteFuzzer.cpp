// A PPD comes from the driver's folder, but a damaged or foreign one must
// never crash or hang the printer setup, its bytes must survive being read
// and written back, and the rewrite must leave everything outside the
// InstallableOptions group as it was. The input's first line is the printer's
// scripted answer to every query ("-": no answer); the rest is the PPD.
#include "queue/PpdEncoding.h"
#include "queue/PpdRewrite.h"

#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.*=false"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace talvo::ppd;
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const qsizetype newline = input.indexOf('\n');
    const QByteArray answerLine = newline < 0 ? input : input.left(newline);
    const QByteArray ppd = newline < 0 ? QByteArray() : input.mid(newline + 1);
    const std::optional<QString> answer =
        answerLine == "-" ? std::nullopt : std::optional<QString>(QString::fromUtf8(answerLine));

    const DecodedText decoded = decodeText(ppd);
    if (encodeText(decoded.text, decoded.encoding) != ppd)
        std::abort();

    const RewriteResult result = setInstallableDefaults(decoded.text, [&](const QString& oid) {
        if (oid.isEmpty() || oid.size() > kMaxOidLength)
            std::abort();
        return answer;
    });
    if (!result.ok())
        return 0;
    const QString& text = decoded.text;
    const qsizetype start = text.indexOf(QLatin1StringView(kInstallableGroupOpen));
    const QLatin1StringView close(kInstallableGroupClose);
    const qsizetype end = text.indexOf(close) + close.size();
    if (result.text.left(start) != text.left(start) || !result.text.endsWith(QStringView(text).sliced(end)))
        std::abort();
    return 0;
}
