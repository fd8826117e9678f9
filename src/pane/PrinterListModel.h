#pragma once

// The discovered-printer list: printer dictionaries in the order they were
// found, shown by their icon and rich display text.
//
//     auto* model = new talvo::PrinterListModel(listView);
//     listView->setModel(model);
//     listView->setItemDelegate(new talvo::PrinterItemDelegate(listView));
//     model->placeNewPrinterInDiscoveryList(printer); // appended unless listed

#include <QAbstractListModel>
#include <QList>
#include <QStyledItemDelegate>
#include <QVariantMap>

namespace talvo {

class PrinterListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role {
        PrinterRole = Qt::UserRole + 1, // the row's whole QVariantMap
    };

    explicit PrinterListModel(QObject* parent = nullptr);

    // DisplayRole: "presentationText" (HTML); DecorationRole: "printerIcon".
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
