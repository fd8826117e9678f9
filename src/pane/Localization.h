#pragma once
// The texts of the pane and the wizard, looked up by key. English ships as a
// compiled Qt translation in the resources folder, other languages beside it;
// a key without a text is shown as the key itself, so a missing translation
// is visible but harmless.
//
//     talvo::installTranslations(talvo::pathForPluginResources());
//     label->setText(talvo::localizedStringForKey("Discovered Printers"));
//     QFile walkup(talvo::localizedResourcePath(talvo::pathForPluginResources(), u"Walkup"_s, u"html"_s));

#include <QString>

namespace talvo {

// Loads translations/talvo_en.qm, then talvo_<lang>.qm for each of the UI
// languages of QLocale() that the user prefers to English and that has one,
// from the resources folder, and installs them on the application: a text
// comes from the most preferred language that has it, else from English.
// Qt's own texts (wizard and message box buttons, a field's context menu)
// follow in the most preferred of those languages, from Qt's translations.
// Calling it again replaces what an earlier call installed. False when not
// even the English texts could be loaded.
bool installTranslations(const QString& resourcesFolder);

// The text of `key`, the key itself when there is none.
QString localizedStringForKey(const char* key);

// folder/base_<lang>.extension for the first language, in the order
// installTranslations goes by, that has such a file ("de_CH" tries
// base_de_CH, then base_de); folder/base.extension, the English one,
// otherwise. `extension` has no dot: u"html"_s.
QString localizedResourcePath(const QString& folder, const QString& base, const QString& extension);

} // namespace talvo
