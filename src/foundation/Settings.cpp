#include "foundation/Settings.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/Log.h"
#include "foundation/PropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <filesystem>
#include <mutex>
#include <system_error>

namespace talvo {
namespace {

struct ProcessWideStrings
{
    std::mutex mutex;
    QString vendor;
    QString vendorWithCaps;
    QString resourcesFolder;
};

ProcessWideStrings& processWide()
{
    static ProcessWideStrings strings;
    return strings;
}

QString executableFolder()
{
    std::error_code error;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return QDir::currentPath();
    return QFileInfo(QString::fromStdString(exe.string())).absolutePath();
}

// A formatter's rendering of a missing value, kept from the original texts.
QString orNull(const QVariant& value)
{
    return value.isValid() ? value.toString() : QStringLiteral("(null)");
}

} // namespace

QString vendor()
{
    auto& s = processWide();
    std::lock_guard lock(s.mutex);
    return s.vendor;
}

QString vendorWithCaps()
{
    auto& s = processWide();
    std::lock_guard lock(s.mutex);
    return s.vendorWithCaps;
}

void setVendor(const QString& word)
{
    auto& s = processWide();
    std::lock_guard lock(s.mutex);
    s.vendor = word.toLower();
    s.vendorWithCaps = capitalizedWords(word);
}

QString capitalizedWords(const QString& text)
{
    QString result = text.toLower();
    bool atWordStart = true;
    for (QChar& c : result) {
        if (c.isSpace()) {
            atWordStart = true;
        } else if (atWordStart) {
            c = c.toUpper();
            atWordStart = false;
        }
    }
    return result;
}

QString pathForPluginResources()
{
    {
        auto& s = processWide();
        std::lock_guard lock(s.mutex);
        if (!s.resourcesFolder.isEmpty())
            return s.resourcesFolder;
    }
    return QDir::cleanPath(executableFolder() + QStringLiteral("/../share/talvo-add-print-queue"));
}

void setPluginResourcesPath(const QString& folder)
{
    auto& s = processWide();
    std::lock_guard lock(s.mutex);
    s.resourcesFolder = folder.isEmpty() ? QString() : QFileInfo(folder).absoluteFilePath();
}

std::optional<QString> filePathForUserPrefs(const QString& vendorWord)
{
    // Without a vendor word the name would be "com..installer.plugin.prefs",
    // a file nobody reads back: better no preferences at all.
    if (vendorWord.isEmpty())
        return std::nullopt;
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    if (folder.isEmpty() || !QDir::isAbsolutePath(folder))
        return std::nullopt;
    return QDir(folder).filePath(QStringLiteral("com.%1.installer.plugin.prefs").arg(vendorWord.toLower()));
}

std::optional<QString> filePathForUserPrefs()
{
    return filePathForUserPrefs(vendor());
}

std::optional<QVariantMap> getSettingsDict(const QString& settingsFile)
{
    const plist::Loaded loaded = plist::loadFile(settingsFile);
    if (loaded.outcome != plist::LoadOutcome::Loaded || loaded.value.typeId() != QMetaType::QVariantMap) {
        qCWarning(lcFoundation).noquote()
            << (loaded.error.isEmpty()
                    ? QStringLiteral("The settings file %1 is not a dictionary").arg(settingsFile)
                    : loaded.error);
        return std::nullopt;
    }
    QVariantMap settings = loaded.value.toMap();

    // The vendor word comes from the file being read, not from the process-wide
    // string that is set only after this load: so the preferences read here are
    // the ones saveUserPreferences writes.
    const auto prefsPath = filePathForUserPrefs(settings.value(kVendorKey).toString());
    if (!prefsPath)
        return settings;
    // Whatever is wrong with the user's file (a pipe, a device, a damaged or
    // hostile file), the shipped settings still work: they are used alone.
    const plist::Loaded prefs = plist::loadFile(*prefsPath);
    if (prefs.outcome == plist::LoadOutcome::Missing)
        return settings;
    if (prefs.outcome != plist::LoadOutcome::Loaded || prefs.value.typeId() != QMetaType::QVariantMap) {
        qCWarning(lcFoundation).noquote()
            << (prefs.error.isEmpty()
                    ? QStringLiteral("The preferences file %1 is not a dictionary").arg(*prefsPath)
                    : prefs.error)
            << "- the preferences are ignored and the shipped settings used";
        return settings;
    }

    QVariantMap discovery = settings.value(kDiscoverySettingsKey).toMap();
    const QVariantMap overrides = prefs.value.toMap();
    for (auto it = overrides.cbegin(); it != overrides.cend(); ++it) {
        // A blank community would be sent as is (or, to snmpget, be no
        // argument at all): the shipped one is kept instead.
        const bool community = it.key() == snmpCommunityGetKey || it.key() == snmpCommunitySetKey;
        if (community && it.value().toString().trimmed().isEmpty()) {
            qCWarning(lcFoundation).noquote()
                << QStringLiteral("The preferences file %1 gives an empty %2; the shipped value is used")
                       .arg(*prefsPath, it.key());
            continue;
        }
        discovery.insert(it.key(), it.value());
    }
    settings.insert(kDiscoverySettingsKey, discovery);
    return settings;
}

std::optional<QVariantMap> getSettingsDict()
{
    return getSettingsDict(QDir(pathForPluginResources()).filePath(QLatin1StringView(kSettingsFileName)));
}

Status writeOverrideSettingsDict(const QVariantMap& entries)
{
    const auto path = filePathForUserPrefs();
    if (!path)
        return Status::error(QStringLiteral(
            "The preferences cannot be saved: there is no configuration folder or no vendor name"));

    QVariantMap prefs;
    const plist::Loaded existing = plist::loadFile(*path);
    switch (existing.outcome) {
    case plist::LoadOutcome::Missing:
        break;
    case plist::LoadOutcome::NotAFile:
    case plist::LoadOutcome::Unreadable:
        // We cannot know what the file holds, or it is no file of ours (a
        // device, a pipe): it must not be replaced.
        qCWarning(lcFoundation).noquote() << existing.error;
        return Status::error(existing.error + QStringLiteral("; it is left as it is"));
    case plist::LoadOutcome::Loaded:
        if (existing.value.typeId() == QMetaType::QVariantMap) {
            prefs = existing.value.toMap();
            break;
        }
        [[fallthrough]];
    case plist::LoadOutcome::Invalid: {
        // A time stamp in the name keeps every earlier invalid file too.
        const QString kept = *path + QStringLiteral(".invalid-") +
                             QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss-zzz"));
        if (!QFile::rename(*path, kept)) {
            const QString message = QStringLiteral("The preferences file %1 is not a valid dictionary and "
                                                   "cannot be kept aside; it is left as it is")
                                        .arg(*path);
            qCWarning(lcFoundation).noquote() << message;
            return Status::error(message);
        }
        qCWarning(lcFoundation).noquote()
            << "The preferences file" << *path << "was not a valid dictionary; kept as" << kept;
        break;
    }
    }
    for (auto it = entries.cbegin(); it != entries.cend(); ++it)
        prefs.insert(it.key(), it.value());

    Status written = plist::writeXmlFile(*path, prefs);
    if (!written)
        qCWarning(lcFoundation).noquote() << "Cannot write the preferences:" << written.message();
    return written;
}

std::optional<QString> getVersionInfoString(const QString& resourcesFolder)
{
    const auto info = plist::readFile(QDir(resourcesFolder).filePath(QLatin1StringView(kVersionFileName)));
    if (!info || info->typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    const QVariantMap map = info->toMap();
    return QStringLiteral("%1 (%2)").arg(orNull(map.value(kBundleShortVersionKey)),
                                         orNull(map.value(kBundleVersionKey)));
}

std::optional<QString> getVersionInfoString()
{
    return getVersionInfoString(pathForPluginResources());
}

} // namespace talvo
