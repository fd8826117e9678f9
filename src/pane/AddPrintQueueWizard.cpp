#include "pane/AddPrintQueueWizard.h"

#include "foundation/Settings.h"
#include "pane/Localization.h"

#include <QApplication>
#include <QIcon>

namespace talvo {

AddPrintQueueWizard makeAddPrintQueueWizard(const TalvoAddPrintQueuePane::Options& options)
{
    const QString folder = pathForPluginResources();
    installTranslations(folder);
    QApplication::setWindowIcon(QIcon(folder + QStringLiteral("/images/talvo-add-print-queue.svg")));

    AddPrintQueueWizard made;
    made.wizard = std::make_unique<InstallerWizard>(WizardTexts::fromLookup(&localizedStringForKey));
    made.pane = new TalvoAddPrintQueuePane(options);
    made.wizard->addPane(made.pane);
    made.closingPageId = made.wizard->addClosingPage();
    return made;
}

} // namespace talvo
