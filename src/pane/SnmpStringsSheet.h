#pragma once

// The sheet in which the user sees and changes the SNMP read ("get") and
// write ("set") communities of the discovery engine. One sheet serves every
// opening; its fields are refilled from the engine each time, so a cancelled
// edit is discarded. Accepted values go to the engine, which saves them in
// the user preferences when they changed; a failed save is shown in an alert
// naming the file and the reason. OK is enabled only while both fields hold
// more than blanks. GUI thread only.
//
//     m_snmpSheet = new talvo::SnmpStringsSheet(engine, this);
//     connect(snmpButton, &QPushButton::clicked, m_snmpSheet,
//     &talvo::SnmpStringsSheet::showSNMPStringsSheet);

#include <QDialog>

#include <memory>

class QLineEdit;
class QPushButton;

namespace Ui {
class SnmpStringsSheet;
}

namespace talvo {

class PrinterDiscoveryEngine;

class SnmpStringsSheet : public QDialog
{
    Q_OBJECT

public:
    SnmpStringsSheet(PrinterDiscoveryEngine* engine, QWidget* parent);
    ~SnmpStringsSheet() override;

    QLineEdit* getTextField() const;
    QLineEdit* setTextField() const;
    QPushButton* okButton() const;
    QPushButton* cancelButton() const;
    // Whether the sheet was last closed with OK.
    bool snmpSheetDlgResult() const { return m_snmpSheetDlgResult; }

public Q_SLOTS:
    // Refills the labels, fields and buttons from the engine and opens the
    // sheet, window-modal.
    void showSNMPStringsSheet();
    // Escape and the window's close button act as Cancel.
    void reject() override;

private:
    void closeSnmpStringsSheet(QPushButton* sender);
    void snmpStringsSheetDidEnd();
    // A window-modal alert over the pane with the reason the preferences
    // could not be written (it names the file).
    void showSaveFailure(const QString& message);
    // OK only while both fields hold more than blanks.
    void controlTextDidChange();

    std::unique_ptr<Ui::SnmpStringsSheet> m_ui;
    PrinterDiscoveryEngine* m_engine;
    bool m_snmpSheetDlgResult = false;
};

} // namespace talvo
