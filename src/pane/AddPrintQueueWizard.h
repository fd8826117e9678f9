#pragma once
// The wizard talvo-add-print-queue shows, made in one place so that every
// program showing it (the application, the screenshot driver) shows the same:
// the texts and window icon from the resources folder, a welcome page, the
// pane, the closing page.
//
//     talvo::AddPrintQueueWizard w = talvo::makeAddPrintQueueWizard({});
//     w.wizard->show();

#include "installer/InstallerWizard.h"
#include "pane/TalvoAddPrintQueuePane.h"

#include <memory>

namespace talvo {

struct AddPrintQueueWizard
{
    std::unique_ptr<InstallerWizard> wizard;
    TalvoAddPrintQueuePane* pane = nullptr; // owned by the wizard
    int closingPageId = -1;
};

// Installs the translations of pathForPluginResources() and the window icon
// on the application, then builds the wizard.
AddPrintQueueWizard makeAddPrintQueueWizard(const TalvoAddPrintQueuePane::Options& options);

} // namespace talvo
