#include "pane/TalvoAddPrintQueuePane.h"

#include "discovery/PrinterDiscoveryEngine.h"
#include "discovery/WalkupMethod.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/Settings.h"
#include "pane/AddPrintQueueSettings.h"
#include "pane/DiscoveredListFile.h"
#include "pane/Localization.h"
#include "pane/PaneLog.h"
#include "pane/PrinterListModel.h"
#include "pane/PrinterPresentation.h"
#include "pane/SnmpStringsSheet.h"
#include "queue/QueueCreation.h"
#include "ui_TalvoAddPrintQueuePane.h"

#include <QFile>
#include <QFont>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPushButton>
#include <QWizard>

using namespace Qt::StringLiterals;

namespace talvo {

Q_LOGGING_CATEGORY(lcPane, "talvo.pane")

namespace {

QString tx(const char* key)
{
    return localizedStringForKey(key);
}

const char* displayModeName(int mode)
{
    switch (mode) {
    case TalvoAddPrintQueuePane::manualAddEmptyAddress:
        return "manualAddEmptyAddress";
    case TalvoAddPrintQueuePane::manualAddProcessing:
        return "manualAddProcessing";
    case TalvoAddPrintQueuePane::manualAddInvalidAddress:
        return "manualAddInvalidAddress";
    case TalvoAddPrintQueuePane::manualAddNoHostAtAddress:
        return "manualAddNoHostAtAddress";
    case TalvoAddPrintQueuePane::manualAddNotPrinterAtAddress:
        return "manualAddNotPrinterAtAddress";
    case TalvoAddPrintQueuePane::manualAddUnknownPrinterAtAddress:
        return "manualAddUnknownPrinterAtAddress";
    case TalvoAddPrintQueuePane::manualAddUnsupportedPrinterAtAddress:
        return "manualAddUnsupportedPrinterAtAddress";
    case TalvoAddPrintQueuePane::manualAddSupportedPrinterAtAddress:
        return "manualAddSupportedPrinterAtAddress";
    default:
        return nullptr;
    }
}

} // namespace

void PopUpModelMenu::showPopup()
{
    Q_EMIT willPopUp();
    QComboBox::showPopup();
}

TalvoAddPrintQueuePane::TalvoAddPrintQueuePane(QWidget* parent) : TalvoAddPrintQueuePane(Options{}, parent) {}

TalvoAddPrintQueuePane::TalvoAddPrintQueuePane(Options options, QWidget* parent)
    : InstallerPane(parent), m_options(std::move(options)),
      m_ui(std::make_unique<Ui::TalvoAddPrintQueuePane>())
{
    m_ui->setupUi(this);
    // The mode buttons switch the tabs; the hidden tab bar takes no focus.
    m_ui->createModeTabView->tabBar()->hide();
    m_ui->createModeTabView->setFocusPolicy(Qt::NoFocus);
    m_ui->queueProgressIndicator->hide();
    m_ui->queueProgressLabel->hide();

    m_listModel = new PrinterListModel(this);
    m_ui->discPrintersListView->setModel(m_listModel);
    m_ui->discPrintersListView->setItemDelegate(new PrinterItemDelegate(m_ui->discPrintersListView));

    for (QAbstractButton* button : {static_cast<QAbstractButton*>(m_ui->walkupButton),
                                    static_cast<QAbstractButton*>(m_ui->discoverButton),
                                    static_cast<QAbstractButton*>(m_ui->manualButton)}) {
        // The images draw the pressed state themselves; the style's own
        // sunken frame would only sit behind them.
        // Keyboard focus stays visible all the same.
        button->setStyleSheet(
            u"QToolButton { border: 2px solid transparent; background: transparent; padding: 0; }"
            u"QToolButton:focus { border-color: palette(highlight); }"_s);
        button->setFocusPolicy(Qt::StrongFocus);
        connect(button, &QAbstractButton::clicked, this, [this, button] { modeButtonPress(button); });
    }
    connect(m_ui->discPrintersListView, &QAbstractItemView::doubleClicked, this,
            [this](const QModelIndex& index) {
                QList<QVariantMap> selection;
                if (index.isValid())
                    selection.append(m_listModel->printerAt(index.row()));
                createPrinterFromDiscoveryListDoubleClick(selection);
            });
    // Return on the list does what Continue does.
    m_ui->discPrintersListView->installEventFilter(this);
    connect(m_ui->advancedButton, &QPushButton::clicked, this, &TalvoAddPrintQueuePane::doAdvancedSheet);
    connect(m_ui->snmpButton, &QPushButton::clicked, this, &TalvoAddPrintQueuePane::showSNMPStringsSheet);
    connect(m_ui->saveListButton, &QPushButton::clicked, this,
            &TalvoAddPrintQueuePane::writeDiscoveredListToFile);
    connect(m_ui->loadListButton, &QPushButton::clicked, this,
            &TalvoAddPrintQueuePane::loadDiscoveredListFromFile);
    // Only the user's edits count: the field's initial text is set, not typed.
    m_addressCheck = new ManualAddressCheck(
        ManualAddressCheck::realServices(),
        [this] {
            // The engine's community: the one the user may have changed in
            // the SNMP sheet, not only the one the settings started with.
            ProbeSettings settings = ProbeSettings::fromPluginSettings(m_settingsDict);
            if (m_engine)
                settings.community = m_engine->readCommunity();
            return settings;
        },
        this);
    connect(m_addressCheck, &ManualAddressCheck::changed, this, &TalvoAddPrintQueuePane::renderManualCheck);
    connect(m_ui->addressTextField, &QLineEdit::textEdited, m_addressCheck, &ManualAddressCheck::setText);
    connect(m_ui->printerModelSelectMenu, &PopUpModelMenu::willPopUp, this,
            &TalvoAddPrintQueuePane::printerModelSelectedPopupClicked);
    // A model chosen with the arrow keys or the wheel counts as much as one
    // chosen from the opened menu: the title goes as soon as it is left.
    connect(m_ui->printerModelSelectMenu, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index > 0)
            printerModelSelectedPopupClicked();
    });
}

