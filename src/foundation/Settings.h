#pragma once

// The plug-in settings ("PluginSettings.plist" in the resources folder), the
// per-user preference file that overlays its "DiscoverySettings", the
// process-wide vendor word, and the version text.
//
//     auto settings = talvo::getSettingsDict();      // merged, or nullopt
//     talvo::setVendor(settings->value(talvo::kVendorKey).toString());
//     talvo::Status saved = talvo::writeOverrideSettingsDict({{talvo::snmpCommunityGetKey, u"secret"_s}});

#include "foundation/Status.h"

#include <QString>
#include <QVariantMap>

#include <optional>

namespace talvo {

// "@(#)PROGRAM:..." banner and number that identify this build of the pane.
inline constexpr char TalvoAddPrintQueueVersionString[] =
    "@(#)PROGRAM:TalvoAddPrintQueue  PROJECT:TalvoInstallerPlugins-66";
inline constexpr double TalvoAddPrintQueueVersionNumber = 66.0;

inline constexpr char kSettingsFileName[] = "PluginSettings.plist";
inline constexpr char kVersionFileName[] = "Info.plist";

// The vendor word in lower case ("talvo") and with each word capitalised
// ("Talvo"); empty until set. Safe to call from any thread.
QString vendor();
QString vendorWithCaps();
void setVendor(const QString& word);

// Each blank-separated word with its first letter upper case and the rest
// lower case: "tALVO systems" gives "Talvo Systems".
QString capitalizedWords(const QString& text);

// The resources folder: the one set with setPluginResourcesPath, else
// share/talvo-add-print-queue beside the executable's bin/ folder (the same
// in the build tree and in an install).
QString pathForPluginResources();
void setPluginResourcesPath(const QString& folder);

// The user preference file, "com.<vendor>.installer.plugin.prefs" in the XDG
// config folder. nullopt when there is no config folder or no vendor word.
std::optional<QString> filePathForUserPrefs();
std::optional<QString> filePathForUserPrefs(const QString& vendorWord);

// The settings file read, merged with the user preferences of the vendor the
// file names, so the preferences saved later are the ones read back. nullopt
// when the settings file is missing or is not a dictionary. A user file that
// is missing, unreadable, not a dictionary, or not a regular file at all (a
// pipe, a link to a device), too large or nested too deep, leaves the
// settings unmerged, with a warning in the log; neither file is ever waited
// on (see plist::loadFile). An empty or blank "snmpGetCommunity" or
// "snmpSetCommunity" in the user file is ignored (logged): the shipped value
// stays.
std::optional<QVariantMap> getSettingsDict(const QString& settingsFile);
std::optional<QVariantMap> getSettingsDict(); // from pathForPluginResources()

// Adds the entries to the user preference file (given entries win) and writes
// it atomically. A file that exists but is not a valid dictionary is kept
// aside as "<name>.invalid-<time>" before a new one is written, so nothing it
// held is lost; one that cannot be read, or is not a regular file, is left
// alone and nothing is written. The error names the file and the reason; on
// failure the old file is as it was.
Status writeOverrideSettingsDict(const QVariantMap& entries);

// "<CFBundleShortVersionString> (<CFBundleVersion>)" from the resources
// folder's Info.plist, a missing value shown as "(null)"; nullopt without the
// file.
std::optional<QString> getVersionInfoString();
std::optional<QString> getVersionInfoString(const QString& resourcesFolder);

} // namespace talvo
