#include "pane/AddPrintQueueSettings.h"

#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/NetworkAddress.h"
#include "pane/Localization.h"
#include "pane/PaneLog.h"

#include "ui_AdvancedSheet.h"

#include <QFont>

namespace talvo {

using namespace Qt::StringLiterals;

namespace {

QString localizedText(const char* key)
{
    const QString value = localizedStringForKey(key);
    qCDebug(lcPane).noquote() << "key" << key << "val"
                              << (value == QLatin1StringView(key) ? u"STRING NOT FOUND"_s : value);
    return value;
}

// A field's address by the one strict rule for addresses: four decimal
// octets. Blanks around it are the user's slip, not part of the address.
std::optional<uint32_t> fieldAddress(const QLineEdit* field)
{
    return parseIPv4Address(field->text().trimmed());
}

} // namespace

AddPrintQueueSettings::AddPrintQueueSettings(PrinterDiscoveryEngine* engine, QWidget* parent)
    : QDialog(parent), m_ui(std::make_unique<Ui::AdvancedSheet>()), m_pdEngine(engine)
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);

    // The radios are not auto-exclusive: the controller keeps exactly one on,
    // so a click on the radio that is already on leaves it on.
    for (QRadioButton* radio : {m_ui->gatewaySubnetRadioButton, m_ui->ipAddressRadioButton})
        connect(radio, &QRadioButton::clicked, this, [this, radio] { radioButtonClicked(radio); });
    for (QLineEdit* field : {m_ui->gatewayTextField, m_ui->subnetTextField, m_ui->ipAddressTextField})
        connect(field, &QLineEdit::textEdited, this, [this, field] { controlTextDidChange(field); });
    for (QPushButton* button : {m_ui->searchButton, m_ui->cancelButton})
        connect(button, &QPushButton::clicked, this, [this, button] { closeAdvancedSheet(button); });

    didLoadNib();
}

AddPrintQueueSettings::~AddPrintQueueSettings() = default;

std::optional<uint32_t> AddPrintQueueSettings::broadcastAddressForSubnet(const QString& gateway,
                                                                         const QString& mask)
{
    const std::optional<uint32_t> network = parseIPv4Address(gateway);
    const std::optional<uint32_t> netmask = parseIPv4Address(mask);
    if (!network || !netmask)
        return std::nullopt;
    return *network | ~*netmask;
}

QPushButton* AddPrintQueueSettings::searchButton() const
{
    return m_ui->searchButton;
}
QPushButton* AddPrintQueueSettings::cancelButton() const
{
    return m_ui->cancelButton;
}
QRadioButton* AddPrintQueueSettings::gatewaySubnetRadioButton() const
{
    return m_ui->gatewaySubnetRadioButton;
}
QRadioButton* AddPrintQueueSettings::ipAddressRadioButton() const
{
    return m_ui->ipAddressRadioButton;
}
QLineEdit* AddPrintQueueSettings::gatewayTextField() const
{
    return m_ui->gatewayTextField;
}
QLineEdit* AddPrintQueueSettings::subnetTextField() const
{
    return m_ui->subnetTextField;
}
QLineEdit* AddPrintQueueSettings::ipAddressTextField() const
{
    return m_ui->ipAddressTextField;
}
QLabel* AddPrintQueueSettings::gatewayInvalidLabel() const
{
    return m_ui->gatewayInvalidLabel;
}
QLabel* AddPrintQueueSettings::subnetInvalidLabel() const
{
    return m_ui->subnetInvalidLabel;
}
QLabel* AddPrintQueueSettings::ipAddressInvalidLabel() const
{
    return m_ui->ipAddressInvalidLabel;
}

void AddPrintQueueSettings::reject()
{
    closeAdvancedSheet(m_ui->cancelButton);
}