TalvoAddPrintQueuePane::~TalvoAddPrintQueuePane()
{
    // Threads first: none of them may post to a pane that is going away.
    delete m_addressCheck;
    m_creator.reset();
}

QString TalvoAddPrintQueuePane::title() const
{
    return tx("PaneTitle");
}

// --- Entering and leaving ----------------------------------------------------

void TalvoAddPrintQueuePane::setUpOnce()
{
    m_settingsLoaded = true;
    if (const auto settings = getSettingsDict())
        m_settingsDict = *settings;
    const QString vendorWord = m_settingsDict.value(kVendorKey).toString();
    if (!vendorWord.isEmpty())
        setVendor(vendorWord);

    m_discoverySettings = m_settingsDict.value(kDiscoverySettingsKey).toMap();
    m_useBroadcastDiscovery = m_discoverySettings.value(useSorlenDiscoveryKey).toBool();
    m_useWalkup = m_discoverySettings.value(useSorlenWalkupKey).toBool();

    m_ui->discoverPrintersLabel->setText(tx("Discovered Printers"));
    if (!m_useBroadcastDiscovery)
        m_ui->advancedButton->hide();
    else
        m_ui->advancedButton->setText(tx("Advanced Search"));
    // Without walkup its button goes; the layout centres the other two.
    if (!m_useWalkup) {
        m_ui->walkupButton->hide();
    } else {
        m_ui->walkupButton->setToolTip(tx("Walkup Button Tooltip"));
        QFile walkup(localizedResourcePath(pathForPluginResources(), u"Walkup"_s, u"html"_s));
        if (walkup.open(QIODevice::ReadOnly))
            m_ui->walkupText->setHtml(QString::fromUtf8(walkup.readAll()));
    }
    m_ui->discoverButton->setToolTip(tx("Discover Button Tooltip"));
    m_ui->manualButton->setToolTip(tx("Manual Button Tooltip"));
    nameForScreenReaders();
    m_ui->snmpButton->setText(tx("SNMP"));
    m_ui->saveListButton->setText(tx("Save List"));
    m_ui->loadListButton->setText(tx("Load List"));

    m_supportedPrintersDict = m_settingsDict.value(kSupportedPrintersKey).toMap();
    m_supportedPrintersArray = m_supportedPrintersDict.keys();
    m_presentation = std::make_unique<PrinterPresentation>(m_supportedPrintersDict,
                                                           pathForPluginResources() + u"/images"_s);
    m_listModel->setPresentation(m_presentation.get());
    loadImagesFromBundle();
    populateManualModelChoiceMenu();
}

