#include "pane/PrinterListModel.h"

#include "foundation/DictionaryKeys.h"
#include "pane/PrinterPresentation.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QIcon>
#include <QImage>
#include <QPainter>
#include <QStyleOptionViewItem>
#include <QTemporaryDir>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

// A printer with an address and a connection type; a null one leaves the key out.
QVariantMap printer(const QString& ip, const QString& type, const QString& id = {})
{
    QVariantMap map{{kPrinterModelStrKey, id}};
    if (!ip.isNull())
        map.insert(kIPAddrStrKey, ip);
    if (!type.isNull())
        map.insert(kQueueConnectionTypeStrKey, type);
    return map;
}

QStringList models(const PrinterListModel& model)
{
    QStringList ids;
    for (const QVariantMap& p : model.printers())
        ids << p.value(kPrinterModelStrKey).toString();
    return ids;
}

class PrinterListModelTest : public testing::Test
{
protected:
    PrinterListModel m_model;
    QAbstractItemModelTester m_tester{&m_model, QAbstractItemModelTester::FailureReportingMode::Fatal};
};

TEST_F(PrinterListModelTest, PrintersAreListedOncePerAddressAndConnectionType)
{
    // (address, type), a null one left out; the second 10.0.0.5 over Raw TCP is refused.
    const QString rows[][2] = {{u"10.0.0.5"_s, u"Raw TCP"_s}, {{}, u"Raw TCP"_s},
                               {u"10.0.0.6"_s, {}},           {u"10.0.0.7"_s, u"USB"_s},
                               {u"10.0.0.5"_s, u"Raw TCP"_s}, {u"10.0.0.5"_s, u"Bonjour"_s}};
    for (int i = 0; const auto& [ip, type] : rows) {
        EXPECT_EQ(m_model.placeNewPrinterInDiscoveryList(printer(ip, type, QString::number(i))), i != 4);
        ++i;
    }
    EXPECT_EQ(models(m_model), (QStringList{u"0"_s, u"1"_s, u"2"_s, u"3"_s, u"5"_s}));
    EXPECT_TRUE(m_model.printerAt(5).isEmpty());

    const struct
    {
        QVariantMap candidate;
        bool exists;
    } cases[] = {
        {printer(u"10.0.0.5"_s, u"LPD"_s), false}, {printer(u"10.0.0.5"_s, {}), false},
        {printer(u"10.0.0.6"_s, {}), true},        {printer(u"10.0.0.6"_s, u"Raw TCP"_s), false},
        {printer({}, u"Raw TCP"_s), false}, // the row without an address is skipped
        {printer(u"10.0.0.7"_s, u"USB"_s), true},  {printer(u"10.0.0.8"_s, u"Raw TCP"_s), false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(m_model.printerExists(c.candidate), c.exists) << testing::PrintToString(c.candidate);
}

TEST_F(PrinterListModelTest, UsbDisconnectRemovesEveryUsbRowOnly)
{
    m_model.appendPrinter(printer(u"usb1"_s, u"USB"_s, u"usb1"_s));
    m_model.appendPrinter(printer(u"usb2"_s, u"USB"_s, u"usb2"_s));
    m_model.appendPrinter(printer(u"10.0.0.5"_s, u"Raw TCP"_s, u"net"_s));
    m_model.appendPrinter(printer(u"usb3"_s, u"USB"_s, u"usb3"_s));
    m_model.appendPrinter(printer(u"10.0.0.6"_s, {}, u"untyped"_s));
    m_model.appendPrinter(printer(u"usb4"_s, u"usb"_s, u"lower"_s));
    m_model.disconnectedUSBPrinter();
    EXPECT_EQ(models(m_model), (QStringList{u"net"_s, u"untyped"_s, u"lower"_s}));
}

TEST_F(PrinterListModelTest, RolesAndDelegateShowIconAndText)
{
    // The model's icon from the presentation; the dictionary stays data only.
    QTemporaryDir images;
    QImage red(48, 48, QImage::Format_ARGB32);
    red.fill(Qt::red);
    ASSERT_TRUE(red.save(images.filePath(u"red.png"_s)));
    PrinterPresentation presentation({{u"M"_s, QVariantMap{{kPrinterIconImgKey, u"red.png"_s}}}},
                                     images.path());
    m_model.setPresentation(&presentation);
    QVariantMap p = printer(u"10.0.0.5"_s, u"Raw TCP"_s, u"M"_s);
    p.insert(kPrinterLocationKey, u"Lab"_s);
    m_model.appendPrinter(p);
    m_model.appendPrinter(printer(u"usb"_s, u"USB"_s, u"M"_s));

    const QModelIndex index = m_model.index(0);
    EXPECT_EQ(index.data(PrinterListModel::PrinterRole).toMap(), p);
    EXPECT_EQ(index.data(Qt::DisplayRole).toString(), PrinterPresentation::socketDisplayText(p));
    EXPECT_EQ(m_model.index(1).data(Qt::DisplayRole).toString(), u"<b>M</b><br>USB"_s);

    PrinterItemDelegate delegate;
    QStyleOptionViewItem option;
    option.rect = QRect(0, 0, 300, 60);
    option.state = QStyle::State_Enabled | QStyle::State_Selected;
    EXPECT_GE(delegate.sizeHint(option, index).height(), 48);

    // The icon at the left as it is; a selected row in the highlight colour.
    for (const bool selected : {false, true}) {
        option.state.setFlag(QStyle::State_Selected, selected);
        QImage canvas(300, 60, QImage::Format_ARGB32);
        canvas.fill(Qt::white);
        {
            QPainter painter(&canvas);
            delegate.paint(&painter, option, index);
        }
        if (selected) {
            EXPECT_EQ(canvas.pixelColor(298, 58), option.palette.color(QPalette::Highlight));
        } else {
            EXPECT_EQ(canvas.pixelColor(10, 30), QColor(Qt::red));
            QImage blank(236, 60, QImage::Format_ARGB32);
            blank.fill(Qt::white);
            EXPECT_FALSE(canvas.copy(64, 0, 236, 60) == blank) << "the text is drawn beside the icon";
        }
    }
}

} // namespace
} // namespace talvo
