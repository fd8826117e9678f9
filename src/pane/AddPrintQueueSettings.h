#pragma once

// The Advanced Search sheet: the user adds one search target beyond the local
// networks, either a remote subnet (its network address and mask) or a single
// printer address, and the sheet hands it to the discovery engine.
//
//     auto* sheet = new talvo::AddPrintQueueSettings(engine, window());
//     connect(sheet, &QDialog::finished, sheet, &QObject::deleteLater);
//     sheet->open();   // window-modal; Search hands the target over

#include <QDialog>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

namespace Ui {
class AdvancedSheet;
}

namespace talvo {

class PrinterDiscoveryEngine;

class AddPrintQueueSettings : public QDialog
{
    Q_OBJECT

public:
    AddPrintQueueSettings(PrinterDiscoveryEngine* engine, QWidget* parent);
    ~AddPrintQueueSettings() override;

    // The broadcast address of the subnet (gateway OR NOT mask, bitwise on
    // the network-order values): host bits of the gateway stay where the mask
    // is 1 and are set where it is 0. nullopt when either text is not four
    // decimal octets (parseIPv4Address).
    static std::optional<uint32_t> broadcastAddressForSubnet(const QString& gateway, const QString& mask);

    QPushButton* searchButton() const;
    QPushButton* cancelButton() const;
    QRadioButton* gatewaySubnetRadioButton() const;
    QRadioButton* ipAddressRadioButton() const;
    QLineEdit* gatewayTextField() const;
    QLineEdit* subnetTextField() const;
    QLineEdit* ipAddressTextField() const;
    // The hints under the fields, shown while a field the chosen target needs
    // holds text that is not four decimal octets.
    QLabel* gatewayInvalidLabel() const;
    QLabel* subnetInvalidLabel() const;
    QLabel* ipAddressInvalidLabel() const;

public Q_SLOTS:
    // Escape and the window's close button act as Cancel.
    void reject() override;

private:
    void didLoadNib();
    void closeAdvancedSheet(QPushButton* sender);
    void setSearchButtonState();
    void controlTextDidChange(QLineEdit* field);
    void radioButtonClicked(QRadioButton* sender);
    void handTargetToEngine();

    std::unique_ptr<Ui::AdvancedSheet> m_ui;
    PrinterDiscoveryEngine* m_pdEngine;
};

} // namespace talvo