void TalvoAddPrintQueuePane::nameForScreenReaders()
{
    // The mode buttons are pictures: their names and tooltips say which mode
    // each one opens. Controls without text of their own are named after
    // what they show.
    const struct
    {
        QWidget* widget;
        QString name;
        QString description;
    } controls[] = {
        {m_ui->walkupButton, tx("Walkup Mode"), tx("Walkup Button Tooltip")},
        {m_ui->discoverButton, tx("Discovered Mode"), tx("Discover Button Tooltip")},
        {m_ui->manualButton, tx("Manual Mode"), tx("Manual Button Tooltip")},
        {m_ui->discPrintersListView, tx("Discovered Printers"), {}},
        {m_ui->addressTextField, tx("IP Address or DNS Name").remove(u':'), {}},
        {m_ui->printerModelSelectMenu, tx("Select Printer Model").remove(u':'), {}},
        {m_ui->walkupText, tx("Walkup Instructions"), {}},
        {m_ui->discoveryProgInd, tx("Searching For Printers"), {}},
        {m_ui->manualProgressIndicator, tx("Checking The Address"), {}},
        {m_ui->queueProgressIndicator, tx("Creating Print Queue"), {}},
    };
    for (const auto& c : controls) {
        c.widget->setAccessibleName(c.name);
        if (!c.description.isEmpty())
            c.widget->setAccessibleDescription(c.description);
    }
    // Tab goes through the modes, then the chosen mode's controls, then the
    // buttons under them.
    QWidget* const order[] = {m_ui->walkupButton,         m_ui->discoverButton, m_ui->manualButton,
                              m_ui->discPrintersListView, m_ui->advancedButton, m_ui->saveListButton,
                              m_ui->loadListButton,       m_ui->snmpButton};
    for (std::size_t i = 1; i < std::size(order); ++i)
        QWidget::setTabOrder(order[i - 1], order[i]);
    QWidget::setTabOrder(m_ui->addressTextField, m_ui->printerModelSelectMenu);
}

bool TalvoAddPrintQueuePane::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_ui->discPrintersListView && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if ((key == Qt::Key_Return || key == Qt::Key_Enter) && wizard() && isComplete()) {
            wizard()->next();
            return true;
        }
    }
    return InstallerPane::eventFilter(watched, event);
}

void TalvoAddPrintQueuePane::loadImagesFromBundle()
{
    const QString images = pathForPluginResources() + u"/images/"_s;
    const auto modeIcon = [&](const QString& name) {
        QIcon icon;
        icon.addFile(images + name + u"_up.svg"_s, {}, QIcon::Normal, QIcon::Off);
        icon.addFile(images + name + u".svg"_s, {}, QIcon::Normal, QIcon::On);
        return icon;
    };
    m_ui->walkupButton->setIcon(modeIcon(u"Mode_Beacon"_s));
    m_ui->discoverButton->setIcon(modeIcon(u"Mode_Discovered"_s));
    m_ui->manualButton->setIcon(modeIcon(u"Mode_IPDNSUNC"_s));
    m_unknownPrinterIcon = QIcon(images + u"UnknownPrinter.svg"_s);
    m_noHostIcon = QIcon(images + u"NoHost.svg"_s);
    m_notPrinterIcon = QIcon(images + u"NotPrinter.svg"_s);
}

void TalvoAddPrintQueuePane::createEngine()
{
    m_engine = m_options.usbBackendPath.isEmpty()
                   ? new PrinterDiscoveryEngine(m_discoverySettings, this)
                   : new PrinterDiscoveryEngine(m_discoverySettings, m_options.usbBackendPath, this);
    m_engine->setPrinterModels(m_supportedPrintersArray);
    m_engine->setUserName(defaultWalkupUserName());
    m_listModel->followEngine(m_engine);
    connect(m_engine, &PrinterDiscoveryEngine::printerBeaconed, this,
            &TalvoAddPrintQueuePane::handleBeaconedPrinter);
}

