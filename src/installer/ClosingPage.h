#pragma once

// The last page of the installer: shows the print queue a pane recorded under
// "InstalledPrinter" in the shared dictionary and offers to print a test page
// on it, or says that no queue was created.

#include "installer/InstallerWizard.h"

#include <QProcess>
#include <QWizardPage>

class QFormLayout;
class QLabel;
class QPushButton;

namespace talvo {

class ClosingPage : public QWizardPage
{
    Q_OBJECT

public:
    explicit ClosingPage(const WizardTexts& texts, QWidget* parent = nullptr);
    ~ClosingPage() override;

    // Shows `printer` (a printer dictionary), or the no-queue text when it is
    // empty. initializePage calls it with the shared dictionary's entry.
    void showInstalledPrinter(const QVariantMap& printer);

    // Sends the test page to the shown queue with lp, without waiting; the
    // outcome appears in statusLabel() and testPageFinished.
    void printTestPage();

    // The page's parts, for tests.
    QLabel* messageLabel() const { return m_message; }
    QLabel* queueNameField() const { return m_queueName; }
    QLabel* printerModelField() const { return m_printerModel; }
    QLabel* deviceUriField() const { return m_deviceUri; }
    QPushButton* testPageButton() const { return m_testPageButton; }
    QLabel* statusLabel() const { return m_status; }

    // QWizardPage
    void initializePage() override;

Q_SIGNALS:
    void testPageFinished(bool sent);

private:
    void lpFinished(int exitCode, QProcess::ExitStatus status);
    void lpFailedToStart(QProcess::ProcessError error);
    void showOutcome(bool sent, const QString& text);

    WizardTexts m_texts;
    QString m_queue;
    QProcess* m_lp = nullptr;
    QLabel* m_message = nullptr;
    QWidget* m_details = nullptr;
    QLabel* m_queueName = nullptr;
    QLabel* m_printerModel = nullptr;
    QLabel* m_deviceUri = nullptr;
    QPushButton* m_testPageButton = nullptr;
    QLabel* m_status = nullptr;
};

} // namespace talvo
