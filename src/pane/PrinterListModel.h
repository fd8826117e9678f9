#pragma once

// The discovered-printer list: printer dictionaries in the order they were
// found, as the engine announces them, shown by an icon and rich text the
// model works out itself. The dictionaries stay data only.
//
//     auto* model = new talvo::PrinterListModel(listView);
//     model->setPresentation(presentation);   // icons and texts
//     model->followEngine(engine);            // every printer found, once
//     listView->setModel(model);
//     listView->setItemDelegate(new talvo::PrinterItemDelegate(listView));

#include <QAbstractListModel>
#include <QList>
#include <QStyledItemDelegate>
#include <QVariantMap>

namespace talvo {

class PrinterDiscoveryEngine;
class PrinterPresentation;

class PrinterListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        PrinterRole = Qt::UserRole + 1, // the row's whole QVariantMap
    };

    explicit PrinterListModel(QObject* parent = nullptr);

    // Where rows get their icon; without one they show no icon. Not owned.
    void setPresentation(PrinterPresentation* presentation);
    // Lists each printer the engine discovers (unless listed) and drops the
    // USB rows when a USB printer goes. Not owned.
    void followEngine(PrinterDiscoveryEngine* engine);

    // DisplayRole: the printer's rich text; DecorationRole: its icon;
    // PrinterRole: its dictionary.
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;

    QList<QVariantMap> printers() const { return m_printers; }
    // An empty map for a row out of range.
    QVariantMap printerAt(int row) const;

    // True when a listed printer has the same "queueType" (both absent counts
    // as the same) and the same "ipAddr"; rows without "ipAddr" never match.
    bool printerExists(const QVariantMap& printer) const;
    // Appends the printer unless printerExists; true when appended.
    bool placeNewPrinterInDiscoveryList(const QVariantMap& printer);
    // Appends without a duplicate check (a loaded list is shown as saved).
    void appendPrinter(const QVariantMap& printer);
    // A USB printer went away: which one is unknown, so every row whose
    // "queueType" is "USB" leaves; the next USB discovery lists the rest again.
    void disconnectedUSBPrinter();

private:
    QList<QVariantMap> m_printers;
    PrinterPresentation* m_presentation = nullptr;
};

// Paints a row as its icon at the left and its rich text beside it.
class PrinterItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace talvo