void TalvoAddPrintQueuePane::didEnterPane(Direction)
{
    if (!m_settingsLoaded)
        setUpOnce();

    const QString addressLabel = tx("IP Address or DNS Name");
    m_ui->ipOrDNSNameLabel->setText(addressLabel);
    m_ui->addressTextField->setText(addressLabel.endsWith(u':') ? addressLabel.chopped(1) : addressLabel);
    m_ui->selectModelLabel->setText(tx("Select Printer Model"));

    // A probe still running from an earlier visit would redraw the display
    // for an address the field no longer holds.
    m_addressCheck->reset();
    if (!m_engine)
        createEngine();
    // Read on every entry: a network joined since the last one is searched too.
    m_engine->addSubnetsForInterfaces();
    m_engine->startDiscovery();
    setMode(DiscoveredMode);
    m_ui->pluginVersionLabel->setText(getVersionInfoString().value_or(QString()));
}

bool TalvoAddPrintQueuePane::shouldExitPane(Direction)
{
    qCInfo(lcPane) << "shouldExitPane: called";
    bool started = false;
    if (!m_creating) {
        started = createPrintQueueForMode();
        if (started)
            prepareToExit();
    }
    qCInfo(lcPane).noquote() << "TalvoAddPrintQueuePane: shouldExitPane returning"
                             << (started ? "YES" : "NO");
    return false;
}

void TalvoAddPrintQueuePane::prepareToExit()
{
    qCInfo(lcPane) << "TalvoAddPrintQueuePane: prepareToExit";
    if (m_engine) {
        qCInfo(lcPane) << "Stopping the sorlen discovery engine...";
        m_engine->stopDiscovery();
    }
}

// --- Modes ---------------------------------------------------------------------

void TalvoAddPrintQueuePane::modeButtonPress(QAbstractButton* sender)
{
    if (sender == m_ui->walkupButton)
        setMode(WalkupMode);
    else if (sender == m_ui->discoverButton)
        setMode(DiscoveredMode);
    else if (sender == m_ui->manualButton)
        setMode(ManualMode);
    else
        qCWarning(lcPane).noquote() << "Unknown modeButtonPress sender:" << sender;
}

void TalvoAddPrintQueuePane::setMode(int mode)
{
    // Stored before the check, so an unknown value stays: the buttons and tabs
    // keep showing the last good mode.
    m_selectPrinterMode = mode;
    if (mode < WalkupMode || mode > ManualMode) {
        qCWarning(lcPane).noquote() << u"Unknown mode requested: %1"_s.arg(mode);
        return;
    }
    m_ui->discoveryProgInd->setVisible(mode == DiscoveredMode);
    m_ui->createModeTabView->setCurrentIndex(mode);
    m_ui->walkupButton->setChecked(mode == WalkupMode);
    m_ui->discoverButton->setChecked(mode == DiscoveredMode);
    m_ui->manualButton->setChecked(mode == ManualMode);
    setNextEnabled(mode != WalkupMode && !m_creating);
    if (m_engine)
        m_engine->setWalkupEnabled(mode == WalkupMode);
    if (mode == ManualMode) {
        m_ui->addressTextField->setFocus();
        m_ui->addressTextField->selectAll();
    }
}

// --- The discovered list ---------------------------------------------------------

void TalvoAddPrintQueuePane::handleBeaconedPrinter(QVariantMap printer)
{
    qCInfo(lcPane).noquote() << u"TalvoAddPrintQueuePane: printer Beaconed: %1"_s.arg(
        printer.value(kIPAddrStrKey).toString());
    // The engine ends its walkup session with each selection. While the user
    // stays in walkup mode, another printer may be selected at its panel
    // during this creation, so a new session starts at once.
    if (m_engine && m_selectPrinterMode == WalkupMode)
        m_engine->setWalkupEnabled(true);
    const QString address = printer.value(kIPAddrStrKey).toString();
    if (m_creating) {
        // Not lost: made next if the running creation fails. The printer
        // being made, selected once more, is not made twice.
        if (address != m_creatingAddress)
            m_pendingBeaconed = std::move(printer);
        return;
    }
    createPrintQueueForPrinter(std::move(printer));
}

