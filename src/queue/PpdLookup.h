#pragma once

// Finding a model's PPD: the "PPDFile" of its entry in the settings'
// "SupportedPrinters", looked for in the PPD folder, first as it stands and
// then in the folder of each of the user's languages.
//
//     const QString folder = talvo::defaultPPDFolder(settings);
//     const auto ppd = talvo::getPPDPathForModel(u"Model 4000"_s,
//     settings.value(talvo::kSupportedPrintersKey).toMap(),
//                                                folder, QLocale().uiLanguages());
//     if (!ppd) ...   // no PPD for the model: "PPDNotFoundErrorMessage"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <optional>

namespace talvo {

// The settings' optional "PPDDirectory" (a relative one is taken from the
// resources folder), else the installed PPD folder of the vendor beside the
// resources: <resources>/../ppd/<vendor word in lower case>, which is
// <datadir>/ppd/talvo both in an install and in the build tree.
QString defaultPPDFolder(const QVariantMap& settings);

// The path of the model's compressed PPD: <folder>/<PPDFile>, else
// <folder>/<language>/<PPDFile> for each language in order ("de-CH" is also
// tried as "de_CH"); nullopt when none is a file. A model without a
// "PPDFile" logs "getPPDPathForModel: cannot find PPD name for printer
// model <model>".
std::optional<QString> getPPDPathForModel(const QString& model, const QVariantMap& supportedPrinters,
                                          const QString& ppdFolder, const QStringList& uiLanguages);

} // namespace talvo