void AddPrintQueueSettings::didLoadNib()
{
    m_ui->advancedSheetInfoLabel->setText(localizedText("Advanced Sheet Info Label"));
    m_ui->gatewayInfoLabel->setText(localizedText("Gateway Info Label"));
    m_ui->gatewayLabel->setText(localizedText("Gateway Label"));
    m_ui->ipAddressInfoLabel->setText(localizedText("IP Address Info Label"));
    m_ui->ipAddressLabel->setText(localizedText("IP Address Label"));
    m_ui->subnetMaskLabel->setText(localizedText("Subnet Label"));
    m_ui->searchButton->setText(localizedText("Search Button Title"));
    m_ui->cancelButton->setText(localizedText("Cancel Button Title"));
    // A screen reader names each control as its label reads.
    m_ui->gatewaySubnetRadioButton->setAccessibleName(m_ui->gatewayInfoLabel->text());
    m_ui->ipAddressRadioButton->setAccessibleName(m_ui->ipAddressInfoLabel->text());
    m_ui->gatewayTextField->setAccessibleName(m_ui->gatewayLabel->text());
    m_ui->subnetTextField->setAccessibleName(m_ui->subnetMaskLabel->text());
    m_ui->ipAddressTextField->setAccessibleName(m_ui->ipAddressLabel->text());
    for (QLabel* hint : {m_ui->gatewayInvalidLabel, m_ui->subnetInvalidLabel, m_ui->ipAddressInvalidLabel}) {
        hint->setText(localizedText("AdvancedAddressInvalid"));
        QFont small = hint->font();
        small.setPointSizeF(small.pointSizeF() * 0.85);
        hint->setFont(small);
    }
    setWindowTitle(localizedText("Advanced Sheet Title"));
    setSearchButtonState();
}

void AddPrintQueueSettings::closeAdvancedSheet(QPushButton* sender)
{
    qCInfo(lcPane, "AddPrintQueueSettings: closeAdvancedSheet");
    if (sender == m_ui->searchButton) {
        handTargetToEngine();
        done(QDialog::Accepted);
    } else {
        done(QDialog::Rejected);
    }
}

void AddPrintQueueSettings::handTargetToEngine()
{
    // Search is enabled only while the chosen target's fields hold addresses,
    // so the checks here only guard against a caller that clicks anyway.
    if (m_ui->gatewaySubnetRadioButton->isChecked()) {
        const std::optional<uint32_t> broadcast = broadcastAddressForSubnet(
            m_ui->gatewayTextField->text().trimmed(), m_ui->subnetTextField->text().trimmed());
        if (broadcast)
            m_pdEngine->addSearchAddress(*broadcast);
        else
            qCWarning(lcPane).noquote()
                << "AddPrintQueueSettings: not an address:" << m_ui->gatewayTextField->text()
                << m_ui->subnetTextField->text();
    } else if (m_ui->ipAddressRadioButton->isChecked()) {
        if (const std::optional<uint32_t> address = fieldAddress(m_ui->ipAddressTextField))
            m_pdEngine->askForKnownNetworks(*address);
        else
            qCWarning(lcPane).noquote()
                << "AddPrintQueueSettings: not an address:" << m_ui->ipAddressTextField->text();
    }
}

void AddPrintQueueSettings::setSearchButtonState()
{
    // Each field the chosen target needs must hold an address; one that holds
    // something else says so under it. An empty field only keeps Search off:
    // nothing has been typed wrong yet.
    const bool subnet = m_ui->gatewaySubnetRadioButton->isChecked();
    const bool single = m_ui->ipAddressRadioButton->isChecked();
    bool ready = subnet || single;
    const struct
    {
        QLineEdit* field;
        QLabel* hint;
        bool needed;
    } fields[] = {
        {m_ui->gatewayTextField, m_ui->gatewayInvalidLabel, subnet},
        {m_ui->subnetTextField, m_ui->subnetInvalidLabel, subnet},
        {m_ui->ipAddressTextField, m_ui->ipAddressInvalidLabel, single},
    };
    for (const auto& f : fields) {
        const bool valid = fieldAddress(f.field).has_value();
        if (f.needed && !valid)
            ready = false;
        f.hint->setVisible(f.needed && !valid && !f.field->text().trimmed().isEmpty());
    }
    m_ui->searchButton->setEnabled(ready);
}

void AddPrintQueueSettings::controlTextDidChange(QLineEdit* field)
{
    // Typing into a field chooses its kind of target.
    if (field == m_ui->gatewayTextField || field == m_ui->subnetTextField) {
        if (!m_ui->gatewaySubnetRadioButton->isChecked())
            m_ui->gatewaySubnetRadioButton->click();
    } else if (field == m_ui->ipAddressTextField) {
        if (!m_ui->ipAddressRadioButton->isChecked())
            m_ui->ipAddressRadioButton->click();
    } else {
        return;
    }
    setSearchButtonState();
}

void AddPrintQueueSettings::radioButtonClicked(QRadioButton* sender)
{
    sender->setChecked(true);
    if (sender == m_ui->gatewaySubnetRadioButton)
        m_ui->ipAddressRadioButton->setChecked(false);
    else
        m_ui->gatewaySubnetRadioButton->setChecked(false);
    setSearchButtonState();
}

} // namespace talvo