void TalvoAddPrintQueuePane::createPrinterFromDiscoveryListDoubleClick(const QList<QVariantMap>& selection)
{
    QStringList addresses;
    for (const QVariantMap& printer : selection)
        addresses.append(printer.value(kIPAddrStrKey).toString());
    qCInfo(lcPane).noquote() << u"createPrinterFromDiscoveryListDoubleClick: (%1)"_s.arg(
        addresses.join(u", "_s));
    if (selection.isEmpty() || m_creating)
        return;
    createPrintQueueForPrinter(selection.first());
}

QString TalvoAddPrintQueuePane::getSaveFilePath() const
{
    return discoveredListFilePath();
}

void TalvoAddPrintQueuePane::writeDiscoveredListToFile()
{
    const Status saved = writeDiscoveredList(getSaveFilePath(), m_listModel->printers());
    if (saved)
        return;
    // The message names the file and the reason; the user may free space or
    // fix the folder and press Save List again.
    QMessageBox* alert = makeSheet(u"saveListFailedAlert"_s, tx("Save List Failed"), saved.message());
    alert->setIcon(QMessageBox::Warning);
    alert->setStandardButtons(QMessageBox::Ok);
    alert->open();
}

void TalvoAddPrintQueuePane::loadDiscoveredListFromFile()
{
    const auto printers = readDiscoveredList(getSaveFilePath());
    if (!printers)
        return;
    for (const QVariantMap& printer : *printers)
        m_listModel->appendPrinter(printer);
}

// --- Sheets ---------------------------------------------------------------------------

void TalvoAddPrintQueuePane::doAdvancedSheet()
{
    if (!m_engine || m_apqSettings)
        return;
    m_apqSettings = new AddPrintQueueSettings(m_engine, this);
    connect(m_apqSettings, &QDialog::finished, this, [this] {
        qCInfo(lcPane) << "AddPrintQueuePane: advancedSheetDidEnd";
        m_apqSettings->deleteLater();
        m_apqSettings = nullptr;
    });
    m_apqSettings->open();
}

void TalvoAddPrintQueuePane::showSNMPStringsSheet()
{
    if (!m_engine)
        return;
    if (!m_snmpSheet)
        m_snmpSheet = new SnmpStringsSheet(m_engine, this);
    m_snmpSheet->showSNMPStringsSheet();
}

// --- Queue creation ---------------------------------------------------------------------

bool TalvoAddPrintQueuePane::createPrintQueueForMode()
{
    qCInfo(lcPane) << "createPrintQueueForMode";
    bool started = false;
    if (m_selectPrinterMode == DiscoveredMode) {
        const QModelIndexList selected = m_ui->discPrintersListView->selectionModel()->selectedIndexes();
        if (!selected.isEmpty()) {
            createPrintQueueForPrinter(m_listModel->printerAt(selected.first().row()));
            started = true;
        }
    } else if (m_selectPrinterMode == ManualMode && m_manualPrinterDict) {
        // The printer's own model when it is supported, else the model the
        // user chose in the menu (its title item names no model).
        const QString chosen =
            m_manualChoiceModelMenuTitlePresent ? QString() : m_ui->printerModelSelectMenu->currentText();
        if (auto printer = prepareManualPrinter(*m_manualPrinterDict, chosen, m_supportedPrintersArray)) {
            m_manualPrinterDict = *printer;
            createPrintQueueForPrinter(*printer);
            started = true;
        }
    }
    if (!started) {
        QMessageBox* sheet = makeSheet(u"noQueueSheet"_s, tx("NoQueueAlertTitle"), tx("NoQueueAlertText"));
        sheet->setIcon(QMessageBox::Warning);
        QPushButton* selectPrinter = sheet->addButton(tx("Select Printer"), QMessageBox::RejectRole);
        sheet->addButton(tx("Continue"), QMessageBox::AcceptRole);
        sheet->setDefaultButton(selectPrinter);
        connect(sheet, &QMessageBox::finished, this,
                [this, sheet, selectPrinter] { noQueueAckDidEnd(sheet->clickedButton() == selectPrinter); });
        sheet->open();
    }
    return started;
}

