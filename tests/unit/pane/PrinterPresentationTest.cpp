#include "pane/PrinterPresentation.h"

#include "LogCapture.h"
#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QImage>
#include <QTemporaryDir>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

QVariantMap printer(std::initializer_list<std::pair<QLatin1StringView, const char16_t*>> fields)
{
    QVariantMap map;
    for (const auto& [key, value] : fields)
        map.insert(key, QString::fromUtf16(value));
    return map;
}

QString displayText(QVariantMap map)
{
    PrinterPresentation presentation({}, {});
    presentation.addDisplayTextToPrinterDict(map);
    const QVariant text = map.value(kPrinterPresentationStrKey);
    EXPECT_EQ(text.typeId(), QMetaType::QString);
    return text.toString();
}

struct TextCase
{
    const char* name;
    QVariantMap printer;
    QString html;
};

void PrintTo(const TextCase& c, std::ostream* os)
{
    *os << c.name;
}

class PrinterPresentationText : public testing::TestWithParam<TextCase>
{};

TEST_P(PrinterPresentationText, BuildsTheRowHtml)
{
    EXPECT_EQ(displayText(GetParam().printer), GetParam().html);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PrinterPresentationText,
    testing::Values(
        TextCase{"NetworkWithLocation",
                 printer({{kPrinterModelStrKey, u"M"},
                          {kIPAddrStrKey, u"10.0.0.5"},
                          {kPrinterLocationKey, u"Lab"},
                          {kQueueConnectionTypeStrKey, u"Raw TCP"}}),
                 u"<b>M - 10.0.0.5</b><br>Location: Lab; Contact: <i>Not Set</i>; Raw TCP"_s},
        TextCase{"DnsNameAndContact",
                 printer({{kPrinterModelStrKey, u"M"},
                          {kDnsNameKey, u"p.example"},
                          {kIPAddrStrKey, u"10.0.0.5"},
                          {kPrinterLocationKey, u""},
                          {kPrinterContactKey, u"Ann"},
                          {kQueueConnectionTypeStrKey, u"Bonjour"}}),
                 u"<b>M - p.example (10.0.0.5)</b><br>Location: <i>Not Set</i>; Contact: Ann; Bonjour"_s},
        TextCase{"EmptyDnsNameStillInParentheses",
                 printer({{kPrinterModelStrKey, u"M"},
                          {kDnsNameKey, u""},
                          {kIPAddrStrKey, u"10.0.0.5"},
                          {kQueueConnectionTypeStrKey, u"Raw TCP"}}),
                 u"<b>M -  (10.0.0.5)</b><br>Location: <i>Not Set</i>; Contact: <i>Not Set</i>; Raw TCP"_s},
        TextCase{"Usb", printer({{kPrinterModelStrKey, u"M"}, {kQueueConnectionTypeStrKey, u"USB"}}),
                 u"<b>M</b><br>USB"_s},
        TextCase{"NoQueueTypeIsShownAsUsb",
                 printer({{kPrinterModelStrKey, u"M"},
                          {kIPAddrStrKey, u"10.0.0.5"},
                          {kPrinterLocationKey, u"Lab"}}),
                 u"<b>M</b><br>"_s},
        TextCase{
            "PrinterValuesAreEscaped",
            printer({{kPrinterModelStrKey, u"A&B %2"},
                     {kDnsNameKey, u"<i>h</i>"},
                     {kIPAddrStrKey, u"10.0.0.5"},
                     {kPrinterLocationKey, u"<b>x</b>&"},
                     {kPrinterContactKey, u"%1\""},
                     {kQueueConnectionTypeStrKey, u"<br>"}}),
            u"<b>A&amp;B %2 - &lt;i&gt;h&lt;/i&gt; (10.0.0.5)</b><br>Location: &lt;b&gt;x&lt;/b&gt;&amp;; "
            "Contact: %1&quot;; &lt;br&gt;"_s},
        TextCase{"UsbValuesAreEscaped",
                 printer({{kPrinterModelStrKey, u"<b>x</b>&"}, {kQueueConnectionTypeStrKey, u"USB"}}),
                 u"<b>&lt;b&gt;x&lt;/b&gt;&amp;</b><br>USB"_s}),
    [](const testing::TestParamInfo<TextCase>& param) { return std::string(param.param.name); });

