#include "pane/AddPrintQueueSettings.h"

#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/NetworkAddress.h"
#include "pane/Localization.h"
#include "pane/PaneLog.h"

#include "ui_AdvancedSheet.h"

#include <arpa/inet.h>

#include <string_view>

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

// A field's text as the address checks see it: bytes, non-ASCII characters
// replaced, so they can never pass for digits.
bool holdsValidAddress(const QLineEdit* field)
{
    const QByteArray ascii = field->text().toLatin1();
    return isValidIPAddress(std::string_view(ascii.constData(), static_cast<std::size_t>(ascii.size())));
}

std::optional<uint32_t> networkOrderAddress(const QString& text)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.toLatin1().constData(), &address) != 1)
        return std::nullopt;
    return address.s_addr;
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
    const std::optional<uint32_t> network = networkOrderAddress(gateway);
    const std::optional<uint32_t> netmask = networkOrderAddress(mask);
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
    if (m_ui->gatewaySubnetRadioButton->isChecked()) {
        // The loose check that enabled Search accepts texts such as "10.1.2.x"
        // that are no address; those are reported, never searched as 0.
        const std::optional<uint32_t> broadcast =
            broadcastAddressForSubnet(m_ui->gatewayTextField->text(), m_ui->subnetTextField->text());
        if (broadcast)
            m_pdEngine->addSearchAddress(*broadcast);
        else
            qCWarning(lcPane).noquote()
                << "AddPrintQueueSettings: not an address:" << m_ui->gatewayTextField->text()
                << m_ui->subnetTextField->text();
    } else if (m_ui->ipAddressRadioButton->isChecked()) {
        const std::optional<uint32_t> address = networkOrderAddress(m_ui->ipAddressTextField->text());
        if (address)
            m_pdEngine->askForKnownNetworks(*address);
        else
            qCWarning(lcPane).noquote()
                << "AddPrintQueueSettings: not an address:" << m_ui->ipAddressTextField->text();
    }
}

void AddPrintQueueSettings::setSearchButtonState()
{
    const bool subnetReady = m_ui->gatewaySubnetRadioButton->isChecked() &&
                             holdsValidAddress(m_ui->gatewayTextField) &&
                             holdsValidAddress(m_ui->subnetTextField);
    const bool addressReady =
        m_ui->ipAddressRadioButton->isChecked() && holdsValidAddress(m_ui->ipAddressTextField);
    m_ui->searchButton->setEnabled(subnetReady || addressReady);
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