void TalvoAddPrintQueuePane::createPrintQueueForPrinter(QVariantMap printer)
{
    if (m_creating) {
        qCWarning(lcPane) << "a print queue is being created already; request ignored";
        return;
    }
    QueueCreationSettings settings = QueueCreationSettings::fromPluginSettings(m_settingsDict);
    if (m_engine)
        settings.community = m_engine->readCommunity();
    m_creator = std::make_unique<QueueCreator>(std::move(settings));
    m_creatingAddress = printer.value(kIPAddrStrKey).toString();
    // The pane stops and joins the creator before it goes; Qt drops events
    // posted to a deleted object.
    const bool started = m_creator->start(printer, [this](const QueueCreationResult& result) {
        QMetaObject::invokeMethod(
            this, [this, result] { queueCreated(result); }, Qt::QueuedConnection);
    });
    if (!started) {
        qCWarning(lcPane) << "the queue creation could not be started";
        return;
    }
    showCreating(true);
}

void TalvoAddPrintQueuePane::showCreating(bool creating)
{
    m_creating = creating;
    m_ui->queueProgressIndicator->setVisible(creating);
    m_ui->queueProgressLabel->setVisible(creating);
    m_ui->queueProgressLabel->setText(creating ? tx("Creating Print Queue") : QString());
    m_ui->createModeTabView->setEnabled(!creating);
    for (QWidget* control :
         {static_cast<QWidget*>(m_ui->walkupButton), static_cast<QWidget*>(m_ui->discoverButton),
          static_cast<QWidget*>(m_ui->manualButton), static_cast<QWidget*>(m_ui->snmpButton),
          static_cast<QWidget*>(m_ui->advancedButton), static_cast<QWidget*>(m_ui->saveListButton),
          static_cast<QWidget*>(m_ui->loadListButton)})
        control->setEnabled(!creating);
    setNextEnabled(!creating && m_selectPrinterMode != WalkupMode);
    // Back and Cancel too, in the wizard's own buttons.
    setBusy(creating);
}

void TalvoAddPrintQueuePane::resumeSearch()
{
    // The engine was stopped when the creation began; the user is back to
    // choosing, so the list grows again and walkup answers again.
    if (!m_engine)
        return;
    m_engine->startDiscovery();
    m_engine->setWalkupEnabled(m_selectPrinterMode == WalkupMode);
}

void TalvoAddPrintQueuePane::queueCreated(const QueueCreationResult& result)
{
    showCreating(false);
    if (result.ok()) {
        m_pendingBeaconed.reset();
        // Later pages show the printer as the list did: icon and text too.
        QVariantMap presented = result.printer;
        m_presentation->addImageToPrinterDict(presented);
        m_presentation->addDisplayTextToPrinterDict(presented);
        setInstalledPrinter(presented);
        // Rich text only for the text's own line breaks; every value is escaped.
        const auto value = [&](QLatin1StringView key) {
            return result.printer.value(key).toString().toHtmlEscaped();
        };
        const QString text =
            tx("CreatedPrintQueue")
                .toHtmlEscaped()
                .replace(u'\n', u"<br>"_s)
                .arg(value(kCUPSQueueNameKey), value(kPrinterModelStrKey), value(kCUPSPrinterURIKey));
        QMessageBox* sheet = makeSheet(u"queueCreatedSheet"_s, tx("Print Queue Created"), text);
        sheet->setTextFormat(Qt::RichText);
        sheet->setIcon(QMessageBox::Information);
        sheet->setStandardButtons(QMessageBox::Ok);
        connect(sheet, &QMessageBox::finished, this, &TalvoAddPrintQueuePane::queueAckDidEnd);
        sheet->open();
        Q_EMIT queueCreationFinished(true, {});
        return;
    }
    // Nothing was created: say why, with lpadmin's own words when it spoke,
    // and leave the pane as it was so the user can pick again.
    QString message;
    switch (result.error) {
    case QueueError::LpadminFailed:
    case QueueError::SchedulerUnknown:
        message = tx("LpAdminErrorMessage");
        break;
    case QueueError::PPDNotFound:
        message = tx("PPDNotFoundErrorMessage");
        break;
    default:
        message = result.errorText;
        break;
    }
    if (result.error == QueueError::Stopped)
        return;
    resumeSearch();
    QMessageBox* alert = makeSheet(u"queueFailedAlert"_s, tx("Queue Creation Failed"), message);
    alert->setIcon(QMessageBox::Critical);
    alert->setStandardButtons(QMessageBox::Ok);
    // The detail may hold anything lpadmin printed: shown as text, never markup.
    if (message != result.errorText && !result.errorText.isEmpty())
        alert->setInformativeText(u"<p>%1</p>"_s.arg(result.errorText.toHtmlEscaped()));
    alert->open();
    Q_EMIT queueCreationFinished(false, result.errorText);
    if (m_pendingBeaconed) {
        QVariantMap next = std::move(*m_pendingBeaconed);
        m_pendingBeaconed.reset();
        createPrintQueueForPrinter(std::move(next));
    }
}

