// The user's preference file is whatever is on the user's disk, and a damaged
// install can leave anything in place of the settings file. Whatever the
// bytes, getSettingsDict must not fault; the shipped settings must always come
// through, changed only in "DiscoverySettings" and there only by the
// preference file's own entries; and the same bytes as the settings file must
// read as settings exactly when they are a dictionary.
#include "foundation/DictionaryKeys.h"
#include "foundation/PropertyList.h"
#include "foundation/Settings.h"

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr char kShipped[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
	<key>Vendor</key><string>Talvo</string>
	<key>QuickStartURL</key><string>https://support.talvo.example/quickstart</string>
	<key>DiscoverySettings</key>
	<dict>
		<key>UseBonjour</key><true/>
		<key>UseSorlenDiscovery</key><true/>
		<key>UseSorlenWalkup</key><true/>
		<key>UseUSBDiscovery</key><true/>
		<key>snmpGetCommunity</key><string>public</string>
		<key>snmpSetCommunity</key><string>private</string>
		<key>PrinterModelList</key><array><string>Model 8560</string></array>
	</dict>
	<key>SupportedPrinters</key>
	<dict>
		<key>Model 8560</key>
		<dict><key>SysObjID</key><string>.1.3.6.1.4.1.58101.1.8560</string></dict>
	</dict>
</dict>
</plist>
)";

// The settings file and the user's file in a folder of their own, the user's
// config folder pointed there so that nothing real is read.
struct Files
{
    QTemporaryDir dir;
    QString settings;
    QString prefs;
    QVariantMap shipped;

    Files()
    {
        const QString config = dir.filePath(QStringLiteral("config"));
        QDir().mkpath(config);
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(config));
        settings = dir.filePath(QStringLiteral("PluginSettings.plist"));
        QFile file(settings);
        if (!file.open(QIODevice::WriteOnly) || file.write(kShipped) < 0)
            std::abort();
        prefs = talvo::filePathForUserPrefs(QStringLiteral("talvo")).value_or(QString());
        shipped = talvo::plist::parse(kShipped).value_or(QVariant()).toMap();
        if (prefs.isEmpty() || shipped.isEmpty())
            std::abort();
    }
};

Files& files()
{
    static Files f;
    return f;
}

// Equal, or written alike (a real that is not a number never equals itself).
bool same(const QVariant& a, const QVariant& b)
{
    if (a == b)
        return true;
    const auto xml = talvo::plist::toXml(a);
    return xml && xml == talvo::plist::toXml(b);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Every file refused is logged: silenced, so the fuzzer runs at speed.
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.*=false"));
    files();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace talvo;
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const Files& f = files();
    QFile prefsFile(f.prefs);
    if (!prefsFile.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        prefsFile.write(bytes.toByteArray()) < 0)
        std::abort();
    prefsFile.close();
    const auto parsed = plist::parse(bytes);
    const bool dictionary = parsed && parsed->typeId() == QMetaType::QVariantMap;
    const QVariantMap user = dictionary ? parsed->toMap() : QVariantMap();

    // The bytes as the user's preferences, over the shipped settings.
    const auto merged = getSettingsDict(f.settings);
    if (!merged || merged->keys() != f.shipped.keys())
        std::abort();
    for (auto it = f.shipped.cbegin(); it != f.shipped.cend(); ++it) {
        if (it.key() != kDiscoverySettingsKey && !same(merged->value(it.key()), it.value()))
            std::abort();
    }
    const QVariantMap shippedDiscovery = f.shipped.value(kDiscoverySettingsKey).toMap();
    const QVariantMap discovery = merged->value(kDiscoverySettingsKey).toMap();
    for (auto it = discovery.cbegin(); it != discovery.cend(); ++it) {
        const bool fromUser = user.contains(it.key()) && same(it.value(), user.value(it.key()));
        const bool shipped =
            shippedDiscovery.contains(it.key()) && same(it.value(), shippedDiscovery.value(it.key()));
        if (!fromUser && !shipped)
            std::abort();
    }
    for (const QString& key : shippedDiscovery.keys() + user.keys()) {
        if (!discovery.contains(key))
            std::abort();
    }

    // The same bytes as the settings file: they are also the preferences of
    // the vendor "talvo", so a file naming that vendor is merged with itself.
    const auto asSettings = getSettingsDict(f.prefs);
    if (asSettings.has_value() != dictionary)
        std::abort();
    if (asSettings) {
        for (const QString& key : asSettings->keys()) {
            if (!user.contains(key) && key != kDiscoverySettingsKey)
                std::abort();
        }
        for (const QString& key : user.keys()) {
            if (!asSettings->contains(key))
                std::abort();
        }
    }
    return 0;
}
