#include "installer/ClosingPage.h"

#include "foundation/ChildProcess.h"
#include "foundation/DictionaryKeys.h"
#include "installer/TestPage.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace talvo {
namespace {

QLabel* makeValueLabel(QWidget* parent)
{
    auto* label = new QLabel(parent);
    // Users copy the queue name and URI into other tools.
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setTextFormat(Qt::PlainText);
    return label;
}

} // namespace

ClosingPage::ClosingPage(const WizardTexts& texts, QWidget* parent) : QWizardPage(parent), m_texts(texts)
{
    setTitle(m_texts.closingTitle);

    m_message = new QLabel(this);
    m_message->setWordWrap(true);

    m_details = new QWidget(this);
    auto* form = new QFormLayout(m_details);
    form->setContentsMargins(0, 0, 0, 0);
    m_queueName = makeValueLabel(m_details);
    m_printerModel = makeValueLabel(m_details);
    m_deviceUri = makeValueLabel(m_details);
    form->addRow(m_texts.queueNameLabel, m_queueName);
    form->addRow(m_texts.printerModelLabel, m_printerModel);
    form->addRow(m_texts.deviceUriLabel, m_deviceUri);

    m_testPageButton = new QPushButton(m_texts.printTestPage, this);
    // Return finishes the wizard, as on every page; Space prints the page.
    m_testPageButton->setAutoDefault(false);
    connect(m_testPageButton, &QPushButton::clicked, this, &ClosingPage::printTestPage);
    m_status = new QLabel(this);
    m_status->setWordWrap(true);
    m_status->setTextFormat(Qt::PlainText);

    auto* buttonRow = new QHBoxLayout;
    buttonRow->addWidget(m_testPageButton);
    buttonRow->addStretch();

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_message);
    layout->addWidget(m_details);
    layout->addLayout(buttonRow);
    layout->addWidget(m_status);
    layout->addStretch();

    showInstalledPrinter({});
}

ClosingPage::~ClosingPage()
{
    // lp only hands the file to the scheduler; let it finish rather than
    // leave a half-submitted job behind.
    if (m_lp && m_lp->state() != QProcess::NotRunning) {
        m_lp->disconnect(this);
        m_lp->waitForFinished(3000);
    }
}

void ClosingPage::initializePage()
{
    const auto* host = qobject_cast<InstallerWizard*>(wizard());
    const QVariant installed = host ? host->sharedDictionary().value(kInstalledPrinterDictKey) : QVariant();
    showInstalledPrinter(installed.toMap());
}

void ClosingPage::showInstalledPrinter(const QVariantMap& printer)
{
    m_queue = printer.value(kCUPSQueueNameKey).toString();
    const bool hasQueue = !m_queue.isEmpty();
    m_message->setText(hasQueue ? m_texts.closingText : m_texts.closingNoQueueText);
    m_queueName->setText(m_queue);
    m_printerModel->setText(printer.value(kPrinterModelStrKey).toString());
    m_deviceUri->setText(printer.value(kCUPSPrinterURIKey).toString());
    m_details->setVisible(hasQueue);
    m_testPageButton->setVisible(hasQueue);
    m_testPageButton->setEnabled(hasQueue && !m_lp);
    m_status->clear();
}

void ClosingPage::printTestPage()
{
    if (m_queue.isEmpty() || m_lp)
        return;
    m_testPageButton->setEnabled(false);
    m_status->clear();
    m_lp = new QProcess(this);
    m_lp->setProgram(QString::fromLatin1(kLpProgram));
    m_lp->setArguments(testPageArguments(m_queue, testPageFile()));
    // The request id lp prints is of no use here; its errors are shown.
    m_lp->setStandardOutputFile(QProcess::nullDevice());
    // lp inherits no descriptor of ours (a library's socket included) and
    // none of the limits raised since start-up.
    m_lp->setChildProcessModifier(&inheritNothingAfterFork);
    connect(m_lp, &QProcess::finished, this, &ClosingPage::lpFinished);
    connect(m_lp, &QProcess::errorOccurred, this, &ClosingPage::lpFailedToStart);
    m_lp->start();
}

void ClosingPage::lpFinished(int exitCode, QProcess::ExitStatus status)
{
    const QString errors = QString::fromLocal8Bit(m_lp->readAllStandardError()).trimmed();
    if (status == QProcess::NormalExit && exitCode == 0) {
        showOutcome(true, m_texts.testPageSent.arg(m_queue));
        return;
    }
    const QString reason = !errors.isEmpty() ? errors
                           : status == QProcess::CrashExit
                               ? m_lp->errorString()
                               : QStringLiteral("lp exit status %1").arg(exitCode);
    showOutcome(false, m_texts.testPageFailed.arg(reason));
}

void ClosingPage::lpFailedToStart(QProcess::ProcessError error)
{
    // Other errors end in finished(), which reports them.
    if (error == QProcess::FailedToStart)
        showOutcome(false, m_texts.testPageFailed.arg(m_lp->errorString()));
}

void ClosingPage::showOutcome(bool sent, const QString& text)
{
    m_status->setText(text);
    m_lp->deleteLater();
    m_lp = nullptr;
    m_testPageButton->setEnabled(!m_queue.isEmpty());
    Q_EMIT testPageFinished(sent);
}

} // namespace talvo