void TalvoAddPrintQueuePane::setInstalledPrinter(const QVariantMap& printer)
{
    m_installedPrinter = printer;
    if (QVariantMap* shared = sharedDictionary())
        shared->insert(kInstalledPrinterDictKey, printer);
}

void TalvoAddPrintQueuePane::queueAckDidEnd()
{
    prepareToExit();
    gotoNextPane();
}

void TalvoAddPrintQueuePane::noQueueAckDidEnd(bool selectPrinter)
{
    if (selectPrinter)
        return;
    prepareToExit();
    gotoNextPane();
}

QMessageBox* TalvoAddPrintQueuePane::makeSheet(const QString& name, const QString& title, const QString& text)
{
    auto* sheet = new QMessageBox(this);
    sheet->setObjectName(name);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setWindowTitle(title);
    sheet->setTextFormat(Qt::PlainText);
    sheet->setText(text);
    return sheet;
}

// --- Manual mode ---------------------------------------------------------------------------

void TalvoAddPrintQueuePane::populateManualModelChoiceMenu()
{
    PopUpModelMenu* menu = m_ui->printerModelSelectMenu;
    menu->clear();
    menu->addItem(tx("Select a printer model…"));
    QFont slanted = menu->font();
    slanted.setItalic(true);
    menu->setItemData(0, slanted, Qt::FontRole);
    m_manualChoiceModelMenuTitlePresent = true;
    menu->addItems(m_supportedPrintersArray);
}

void TalvoAddPrintQueuePane::printerModelSelectedPopupClicked()
{
    // The title shows only until the menu is first opened, so it can never be
    // chosen as a model.
    if (!m_manualChoiceModelMenuTitlePresent)
        return;
    m_ui->printerModelSelectMenu->removeItem(0);
    m_manualChoiceModelMenuTitlePresent = false;
}

void TalvoAddPrintQueuePane::renderManualCheck(const ManualAddressCheck::Result& result)
{
    switch (result.state) {
    case ManualAddressCheck::State::Empty:
        setManualPrinterDisplayMode(manualAddEmptyAddress, std::nullopt, {});
        break;
    case ManualAddressCheck::State::Invalid:
        setManualPrinterDisplayMode(manualAddInvalidAddress, std::nullopt, {});
        break;
    case ManualAddressCheck::State::Checking:
        // Still checking, the address only named better: the display stays.
        if (m_manualDisplayMode == manualAddProcessing)
            m_ui->informationLabel->setText(tx("CheckingAddress").arg(result.shownAddress.toHtmlEscaped()));
        else
            setManualPrinterDisplayMode(manualAddProcessing, std::nullopt, result.shownAddress);
        break;
    case ManualAddressCheck::State::Checked:
        handleProbeOutcome(*result.outcome);
        break;
    }
}

