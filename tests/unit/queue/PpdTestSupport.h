#pragma once

// What the PPD tests share: the model PPDs of the build tree, a private
// temporary folder (so a test sees every file the instantiation leaves), and
// small gzip and cupstestppd runs.
//
//     talvo::test::PrivateTempFolder temp;            // TMPDIR for the test
//     for (const auto& ppd : talvo::test::shippedPpds()) ...
//     EXPECT_TRUE(temp.files().isEmpty());

#include "foundation/DictionaryKeys.h"
#include "foundation/PropertyList.h"
#include "foundation/SystemCommand.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QVariantMap>

#include <vector>

namespace talvo::test {

inline QVariantMap buildSettings()
{
    return plist::readFile(QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist"))
        .value_or(QVariant())
        .toMap();
}

inline QString shippedPpdFolder()
{
    return QDir::cleanPath(QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/../ppd/talvo"));
}

inline QByteArray gunzip(const QString& path)
{
    return runProcess({QStringLiteral("gunzip"), QStringLiteral("-c"), path}).standardOutput;
}

struct ShippedPpd
{
    QString model;
    QString path;     // compressed, as shipped
    QByteArray bytes; // uncompressed
};

// One per supported model of the settings, in the settings' order.
inline std::vector<ShippedPpd> shippedPpds()
{
    std::vector<ShippedPpd> ppds;
    const QVariantMap supported = buildSettings().value(kSupportedPrintersKey).toMap();
    for (auto it = supported.cbegin(); it != supported.cend(); ++it) {
        const QString path = shippedPpdFolder() + u'/' + it->toMap().value(kPPDFileNameKey).toString();
        ppds.push_back({it.key(), path, gunzip(path)});
    }
    return ppds;
}

inline const ShippedPpd& shippedPpd(const QString& model)
{
    static const std::vector<ShippedPpd> all = shippedPpds();
    for (const ShippedPpd& p : all) {
        if (p.model == model)
            return p;
    }
    static const ShippedPpd none;
    return none;
}

inline ProcessResult cupstestppd(const QString& path)
{
    return runProcess({QStringLiteral("cupstestppd"), path});
}

// `bytes` written as DIR/NAME and compressed to DIR/NAME.gz; returns that path.
inline QString gzipped(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    QFile f(dir.filePath(name));
    if (f.open(QIODevice::WriteOnly))
        f.write(bytes);
    f.close();
    runProcess({QStringLiteral("gzip"), QStringLiteral("-n"), QStringLiteral("-f"), f.fileName()});
    return f.fileName() + QStringLiteral(".gz");
}

// Points TMPDIR at a folder of its own while it exists.
class PrivateTempFolder
{
public:
    PrivateTempFolder() : m_saved(qgetenv("TMPDIR")) { qputenv("TMPDIR", QFile::encodeName(m_dir.path())); }
    ~PrivateTempFolder()
    {
        if (m_saved.isNull())
            qunsetenv("TMPDIR");
        else
            qputenv("TMPDIR", m_saved);
    }
    PrivateTempFolder(const PrivateTempFolder&) = delete;
    PrivateTempFolder& operator=(const PrivateTempFolder&) = delete;

    QString path() const { return m_dir.path(); }
    QStringList files() const
    {
        return QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    }

private:
    QTemporaryDir m_dir;
    QByteArray m_saved;
};

} // namespace talvo::test
