#include "foundation/ShellText.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

TEST(ShellEscape, QuoteWrittenBeforeDollarAndQuotesOnly)
{
    const std::pair<QString, QString> cases[] = {
        {QStringLiteral("$HOME"), QStringLiteral("'$HOME")},
        {QStringLiteral("a'b"), QStringLiteral("a''b")},
        {QStringLiteral("say \"hi\""), QStringLiteral("say '\"hi'\"")},
        {QStringLiteral("back\\slash `cmd`"), QStringLiteral("back\\slash `cmd`")},
        // Only treated characters: the result is exactly twice as long.
        {QStringLiteral("$'\"$'\""), QStringLiteral("'$'''\"'$'''\"")},
        {QStringLiteral("Gr\u00fc\u00dfe $"), QStringLiteral("Gr\u00fc\u00dfe '$")},
        {QString(), QString()},
    };
    for (const auto& [in, expected] : cases)
        EXPECT_EQ(shellEscapeStr(in), expected) << in.toStdString();
}

} // namespace
} // namespace talvo
