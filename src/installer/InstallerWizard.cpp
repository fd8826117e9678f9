#include "installer/InstallerWizard.h"

#include "installer/ClosingPage.h"
#include "installer/InstallerPane.h"

#include <QAbstractButton>
#include <QCloseEvent>
#include <QLabel>
#include <QMessageBox>
#include <QVBoxLayout>

namespace talvo {
namespace {

QWizardPage* makeWelcomePage(const WizardTexts& texts)
{
    auto* page = new QWizardPage;
    page->setTitle(texts.welcomeTitle);
    auto* text = new QLabel(texts.welcomeText, page);
    text->setWordWrap(true);
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(text);
    layout->addStretch();
    return page;
}

} // namespace

WizardTexts WizardTexts::fromLookup(const std::function<QString(const char*)>& lookup)
{
    WizardTexts texts;
    texts.wizardTitle = lookup("WizardTitle");
    texts.welcomeTitle = lookup("WelcomeTitle");
    texts.welcomeText = lookup("WelcomeText");
    texts.continueButton = lookup("Continue");
    texts.closingTitle = lookup("ClosingTitle");
    texts.closingText = lookup("ClosingText");
    texts.closingNoQueueText = lookup("ClosingNoQueueText");
    texts.queueNameLabel = lookup("Queue Name");
    texts.printerModelLabel = lookup("Printer Model");
    texts.deviceUriLabel = lookup("Device URI");
    texts.printTestPage = lookup("Print Test Page");
    texts.testPageSent = lookup("TestPageSent");
    texts.testPageFailed = lookup("TestPageFailed");
    texts.waitTitle = lookup("WaitTitle");
    texts.waitText = lookup("WaitText");
    return texts;
}

InstallerWizard::InstallerWizard(QWidget* parent) : InstallerWizard(WizardTexts(), parent) {}

InstallerWizard::InstallerWizard(WizardTexts texts, QWidget* parent)
    : QWizard(parent), m_texts(std::move(texts))
{
    setWindowTitle(m_texts.wizardTitle);
    // The classic style looks the same on every desktop and leaves the whole
    // page to the pane's own layout.
    setWizardStyle(QWizard::ClassicStyle);
    setOption(QWizard::NoBackButtonOnStartPage);
    setButtonText(QWizard::NextButton, m_texts.continueButton);
    setMinimumSize(720, 560);
    addPage(makeWelcomePage(m_texts));
    connect(this, &QWizard::currentIdChanged, this, &InstallerWizard::reportBackwardEntry);
}

int InstallerWizard::addPane(InstallerPane* pane)
{
    const int id = addPage(pane);
    connect(pane, &InstallerPane::busyChanged, this, &InstallerWizard::applyBusyState);
    // QWizard sets its buttons afresh whenever a page's completeness
    // changes; this connection comes after its own, so it has the last word.
    connect(pane, &QWizardPage::completeChanged, this, &InstallerWizard::applyBusyState);
    return id;
}

bool InstallerWizard::isCurrentPaneBusy() const
{
    const auto* pane = qobject_cast<const InstallerPane*>(currentPage());
    return pane && pane->isBusy();
}

void InstallerWizard::applyBusyState()
{
    const bool busy = isCurrentPaneBusy();
    if (busy) {
        button(QWizard::BackButton)->setEnabled(false);
        button(QWizard::CancelButton)->setEnabled(false);
        return;
    }
    button(QWizard::CancelButton)->setEnabled(true);
    button(QWizard::BackButton)->setEnabled(visitedIds().size() > 1);
}

void InstallerWizard::askToWait()
{
    auto* wait =
        new QMessageBox(QMessageBox::Information, m_texts.waitTitle, m_texts.waitText, QMessageBox::Ok, this);
    wait->setObjectName(QStringLiteral("waitForPaneAlert"));
    wait->setAttribute(Qt::WA_DeleteOnClose);
    wait->setWindowModality(Qt::WindowModal);
    wait->open();
}

void InstallerWizard::reject()
{
    if (isCurrentPaneBusy())
        return askToWait();
    QWizard::reject();
}

void InstallerWizard::closeEvent(QCloseEvent* event)
{
    if (isCurrentPaneBusy()) {
        event->ignore();
        return askToWait();
    }
    QWizard::closeEvent(event);
}

int InstallerWizard::addClosingPage()
{
    return addPage(new ClosingPage(m_texts));
}

void InstallerWizard::reportBackwardEntry(int pageId)
{
    // QWizard initialises a page only on the way forward. After Back, the
    // page that was left is no longer in the history: tell the pane it was
    // entered again from behind.
    const int left = m_lastPageId;
    m_lastPageId = pageId;
    if (left == -1 || pageId == -1 || visitedIds().contains(left))
        return;
    if (auto* pane = qobject_cast<InstallerPane*>(page(pageId))) {
        pane->setTitle(pane->title());
        pane->didEnterPane(InstallerPane::Direction::Backward);
    }
}

} // namespace talvo
