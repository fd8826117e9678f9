#pragma once

// A pane of the installer: one QWizardPage that is told when the user enters
// it and asked before the user leaves it with Continue. A pane that leaves by
// itself later (after a sheet, say) answers false from shouldExitPane and
// calls gotoNextPane when it is ready.
//
//     class MyPane : public talvo::InstallerPane {
//         QString title() const override { return tr("My Pane"); }
//         bool shouldExitPane(Direction) override { startWork(); return false; }
//         void workDone() { (*sharedDictionary())[u"Result"_s] = 1; gotoNextPane(); }
//     };

#include <QVariantMap>
#include <QWizardPage>

namespace talvo {

class InstallerPane : public QWizardPage
{
    Q_OBJECT

public:
    enum class Direction { Forward, Backward };

    explicit InstallerPane(QWidget* parent = nullptr);

    // Set as the page title each time the pane is entered. The base returns
    // whatever title the page already has (empty unless set).
    virtual QString title() const;
    // Called on every entry: Forward from the previous page, Backward when the
    // user comes back from a later one. The base does nothing.
    virtual void didEnterPane(Direction direction);
    // Asked when the user presses Continue; false keeps the wizard on the
    // pane. The base answers true.
    virtual bool shouldExitPane(Direction direction);

    // Enables or disables the wizard's Continue button while this pane shows.
    void setNextEnabled(bool enabled);
    bool isNextEnabled() const { return m_nextEnabled; }

    // Work that must not be cut short (a queue being created): while a pane
    // is busy the wizard disables Back and Cancel, and closing the window
    // asks the user to wait instead of closing.
    void setBusy(bool busy);
    bool isBusy() const { return m_busy; }

    // Moves the wizard to the next page without asking shouldExitPane again.
    // Called from within shouldExitPane, the move waits for the event loop so
    // that the wizard is not switched in the middle of its own validation.
    void gotoNextPane();

    // The shared dictionary of the wizard the pane belongs to, visible to all
    // its pages; nullptr while the pane is in no InstallerWizard.
    QVariantMap* sharedDictionary();

    // QWizardPage
    void initializePage() override;
    bool validatePage() override;
    bool isComplete() const override;

Q_SIGNALS:
    void busyChanged(bool busy);

private:
    bool m_nextEnabled = true;
    bool m_busy = false;
    bool m_skipExitCheck = false;
    bool m_validating = false;
};

} // namespace talvo
