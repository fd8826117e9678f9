#pragma once
// The pane of the installer that finds the user's printer and creates its
// CUPS queue. Three ways to choose a printer, each a mode with its own button
// and tab: walkup (the user announces the printer from its front panel),
// discovered (a list the discovery engine fills) and manual (an address typed
// and probed). Continue creates the queue for the mode's printer in the
// background; the pane leaves only through the sheet that reports the outcome.
//
//     talvo::InstallerWizard wizard(texts);
//     wizard.addPane(new talvo::TalvoAddPrintQueuePane);
//     wizard.addClosingPage();      // shows "InstalledPrinter"
//     wizard.show();

#include "installer/InstallerPane.h"
#include "pane/ManualAddressCheck.h"
#include "queue/PrinterProbe.h"

#include <QComboBox>
#include <QIcon>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>

class QAbstractButton;
class QMessageBox;

namespace Ui {
class TalvoAddPrintQueuePane;
}

namespace talvo {

class AddPrintQueueSettings;
class PrinterDiscoveryEngine;
class PrinterListModel;
class PrinterPresentation;
class QueueCreator;
class SnmpStringsSheet;
struct QueueCreationResult;

// The model menu of the manual page: tells when it is about to open, so the
// title item can leave before the user picks from it.
class PopUpModelMenu : public QComboBox
{
    Q_OBJECT
public:
    using QComboBox::QComboBox;
    void showPopup() override;
Q_SIGNALS:
    void willPopUp();
};

class TalvoAddPrintQueuePane : public InstallerPane
{
    Q_OBJECT
public:
    enum Mode { WalkupMode = 0, DiscoveredMode = 1, ManualMode = 2 };

    // What the manual page shows under the address field.
    enum ManualDisplayMode {
        manualAddEmptyAddress = 0,
        manualAddProcessing = 1,
        manualAddInvalidAddress = 2,
        manualAddNoHostAtAddress = 3,
        manualAddNotPrinterAtAddress = 4,
        manualAddUnknownPrinterAtAddress = 5,
        manualAddUnsupportedPrinterAtAddress = 6,
        manualAddSupportedPrinterAtAddress = 7,
    };

    struct Options
    {
        // The CUPS usb backend to list USB printers with; empty for the
        // system's own.
        QString usbBackendPath;
    };

    explicit TalvoAddPrintQueuePane(QWidget* parent = nullptr);
    explicit TalvoAddPrintQueuePane(Options options, QWidget* parent = nullptr);
    ~TalvoAddPrintQueuePane() override;

    QString title() const override;
    void didEnterPane(Direction direction) override;
    // Starts the queue creation of the current mode and answers false: the
    // pane leaves through the sheet that follows the creation.
    bool shouldExitPane(Direction direction) override;
    void prepareToExit();

    // Modes.
    void setMode(int mode);
    int selectPrinterMode() const { return m_selectPrinterMode; }

    // The discovered list (its model follows the engine itself).
    void handleBeaconedPrinter(QVariantMap printer);
    void createPrinterFromDiscoveryListDoubleClick(const QList<QVariantMap>& selection);
    QString getSaveFilePath() const;
    void writeDiscoveredListToFile();
    void loadDiscoveredListFromFile();

    // Sheets.
    void doAdvancedSheet();
    void showSNMPStringsSheet();

    // Queue creation.
    bool createPrintQueueForMode();
    void createPrintQueueForPrinter(QVariantMap printer);
    void setInstalledPrinter(const QVariantMap& printer);
    bool isCreatingQueue() const { return m_creating; }

    // Manual mode.
    void setManualPrinterDisplayMode(int mode, const std::optional<QVariantMap>& printer,
                                     const QString& address);
    int manualDisplayMode() const { return m_manualDisplayMode; }
    const std::optional<QVariantMap>& manualPrinterDict() const { return m_manualPrinterDict; }
    static QString addressStringForPrinter(const QVariantMap& printer);

    PrinterDiscoveryEngine* discoveryEngine() const { return m_engine; }
    PrinterListModel* printerList() const { return m_listModel; }

Q_SIGNALS:
    void manualDisplayModeChanged(int mode);
    // A queue creation ended, with the created printer or the reason it failed.
    void queueCreationFinished(bool created, const QString& errorText);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void nameForScreenReaders();
    void loadImagesFromBundle();
    void setUpOnce();
    void createEngine();
    void modeButtonPress(QAbstractButton* sender);

    void populateManualModelChoiceMenu();
    void printerModelSelectedPopupClicked();
    void renderManualCheck(const ManualAddressCheck::Result& result);
    void handleProbeOutcome(const ProbeOutcome& outcome);
    void showManualPrinter(const QVariantMap& printer);
    void showCreating(bool creating);
    void resumeSearch();
    void queueCreated(const QueueCreationResult& result);
    void queueAckDidEnd();
    void noQueueAckDidEnd(bool selectPrinter);
    QMessageBox* makeSheet(const QString& name, const QString& title, const QString& text);

    Options m_options;
    std::unique_ptr<Ui::TalvoAddPrintQueuePane> m_ui;
    int m_selectPrinterMode = DiscoveredMode;

    bool m_settingsLoaded = false;
    QVariantMap m_settingsDict;
    QVariantMap m_supportedPrintersDict;
    QVariantMap m_discoverySettings;
    QStringList m_supportedPrintersArray;
    bool m_useBroadcastDiscovery = false;
    bool m_useWalkup = false;

    PrinterDiscoveryEngine* m_engine = nullptr;
    PrinterListModel* m_listModel = nullptr;
    std::unique_ptr<PrinterPresentation> m_presentation;
    SnmpStringsSheet* m_snmpSheet = nullptr;
    AddPrintQueueSettings* m_apqSettings = nullptr;

    QIcon m_unknownPrinterIcon;
    QIcon m_noHostIcon;
    QIcon m_notPrinterIcon;

    // Manual mode.
    bool m_manualChoiceModelMenuTitlePresent = false;
    ManualAddressCheck* m_addressCheck = nullptr;
    std::optional<QVariantMap> m_manualPrinterDict;
    int m_manualDisplayMode = manualAddEmptyAddress;

    // Queue creation.
    std::unique_ptr<QueueCreator> m_creator;
    bool m_creating = false;
    QString m_creatingAddress; // of the printer whose queue is being made
    QVariantMap m_installedPrinter;
    // A printer selected at its panel while another queue was being created:
    // its queue is made next, unless the first creation succeeded.
    std::optional<QVariantMap> m_pendingBeaconed;
};

} // namespace talvo
