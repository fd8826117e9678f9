#include "installer/InstallerPane.h"

#include "installer/InstallerWizard.h"

#include <QTimer>

namespace talvo {

InstallerPane::InstallerPane(QWidget* parent) : QWizardPage(parent) {}

QString InstallerPane::title() const
{
    return QWizardPage::title();
}

void InstallerPane::didEnterPane(Direction) {}

bool InstallerPane::shouldExitPane(Direction)
{
    return true;
}

void InstallerPane::setNextEnabled(bool enabled)
{
    if (m_nextEnabled == enabled)
        return;
    m_nextEnabled = enabled;
    Q_EMIT completeChanged();
}

void InstallerPane::setBusy(bool busy)
{
    if (m_busy == busy)
        return;
    m_busy = busy;
    Q_EMIT busyChanged(busy);
}

void InstallerPane::gotoNextPane()
{
    if (m_validating) {
        // QWizard::next() is still on the stack and would act on the page
        // that follows once shouldExitPane returns: move on afterwards.
        QTimer::singleShot(0, this, [this] { gotoNextPane(); });
        return;
    }
    QWizard* host = wizard();
    if (!host || host->currentPage() != this)
        return;
    m_skipExitCheck = true;
    host->next();
    m_skipExitCheck = false;
}

QVariantMap* InstallerPane::sharedDictionary()
{
    auto* host = qobject_cast<InstallerWizard*>(wizard());
    return host ? &host->sharedDictionary() : nullptr;
}

void InstallerPane::initializePage()
{
    // QWizard calls this only on the way forward; InstallerWizard reports the
    // way back itself.
    setTitle(title());
    didEnterPane(Direction::Forward);
}

bool InstallerPane::validatePage()
{
    if (m_skipExitCheck)
        return true;
    m_validating = true;
    const bool leave = shouldExitPane(Direction::Forward);
    m_validating = false;
    return leave;
}

bool InstallerPane::isComplete() const
{
    return m_nextEnabled && QWizardPage::isComplete();
}

} // namespace talvo
