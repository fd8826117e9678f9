#pragma once
// The texts of the pane and the wizard, looked up by key. English ships as a
// compiled Qt translation in the resources folder; a key without a text is
// shown as the key itself, so a missing translation is visible but harmless.
//
//     talvo::installTranslations(talvo::pathForPluginResources());
//     label->setText(talvo::localizedStringForKey("Discovered Printers"));

#include <QString>

namespace talvo {

// Loads translations/talvo_en.qm, then talvo_<lang>.qm for each UI language
// that has one, from the resources folder, and installs them on the
// application. False when not even the English texts could be loaded.
bool installTranslations(const QString& resourcesFolder);

// The text of `key`, the key itself when there is none.
QString localizedStringForKey(const char* key);

} // namespace talvo
