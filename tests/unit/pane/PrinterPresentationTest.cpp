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

TEST(PrinterPresentationText, BuildsTheRowHtmlWithPrinterValuesEscaped)
{
    const struct
    {
        QVariantMap printer;
        QString html;
    } cases[] = {
        {{{kPrinterModelStrKey, u"M"_s},
          {kIPAddrStrKey, u"10.0.0.5"_s},
          {kPrinterLocationKey, u"Lab"_s},
          {kQueueConnectionTypeStrKey, u"Raw TCP"_s}},
         u"<b>M - 10.0.0.5</b><br>Location: Lab; Contact: <i>Not Set</i>; Raw TCP"_s},
        {{{kPrinterModelStrKey, u"M"_s},
          {kDnsNameKey, u"p.example"_s},
          {kIPAddrStrKey, u"10.0.0.5"_s},
          {kPrinterLocationKey, u""_s},
          {kPrinterContactKey, u"Ann"_s},
          {kQueueConnectionTypeStrKey, u"Bonjour"_s}},
         u"<b>M - p.example (10.0.0.5)</b><br>Location: <i>Not Set</i>; Contact: Ann; Bonjour"_s},
        // An empty DNS name still gets its parentheses.
        {{{kPrinterModelStrKey, u"M"_s},
          {kDnsNameKey, u""_s},
          {kIPAddrStrKey, u"10.0.0.5"_s},
          {kQueueConnectionTypeStrKey, u"Raw TCP"_s}},
         u"<b>M -  (10.0.0.5)</b><br>Location: <i>Not Set</i>; Contact: <i>Not Set</i>; Raw TCP"_s},
        {{{kPrinterModelStrKey, u"M"_s}, {kQueueConnectionTypeStrKey, u"USB"_s}}, u"<b>M</b><br>USB"_s},
        // No connection type: shown as USB.
        {{{kPrinterModelStrKey, u"M"_s}, {kIPAddrStrKey, u"10.0.0.5"_s}, {kPrinterLocationKey, u"Lab"_s}},
         u"<b>M</b><br>"_s},
        {{{kPrinterModelStrKey, u"A&B %2"_s},
          {kDnsNameKey, u"<i>h</i>"_s},
          {kIPAddrStrKey, u"10.0.0.5"_s},
          {kPrinterLocationKey, u"<b>x</b>&"_s},
          {kPrinterContactKey, u"%1\""_s},
          {kQueueConnectionTypeStrKey, u"<br>"_s}},
         u"<b>A&amp;B %2 - &lt;i&gt;h&lt;/i&gt; (10.0.0.5)</b><br>Location: &lt;b&gt;x&lt;/b&gt;&amp;; "
         "Contact: %1&quot;; &lt;br&gt;"_s},
        {{{kPrinterModelStrKey, u"<b>x</b>&"_s}, {kQueueConnectionTypeStrKey, u"USB"_s}},
         u"<b>&lt;b&gt;x&lt;/b&gt;&amp;</b><br>USB"_s},
    };
    PrinterPresentation presentation({}, {});
    for (auto c : cases) {
        presentation.addDisplayTextToPrinterDict(c.printer);
        EXPECT_EQ(c.printer.value(kPrinterPresentationStrKey).toString(), c.html);
    }
}

// An images folder with the generic icon and model A's icon; model B's file
// is missing and model C's record names none.
class PrinterPresentationIcon : public testing::Test
{
protected:
    void SetUp() override
    {
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

    static qint64 iconKey(PrinterPresentation& presentation, const QString& model)
    {
        QVariantMap p{{kPrinterModelStrKey, model}};
        presentation.addImageToPrinterDict(p);
        return p.value(kPrinterIconImgKey).value<QIcon>().cacheKey();
    }

    QTemporaryDir m_dir;
    const QVariantMap m_supported{{u"A"_s, QVariantMap{{kPrinterIconImgKey, u"Model_A.png"_s}}},
                                  {u"B"_s, QVariantMap{{kPrinterIconImgKey, u"Model_B.png"_s}}},
                                  {u"C"_s, QVariantMap{{kPPDFileNameKey, u"C.ppd"_s}}}};
};

TEST_F(PrinterPresentationIcon, LoadedIconIsCachedPerModel)
{
    test::LogCapture log;
    PrinterPresentation presentation(m_supported, m_dir.path());
    ASSERT_FALSE(presentation.genericIcon().isNull());
    const qint64 first = iconKey(presentation, u"A"_s);
    EXPECT_NE(first, presentation.genericIcon().cacheKey());

    // The second printer never reads the file.
    ASSERT_TRUE(QFile::remove(m_dir.filePath(u"Model_A.png"_s)));
    EXPECT_EQ(iconKey(presentation, u"A"_s), first);
    EXPECT_EQ(log.lines().count(u"Image not found in cache for printer model A"_s), 1);
}

TEST_F(PrinterPresentationIcon, ModelWithoutIconGetsGenericUncachedEachTime)
{
    for (const QString& model : {u"B"_s, u"C"_s, u"Unknown"_s}) {
        SCOPED_TRACE(model.toStdString());
        test::LogCapture log;
        PrinterPresentation presentation(m_supported, m_dir.path());
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(iconKey(presentation, model), presentation.genericIcon().cacheKey());
        EXPECT_EQ(log.lines().count(u"Image not found in cache for printer model "_s + model), 2);
    }

    // A file that is no picture counts as missing; once it is one, it loads.
    PrinterPresentation presentation(m_supported, m_dir.path());
    QFile broken(m_dir.filePath(u"Model_B.png"_s));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write("not an image");
    broken.close();
    EXPECT_EQ(iconKey(presentation, u"B"_s), presentation.genericIcon().cacheKey());
    ASSERT_TRUE(QFile::remove(broken.fileName()));
    writeImage(u"Model_B.png"_s);
    EXPECT_NE(iconKey(presentation, u"B"_s), presentation.genericIcon().cacheKey());
}

} // namespace
} // namespace talvo
