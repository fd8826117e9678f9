#include "pane/PrinterListModel.h"

#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/DictionaryKeys.h"
#include "pane/PaneLog.h"
#include "pane/PrinterPresentation.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QIcon>
#include <QPainter>
#include <QStyle>
#include <QTextDocument>

#include <algorithm>

namespace talvo {

namespace {

constexpr int kIconSize = 48;
constexpr int kMargin = 4;

bool isUSB(const QVariantMap& printer)
{
    const QVariant type = printer.value(kQueueConnectionTypeStrKey);
    return type.typeId() == QMetaType::QString && type.toString() == kQueueTypeUSB;
}

} // namespace

PrinterListModel::PrinterListModel(QObject* parent) : QAbstractListModel(parent) {}

void PrinterListModel::setPresentation(PrinterPresentation* presentation)
{
    m_presentation = presentation;
    if (!m_printers.isEmpty())
        Q_EMIT dataChanged(index(0), index(static_cast<int>(m_printers.size()) - 1), {Qt::DecorationRole});
}

void PrinterListModel::followEngine(PrinterDiscoveryEngine* engine)
{
    connect(engine, &PrinterDiscoveryEngine::printerDiscovered, this, [this](const QVariantMap& printer) {
        qCInfo(lcPane).noquote() << QStringLiteral("TalvoAddPrintQueuePane: addDiscoveredPrinter: %1")
                                        .arg(printer.value(kIPAddrStrKey).toString());
        placeNewPrinterInDiscoveryList(printer);
    });
    connect(engine, &PrinterDiscoveryEngine::usbPrinterDisconnected, this,
            &PrinterListModel::disconnectedUSBPrinter);
}

int PrinterListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_printers.size());
}

QVariant PrinterListModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const QVariantMap& printer = m_printers.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return PrinterPresentation::displayText(printer);
    case Qt::DecorationRole:
        return m_presentation ? QVariant::fromValue(m_presentation->iconForPrinter(printer)) : QVariant();
    case PrinterRole:
        return printer;
    default:
        return {};
    }
}

QHash<int, QByteArray> PrinterListModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractListModel::roleNames();
    names.insert(PrinterRole, QByteArrayLiteral("printer"));
    return names;
}

QVariantMap PrinterListModel::printerAt(int row) const
{
    return row >= 0 && row < m_printers.size() ? m_printers.at(row) : QVariantMap();
}

bool PrinterListModel::printerExists(const QVariantMap& printer) const
{
    // The same address may be listed once per connection type (a printer
    // found by broadcast and by Bonjour is offered both ways).
    const QVariant type = printer.value(kQueueConnectionTypeStrKey);
    const QVariant address = printer.value(kIPAddrStrKey);
    for (const QVariantMap& listed : m_printers) {
        const auto listedAddress = listed.constFind(kIPAddrStrKey);
        if (listedAddress == listed.cend())
            continue;
        if (listed.value(kQueueConnectionTypeStrKey) != type)
            continue;
        if (*listedAddress == address)
            return true;
    }
    return false;
}

bool PrinterListModel::placeNewPrinterInDiscoveryList(const QVariantMap& printer)
{
    if (printerExists(printer))
        return false;
    appendPrinter(printer);
    return true;
}

void PrinterListModel::appendPrinter(const QVariantMap& printer)
{
    const int row = static_cast<int>(m_printers.size());
    beginInsertRows(QModelIndex(), row, row);
    m_printers.append(printer);
    endInsertRows();
}

void PrinterListModel::disconnectedUSBPrinter()
{
    // From the end, so the rows still to check keep their numbers.
    for (qsizetype row = m_printers.size() - 1; row >= 0; --row) {
        if (!isUSB(m_printers.at(row)))
            continue;
        beginRemoveRows(QModelIndex(), static_cast<int>(row), static_cast<int>(row));
        m_printers.removeAt(row);
        endRemoveRows();
    }
}

namespace {

// The row's text laid out for the width left beside the icon; no width (a
// size asked before layout) lays it out at its natural width.
void layOut(QTextDocument& document, const QStyleOptionViewItem& option, const QModelIndex& index)
{
    document.setDefaultFont(option.font);
    document.setDocumentMargin(0);
    document.setHtml(index.data(Qt::DisplayRole).toString());
    const int width = option.rect.width() - kIconSize - 3 * kMargin;
    if (width > 0)
        document.setTextWidth(width);
}

} // namespace

void PrinterItemDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                const QModelIndex& index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QWidget* widget = opt.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();

    // The whole row shows the selection, icon included, whatever the style's
    // habit; hover and alternating rows are left to the style.
    const bool selected = opt.state.testFlag(QStyle::State_Selected);
    const QPalette::ColorGroup group =
        opt.state.testFlag(QStyle::State_Enabled) ? QPalette::Normal : QPalette::Disabled;
    opt.text.clear();
    opt.icon = QIcon();
    if (selected)
        painter->fillRect(opt.rect, opt.palette.brush(group, QPalette::Highlight));
    else
        style->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, widget);

    painter->save();
    const QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
    const QRect iconRect(opt.rect.left() + kMargin, opt.rect.top() + (opt.rect.height() - kIconSize) / 2,
                         kIconSize, kIconSize);
    if (!icon.isNull())
        icon.paint(painter, iconRect, Qt::AlignCenter, selected ? QIcon::Selected : QIcon::Normal);

    QTextDocument document;
    layOut(document, option, index);
    const QPoint textOrigin(iconRect.right() + 1 + 2 * kMargin,
                            opt.rect.top() +
                                (opt.rect.height() - static_cast<int>(document.size().height())) / 2);
    painter->translate(textOrigin);
    QAbstractTextDocumentLayout::PaintContext context;
    context.palette.setColor(QPalette::Text,
                             opt.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text));
    context.clip = QRectF(0, 0, opt.rect.right() - textOrigin.x(), opt.rect.height());
    painter->setClipRect(context.clip);
    document.documentLayout()->draw(painter, context);
    painter->restore();
}

QSize PrinterItemDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QTextDocument document;
    layOut(document, option, index);
    const QSizeF text = document.size();
    const int width = kIconSize + 3 * kMargin + static_cast<int>(text.width());
    const int height = std::max(kIconSize, static_cast<int>(text.height())) + 2 * kMargin;
    return {width, height};
}

} // namespace talvo
