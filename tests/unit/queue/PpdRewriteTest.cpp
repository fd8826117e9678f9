// The PPD rewrite on text: which options it reads, which answer sets which
// default, what stays as it was, and which malformed groups are errors.

#include "queue/PpdRewrite.h"
#include "queue/PpdEncoding.h"

#include <gtest/gtest.h>

#include <map>

namespace talvo::ppd {
namespace {

using namespace Qt::StringLiterals;

const QString kMemoryOid = QStringLiteral(".1.3.6.1.4.1.58101.3.1.1.0");

// A Memory option with a query line and one mapping line, and the same
// default line once more before the group.
const QString kMemory = QStringLiteral(R"(*PPD-Adobe: "4.3"
*DefaultMemory: 256MB
*OpenGroup: InstallableOptions/Installable Options
*OpenUI *Memory/Installed Memory: PickOne
*OrderDependency: 10 AnySetup *Memory
*DefaultMemory: 256MB
*Memory 256MB/256 MB: ""
*Memory 512MB/512 MB: ""
*CloseUI: *Memory
*?OIDMemory: ".1.3.6.1.4.1.58101.3.1.1.0"
*OIDMemory 512MB: "524288"
*CloseGroup: InstallableOptions
*DefaultMemory: 256MB
)");

// kMemory with the group's default line naming another choice.
QString memoryDefault(const QString& choice)
{
    return QString(kMemory).replace(QStringLiteral("*DefaultMemory: 256MB\n*Memory 256MB"),
                                    QStringLiteral("*DefaultMemory: ") + choice +
                                        QStringLiteral("\n*Memory 256MB"));
}

QString replaced(QString text, const char* before, const char* after)
{
    return text.replace(QString::fromUtf8(before), QString::fromUtf8(after));
}

// A Boolean option whose choice lines carry no translation strings.
const QString kDuplexer = QStringLiteral(R"(*OpenGroup: InstallableOptions/Installable Options
*OpenUI *OptionalDuplexer/Duplex Unit: Boolean
*OrderDependency: 10 AnySetup *OptionalDuplexer
*DefaultOptionalDuplexer: False
*OptionalDuplexer True: ""
*OptionalDuplexer False: ""
*CloseUI: *OptionalDuplexer
*?OIDOptionalDuplexer: ".1.3.6.1.4.1.58101.3.1.3.0"
*OIDOptionalDuplexer True: "1"
*OIDOptionalDuplexer False: "0"
*CloseGroup: InstallableOptions
)");

struct RewriteCase
{
    const char* name;
    QString ppd;
    std::optional<QString> answer; // to every query
    QString expected;              // the PPD written back
    int queries;
    const char* error = nullptr; // part of the expected error message
};

void PrintTo(const RewriteCase& c, std::ostream* os)
{
    *os << c.name;
}

// The PPD written back with the new default.
RewriteCase becomes(const char* name, const QString& ppd, const QString& answer, const QString& expected)
{
    return {name, ppd, answer, expected, 1};
}

// The PPD written back as it was.
RewriteCase same(const char* name, const QString& ppd, std::optional<QString> answer, int queries = 1)
{
    return {name, ppd, std::move(answer), ppd, queries};
}

// A malformed group: an error and no query.
RewriteCase fails(const char* name, const QString& ppd, const char* error)
{
    return {name, ppd, u"524288"_s, {}, 0, error};
}

class PpdRewriteTest : public testing::TestWithParam<RewriteCase>
{};

TEST_P(PpdRewriteTest, SetsTheDefaultTheAnswerMapsTo)
{
    const RewriteCase& c = GetParam();
    QStringList asked;
    const RewriteResult result = setInstallableDefaults(c.ppd, [&](const QString& oid) {
        asked << oid;
        return c.answer;
    });
    EXPECT_EQ(asked.size(), c.queries) << asked.join(u' ').toStdString();
    if (c.error) {
        EXPECT_TRUE(result.error.contains(QLatin1StringView(c.error))) << result.error.toStdString();
        return;
    }
    ASSERT_TRUE(result.ok()) << result.error.toStdString();
    EXPECT_EQ(result.text, c.expected);
}

const QString kRepeated = replaced(kMemory, "*CloseGroup", R"(*OpenUI *Memory/Installed Memory: PickOne
*DefaultMemory: 256MB
*Memory 256MB/256 MB: ""
*Memory 512MB/512 MB: ""
*CloseUI: *Memory
*CloseGroup)");
const QString kTwoMappingsOfX = replaced(replaced(kMemory, R"("524288")", R"("x")"), "*CloseGroup",
                                         "*OIDMemory 256MB: \"x\"\n*CloseGroup");

INSTANTIATE_TEST_SUITE_P(
    Cases, PpdRewriteTest,
    testing::Values(
        // The answer that a mapping line names sets the group's default only:
        // the same line before and after the group stays, line break and all.
        becomes("AnswerMapsToAChoice", kMemory, u"524288"_s, memoryDefault(u"512MB"_s)),
        same("AnswerMapsToNothing", kMemory, u"262144"_s), same("NoAnswer", kMemory, std::nullopt),
        same("AnswerComparedExactly", kMemory, u"524288 "_s),
        becomes("EmptyAnswerIsAnAnswer", replaced(kMemory, R"("524288")", R"("")"), QString(),
                replaced(memoryDefault(u"512MB"_s), R"("524288")", R"("")")),
        // The default as written is element 0 of the option's list and is
        // never compared: its mapping line alone changes nothing.
        same("DefaultItselfIsNoChoice",
             replaced(replaced(kMemory, "*Memory\n*DefaultMemory: 256MB", "*Memory\n*DefaultMemory: 128MB"),
                      "*OIDMemory 512MB", "*OIDMemory 128MB: \"131072\"\n*OIDMemory 512MB"),
             u"131072"_s),
        // Two choices mapping the same answer: the first in the option's
        // choice order wins, not the first mapping line in the file.
        becomes("FirstChoiceWins", replaced(kTwoMappingsOfX, "256MB\n*Memory 256MB", "512MB\n*Memory 256MB"),
                u"x"_s, kTwoMappingsOfX),
        // Choices without translation strings end at ":".
        becomes("ColonSeparatesBareChoices", kDuplexer, u"1"_s,
                replaced(kDuplexer, "*DefaultOptionalDuplexer: False", "*DefaultOptionalDuplexer: True")),
        same("QueryWithoutMappingLines", replaced(kMemory, "*OIDMemory 512MB: \"524288\"\n", ""),
             u"524288"_s),
        same("NoQueryLineNoQuery", replaced(kMemory, "*?OIDMemory", "*%OIDMemory"), u"524288"_s, 0),
        // OIDs that would be unbounded or read as snmpget options are not asked.
        same("OidTooLong", replaced(kMemory, ".1.3.6.1.4.1.58101.3.1.1.0", QByteArray(300, '1').constData()),
             u"524288"_s, 0),
        same("OidNotNumeric", replaced(kMemory, ".1.3.6.1.4.1.58101.3.1.1.0", "-Lf/tmp/log"), u"524288"_s, 0),
        // A repeated option block ends the scan instead of looping over it;
        // every copy of the default line in the group follows the answer.
        becomes("RepeatedOptionBlock", kRepeated, u"524288"_s,
                replaced(kRepeated, "*DefaultMemory: 256MB\n*Memory", "*DefaultMemory: 512MB\n*Memory")),
        fails("CloseGroupMissing", replaced(kMemory, "*CloseGroup: InstallableOptions", ""),
              "\"*CloseGroup: InstallableOptions\" is missing"),
        fails("OpenGroupMissing", replaced(kMemory, "*OpenGroup: InstallableOptions", "*OpenGroup: Other"),
              "no \"*OpenGroup: InstallableOptions\""),
        fails("CloseGroupFirst",
              u"*?OID\n*CloseGroup: InstallableOptions\n*OpenGroup: InstallableOptions\n"_s, "comes before"),
        // A choice line without its colon runs into "*CloseUI".
        fails("BlockEndsBeforeAnyChoice",
              replaced(kMemory, "*Memory 256MB/256 MB: \"\"\n*Memory 512MB/512 MB: \"\"\n",
                       "*Memory 256MB\n"),
              "option \"Memory\": its block ends before any choice line"),
        // Bare choices split at "/" because the option's query code holds one.
        fails("OwnQueryEndsTheBlockEarly",
              replaced(kDuplexer,
                       "*OptionalDuplexer False: ", "*?OptionalDuplexer: \"/x\"\n*OptionalDuplexer False: "),
              "option \"OptionalDuplexer\": its block ends before any choice line"),
        fails("DefaultLineCutShort",
              replaced(kMemory, "*Memory\n*DefaultMemory: 256MB", "*Memory\n*Default: x"), "is cut short"),
        fails("ChoicesRunPastTheGroup", replaced(kMemory, "*CloseUI: *Memory\n", ""),
              "without \"*CloseUI\"")),
    [](const testing::TestParamInfo<RewriteCase>& param) { return std::string(param.param.name); });

struct TableCase
{
    const char* name;
    QString group;
    OptionTable expected;
};

void PrintTo(const TableCase& c, std::ostream* os)
{
    *os << c.name;
}

class PpdOptionTableTest : public testing::TestWithParam<TableCase>
{};

TEST_P(PpdOptionTableTest, ListsTheDefaultThenTheChoices)
{
    const OptionTableResult table = buildOptionTable(GetParam().group);
    ASSERT_TRUE(table.ok()) << table.error.toStdString();
    EXPECT_EQ(table.options, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PpdOptionTableTest,
    testing::Values(
        TableCase{"TranslatedChoices",
                  kMemory,
                  {{QStringLiteral("Memory"), {u"256MB\n"_s, u"256MB"_s, u"512MB"_s}}}},
        TableCase{"BareChoices",
                  kDuplexer,
                  {{QStringLiteral("OptionalDuplexer"), {u"False\n"_s, u"True"_s, u"False"_s}}}},
        // The option's own PostScript query ends its choices, "/" and all.
        TableCase{"OwnQueryEndsTheChoices",
                  replaced(kMemory, "*CloseUI: *Memory",
                           "*?Memory: \"currentsystemparams /RamSize get ==\"\n*CloseUI: *Memory"),
                  {{QStringLiteral("Memory"), {u"256MB\n"_s, u"256MB"_s, u"512MB"_s}}}},
        // The default line's break is part of element 0.
        TableCase{"LineBreakKept",
                  replaced(kMemory, "*DefaultMemory: 256MB\n*Memory", "*DefaultMemory: 256MB\r\n*Memory"),
                  {{QStringLiteral("Memory"), {u"256MB\r\n"_s, u"256MB"_s, u"512MB"_s}}}},
        // No "*Default" left in the group: an empty list.
        TableCase{"NoDefaultLeft",
                  QStringLiteral("*OpenGroup: InstallableOptions\n*OpenUI *Stacker/Stacker: Boolean\n"
                                 "*CloseGroup: InstallableOptions"),
                  {{QStringLiteral("Stacker"), {}}}}),
    [](const testing::TestParamInfo<TableCase>& param) { return std::string(param.param.name); });

// Decoding and encoding again gives the bytes back, so an instantiated PPD
// differs from its model only where a default changed.
TEST(PpdEncoding, RoundTripsEachEncoding)
{
    const QString text = QStringLiteral("*% Caf\u00e9 \u00a9\n*de.Translation Memory/Speicher: \"\"\n");
    struct Case
    {
        TextEncoding encoding;
        QByteArray bytes;
        bool detected;
    };
    const Case cases[] = {
        {TextEncoding::Utf8, text.toUtf8(), true},
        {TextEncoding::Utf8WithBom, QByteArray("\xEF\xBB\xBF") + text.toUtf8(), true},
        {TextEncoding::Utf16LE, encodeText(text, TextEncoding::Utf16LE), true},
        {TextEncoding::Utf16BE, encodeText(text, TextEncoding::Utf16BE), true},
        {TextEncoding::Latin1, text.toLatin1(), false},
    };
    for (const Case& c : cases) {
        const DecodedText decoded = decodeText(c.bytes);
        EXPECT_EQ(decoded.encoding, c.encoding) << static_cast<int>(c.encoding);
        EXPECT_EQ(decoded.text, text) << static_cast<int>(c.encoding);
        EXPECT_EQ(decoded.detectionError.isEmpty(), c.detected) << static_cast<int>(c.encoding);
        EXPECT_EQ(encodeText(decoded.text, decoded.encoding), c.bytes) << static_cast<int>(c.encoding);
    }
    // A byte order mark over contents in another encoding: read as Latin 1,
    // written back unchanged.
    const QByteArray odd("\xFF\xFE*", 3);
    EXPECT_EQ(encodeText(decodeText(odd).text, decodeText(odd).encoding), odd);
}

} // namespace
} // namespace talvo::ppd
