#pragma once

// The host of the installer panes: a welcome page, the panes in the order
// they are added, then the closing page. The wizard owns the dictionary the
// panes share (the pane that creates a queue records it there under
// "InstalledPrinter" for the closing page).
//
// The installer takes its texts as values, so it does not depend on where
// they are translated; the application fills them once:
//
//     talvo::InstallerWizard wizard(talvo::WizardTexts::fromLookup(&talvo::localizedStringForKey));
//     wizard.addPane(new talvo::TalvoAddPrintQueuePane);
//     wizard.addClosingPage();
//     wizard.show();

#include <QString>
#include <QVariantMap>
#include <QWizard>

#include <functional>

namespace talvo {

class InstallerPane;

// Every text the wizard and its closing page show; the defaults are English.
struct WizardTexts
{
    QString wizardTitle = QStringLiteral("Talvo Printer Setup");                  // "WizardTitle"
    QString welcomeTitle = QStringLiteral("Welcome");                             // "WelcomeTitle"
    QString welcomeText = QStringLiteral("This assistant finds your printer and " // "WelcomeText"
                                         "creates a print queue for it.");
    QString continueButton = QStringLiteral("Continue");                        // "Continue"
    QString closingTitle = QStringLiteral("Setup Complete");                    // "ClosingTitle"
    QString closingText = QStringLiteral("Your printer is ready to use.");      // "ClosingText"
    QString closingNoQueueText = QStringLiteral("No print queue was created."); // "ClosingNoQueueText"
    QString queueNameLabel = QStringLiteral("Queue name:");                     // "Queue Name"
    QString printerModelLabel = QStringLiteral("Printer model:");               // "Printer Model"
    QString deviceUriLabel = QStringLiteral("Device URI:");                     // "Device URI"
    QString printTestPage = QStringLiteral("Print Test Page");                  // "Print Test Page"
    QString testPageSent = QStringLiteral("A test page was sent to %1.");       // "TestPageSent", %1 queue
    QString testPageFailed =
        QStringLiteral("The test page could not be printed: %1"); // "TestPageFailed", %1 error
    QString waitTitle = QStringLiteral("Please Wait");            // "WaitTitle"
    QString waitText = QStringLiteral("The print queue is being created. "
                                      "The window can be closed when it is done."); // "WaitText"

    // Each text from `lookup` called with the key named beside it above.
    static WizardTexts fromLookup(const std::function<QString(const char*)>& lookup);
};

class InstallerWizard : public QWizard
{
    Q_OBJECT

public:
    // English texts.
    explicit InstallerWizard(QWidget* parent = nullptr);
    explicit InstallerWizard(WizardTexts texts, QWidget* parent = nullptr);

    const WizardTexts& texts() const { return m_texts; }

    // Appends the pane after the pages added so far (the welcome page first);
    // the wizard takes ownership. Returns the page id.
    int addPane(InstallerPane* pane);
    // Appends the closing page; add it after the last pane.
    int addClosingPage();

    QVariantMap& sharedDictionary() { return m_sharedDictionary; }
    const QVariantMap& sharedDictionary() const { return m_sharedDictionary; }

    // True while the current page is a busy pane (see InstallerPane::setBusy).
    bool isCurrentPaneBusy() const;

    // QWizard: Cancel and Escape wait for a busy pane.
    void reject() override;

protected:
    // Closing the window waits for a busy pane too.
    void closeEvent(QCloseEvent* event) override;

private:
    void reportBackwardEntry(int pageId);
    void applyBusyState();
    void askToWait();

    WizardTexts m_texts;
    QVariantMap m_sharedDictionary;
    int m_lastPageId = -1;
};

} // namespace talvo