// An images folder with the generic icon and model A's icon; model B's file
// is missing and model C's record names none.
class PrinterPresentationIcon : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        QFile svg(m_dir.filePath(u"Generic Printer icon.svg"_s));
        ASSERT_TRUE(svg.open(QIODevice::WriteOnly));
        svg.write(R"(<svg xmlns="http://www.w3.org/2000/svg" width="48" height="48">)"
                  R"(<rect width="48" height="48" fill="gray"/></svg>)");
        svg.close();
        writeImage(u"Model_A.png"_s);
    }

    void writeImage(const QString& name)
    {
        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(Qt::red);
        ASSERT_TRUE(image.save(m_dir.filePath(name)));
    }

    static QVariantMap supported()
    {
        return {{u"A"_s, QVariantMap{{kPrinterIconImgKey, u"Model_A.png"_s}}},
                {u"B"_s, QVariantMap{{kPrinterIconImgKey, u"Model_B.png"_s}}},
                {u"C"_s, QVariantMap{{kPPDFileNameKey, u"C.ppd"_s}}}};
    }

    static QIcon iconOf(const QVariantMap& printer)
    {
        return printer.value(kPrinterIconImgKey).value<QIcon>();
    }

    static QIcon addIcon(PrinterPresentation& presentation, const QString& model)
    {
        QVariantMap p{{kPrinterModelStrKey, model}};
        presentation.addImageToPrinterDict(p);
        return iconOf(p);
    }

    static qsizetype missLines(const test::LogCapture& log, const QString& model)
    {
        return log.lines().count(u"Image not found in cache for printer model "_s + model);
    }

    QTemporaryDir m_dir;
};

TEST_F(PrinterPresentationIcon, LoadedIconIsCachedPerModel)
{
    test::LogCapture log;
    PrinterPresentation presentation(supported(), m_dir.path());
    ASSERT_FALSE(presentation.genericIcon().isNull());

    const QIcon first = addIcon(presentation, u"A"_s);
    ASSERT_FALSE(first.isNull());
    EXPECT_NE(first.cacheKey(), presentation.genericIcon().cacheKey());

    // The second printer never reads the file.
    ASSERT_TRUE(QFile::remove(m_dir.filePath(u"Model_A.png"_s)));
    EXPECT_EQ(addIcon(presentation, u"A"_s).cacheKey(), first.cacheKey());
    EXPECT_EQ(missLines(log, u"A"_s), 1);
}

TEST_F(PrinterPresentationIcon, ModelWithoutIconGetsGenericEachTime)
{
    for (const QString& model : {u"B"_s, u"C"_s, u"Unknown"_s}) {
        SCOPED_TRACE(model.toStdString());
        test::LogCapture log;
        PrinterPresentation presentation(supported(), m_dir.path());
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(addIcon(presentation, model).cacheKey(), presentation.genericIcon().cacheKey());
        EXPECT_EQ(missLines(log, model), 2);
    }
}

TEST_F(PrinterPresentationIcon, FailureIsNotCachedAndUnreadableFileCountsAsMissing)
{
    PrinterPresentation presentation(supported(), m_dir.path());
    QFile broken(m_dir.filePath(u"Model_B.png"_s));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("not an image");
    broken.close();
    EXPECT_EQ(addIcon(presentation, u"B"_s).cacheKey(), presentation.genericIcon().cacheKey());

    ASSERT_TRUE(QFile::remove(broken.fileName()));
    writeImage(u"Model_B.png"_s);
    const QIcon loaded = addIcon(presentation, u"B"_s);
    EXPECT_FALSE(loaded.isNull());
    EXPECT_NE(loaded.cacheKey(), presentation.genericIcon().cacheKey());
}

} // namespace
} // namespace talvo