void TalvoAddPrintQueuePane::handleProbeOutcome(const ProbeOutcome& outcome)
{
    switch (outcome.result) {
    case ProbeResult::Supported:
    case ProbeResult::Unsupported:
        showManualPrinter(outcome.printer);
        break;
    case ProbeResult::UnknownPrinter:
        setManualPrinterDisplayMode(manualAddUnknownPrinterAtAddress, outcome.printer, {});
        break;
    case ProbeResult::NotPrinter:
        setManualPrinterDisplayMode(manualAddNotPrinterAtAddress, outcome.printer, {});
        break;
    case ProbeResult::NoHost:
        setManualPrinterDisplayMode(manualAddNoHostAtAddress, outcome.printer, {});
        break;
    case ProbeResult::InvalidAddress:
        setManualPrinterDisplayMode(manualAddInvalidAddress, std::nullopt, {});
        break;
    }
}

void TalvoAddPrintQueuePane::showManualPrinter(const QVariantMap& printer)
{
    const bool supported = m_supportedPrintersArray.contains(printer.value(kPrinterModelStrKey).toString());
    setManualPrinterDisplayMode(
        supported ? manualAddSupportedPrinterAtAddress : manualAddUnsupportedPrinterAtAddress, printer, {});
}

QString TalvoAddPrintQueuePane::addressStringForPrinter(const QVariantMap& printer)
{
    if (printer.contains(kDnsNameKey))
        return u"%1 (%2)"_s.arg(printer.value(kDnsNameKey).toString(),
                                printer.value(kIPAddrStrKey).toString());
    return printer.value(kIPAddrStrKey).toString();
}

void TalvoAddPrintQueuePane::setManualPrinterDisplayMode(int mode, const std::optional<QVariantMap>& printer,
                                                         const QString& address)
{
    m_manualPrinterDict = printer;
    const char* name = displayModeName(mode);
    if (!name) {
        qCWarning(lcPane).noquote()
            << u"TalvoAddPrintQueuePane: setManualPrinterDisplayMode: unknown displayMode (%1)"_s.arg(mode);
        return;
    }
    qCInfo(lcPane).noquote() << "TalvoAddPrintQueuePane: setManualPrinterDisplayMode: mode =" << name;
    m_manualDisplayMode = mode;

    // Values from the network go into rich text: escaped, never markup.
    const QString shown = (printer ? addressStringForPrinter(*printer) : address).toHtmlEscaped();
    const bool probing = mode == manualAddProcessing;
    const bool result = mode >= manualAddNoHostAtAddress;
    const bool offerModels = result && mode != manualAddSupportedPrinterAtAddress;
    m_ui->manualProgressIndicator->setVisible(probing);
    m_ui->printerIcon->setVisible(result);
    m_ui->printerModelSelectMenu->setVisible(offerModels);
    m_ui->selectModelLabel->setVisible(offerModels);
    m_ui->informationLabel->setVisible(mode != manualAddEmptyAddress);

    QIcon icon;
    QString information;
    switch (mode) {
    case manualAddProcessing:
        information = tx("CheckingAddress").arg(shown);
        break;
    case manualAddInvalidAddress:
        information = tx("InvalidAddress");
        break;
    case manualAddNoHostAtAddress:
        icon = m_noHostIcon;
        information = tx("No Device").arg(shown);
        break;
    case manualAddNotPrinterAtAddress:
        icon = m_notPrinterIcon;
        information = tx("No Printer").arg(shown);
        break;
    case manualAddUnknownPrinterAtAddress:
        icon = m_unknownPrinterIcon;
        information = tx("Unknown Printer").arg(shown);
        break;
    case manualAddUnsupportedPrinterAtAddress:
        icon = m_unknownPrinterIcon;
        information = tx("Unsupported Printer")
                          .arg(printer->value(kPrinterModelStrKey).toString().toHtmlEscaped(), shown);
        break;
    case manualAddSupportedPrinterAtAddress:
        icon = m_presentation->iconForPrinter(*printer);
        information = PrinterPresentation::displayText(*printer);
        break;
    default:
        break;
    }
    m_ui->printerIcon->setPixmap(icon.isNull() ? QPixmap() : icon.pixmap(QSize(64, 64)));
    m_ui->informationLabel->setText(information);
    Q_EMIT manualDisplayModeChanged(mode);
}

} // namespace talvo
