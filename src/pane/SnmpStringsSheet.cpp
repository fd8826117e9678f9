#include "pane/SnmpStringsSheet.h"

#include "discovery/PrinterDiscoveryEngine.h"
#include "pane/Localization.h"
#include "pane/PaneLog.h"

#include "ui_SnmpStringsSheet.h"

#include <QMessageBox>

namespace talvo {

SnmpStringsSheet::SnmpStringsSheet(PrinterDiscoveryEngine* engine, QWidget* parent)
    : QDialog(parent), m_ui(std::make_unique<Ui::SnmpStringsSheet>()), m_engine(engine)
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);

    for (QPushButton* button : {m_ui->snmpOKButton, m_ui->snmpCancelButton})
        connect(button, &QPushButton::clicked, this, [this, button] { closeSnmpStringsSheet(button); });
    for (QLineEdit* field : {m_ui->snmpGetTextField, m_ui->snmpSetTextField})
        connect(field, &QLineEdit::textEdited, this, [this] { controlTextDidChange(); });
    // The outcome travels in m_snmpSheetDlgResult, not in the result code.
    connect(this, &QDialog::finished, this, &SnmpStringsSheet::snmpStringsSheetDidEnd);
}

SnmpStringsSheet::~SnmpStringsSheet() = default;

QLineEdit* SnmpStringsSheet::getTextField() const
{
    return m_ui->snmpGetTextField;
}
QLineEdit* SnmpStringsSheet::setTextField() const
{
    return m_ui->snmpSetTextField;
}
QPushButton* SnmpStringsSheet::okButton() const
{
    return m_ui->snmpOKButton;
}
QPushButton* SnmpStringsSheet::cancelButton() const
{
    return m_ui->snmpCancelButton;
}

void SnmpStringsSheet::showSNMPStringsSheet()
{
    m_ui->snmpGetCommunityLabel->setText(localizedStringForKey("SNMP Get Community Label"));
    m_ui->snmpSetCommunityLabel->setText(localizedStringForKey("SNMP Set Community Label"));
    m_ui->snmpGetTextField->setText(m_engine->readCommunity());
    m_ui->snmpSetTextField->setText(m_engine->writeCommunity());
    m_ui->snmpGetTextField->setAccessibleName(m_ui->snmpGetCommunityLabel->text());
    m_ui->snmpSetTextField->setAccessibleName(m_ui->snmpSetCommunityLabel->text());
    m_ui->snmpOKButton->setText(localizedStringForKey("OK"));
    m_ui->snmpCancelButton->setText(localizedStringForKey("Cancel Button Title"));
    setWindowTitle(localizedStringForKey("SNMP Sheet Title"));
    controlTextDidChange();
    open();
}

void SnmpStringsSheet::reject()
{
    closeSnmpStringsSheet(m_ui->snmpCancelButton);
}

void SnmpStringsSheet::closeSnmpStringsSheet(QPushButton* sender)
{
    m_snmpSheetDlgResult = sender == m_ui->snmpOKButton;
    done(m_snmpSheetDlgResult ? QDialog::Accepted : QDialog::Rejected);
}

void SnmpStringsSheet::snmpStringsSheetDidEnd()
{
    // Both strings go to the engine even when unchanged: its own rule decides
    // whether anything is marked changed and written.
    if (m_snmpSheetDlgResult) {
        m_engine->setReadCommunity(m_ui->snmpGetTextField->text());
        m_engine->setWriteCommunity(m_ui->snmpSetTextField->text());
        if (const Status saved = m_engine->saveUserPreferences(); !saved)
            showSaveFailure(saved.message());
    }
    qCInfo(lcPane, "snmpStringsSheetDidEnd");
}

void SnmpStringsSheet::showSaveFailure(const QString& message)
{
    // The strings are in use for this session either way; the alert says they
    // will not be there next time, and why. The engine keeps them pending, so
    // the next OK tries the file again. Over the pane, as the sheet has closed.
    auto* alert = new QMessageBox(parentWidget());
    alert->setObjectName(QStringLiteral("preferencesNotSavedAlert"));
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::WindowModal);
    alert->setIcon(QMessageBox::Warning);
    alert->setWindowTitle(localizedStringForKey("Preferences Not Saved"));
    alert->setTextFormat(Qt::PlainText);
    alert->setText(message);
    alert->setStandardButtons(QMessageBox::Ok);
    alert->open();
}

void SnmpStringsSheet::controlTextDidChange()
{
    // Both communities are saved and used together, and a blank one is never
    // usable (snmpget would take its next argument for an empty one).
    m_ui->snmpOKButton->setEnabled(!m_ui->snmpGetTextField->text().trimmed().isEmpty() &&
                                   !m_ui->snmpSetTextField->text().trimmed().isEmpty());
}

} // namespace talvo
