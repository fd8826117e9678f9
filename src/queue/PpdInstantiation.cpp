#include "queue/PpdInstantiation.h"

#include "foundation/FileAccess.h"
#include "foundation/SystemCommand.h"
#include "queue/PpdEncoding.h"
#include "queue/QueueLog.h"
#include "snmp/SnmpgetFallback.h"

#include <QDir>
#include <QFile>
#include <QTemporaryFile>

namespace talvo {
namespace {

// A model PPD is a few hundred kilobytes: gunzip takes milliseconds.
constexpr std::chrono::seconds kGunzipTimeout{30};

QString stoppedText()
{
    return QStringLiteral("stopped");
}

// A new file of the bytes in the temporary folder, its name reserved first
// and its contents written through a file renamed over it, so it is never
// seen half written. A full folder fails here, with the file and the reason:
// an empty or cut PPD is never handed on.
InstantiatedPPD writeTemporaryFile(const QString& prefix, const QByteArray& bytes)
{
    QTemporaryFile reserved(QDir::tempPath() + u'/' + prefix + QStringLiteral("XXXXXX"));
    reserved.setAutoRemove(false);
    if (!reserved.open())
        return InstantiatedPPD::failure(
            QStringLiteral("Cannot create a file in %1: %2").arg(QDir::tempPath(), reserved.errorString()));
    InstantiatedPPD ppd(reserved.fileName()); // removes it again if the write fails
    reserved.close();
    if (const Status written = file::writeAtomically(ppd.path, bytes); !written)
        return InstantiatedPPD::failure(written.message());
    return ppd;
}

QString gunzipFailure(const QString& ppdPath, const ProcessResult& run)
{
    QString reason;
    switch (run.status) {
    case ProcessResult::Status::FailedToStart:
        reason = QStringLiteral("cannot run gunzip: ") + run.errorText;
        break;
    case ProcessResult::Status::TimedOut:
        reason = QStringLiteral("gunzip took too long");
        break;
    case ProcessResult::Status::Signalled:
        reason = QStringLiteral("gunzip was killed");
        break;
    default:
        reason = QString::fromLocal8Bit(run.standardError).trimmed();
        if (reason.isEmpty())
            reason = QStringLiteral("gunzip exited with status %1").arg(run.exitCode);
    }
    return QStringLiteral("Cannot decompress the PPD file %1: %2").arg(ppdPath, reason);
}

} // namespace

InstantiatedPPD InstantiatedPPD::failure(QString why)
{
    InstantiatedPPD result;
    result.error = std::move(why);
    return result;
}

InstantiatedPPD::InstantiatedPPD(InstantiatedPPD&& other) noexcept
    : path(std::exchange(other.path, QString())), error(std::move(other.error))
{}

InstantiatedPPD& InstantiatedPPD::operator=(InstantiatedPPD&& other) noexcept
{
    if (this != &other) {
        if (!path.isEmpty())
            QFile::remove(path);
        path = std::exchange(other.path, QString());
        error = std::move(other.error);
    }
    return *this;
}

InstantiatedPPD::~InstantiatedPPD()
{
    if (!path.isEmpty())
        QFile::remove(path);
}

QString InstantiatedPPD::release()
{
    return std::exchange(path, QString());
}

InstantiatedPPD instantiatePPD(const QString& ppdPath, const QString& printerAddress,
                               const QString& community, std::stop_token stop)
{
    // Found by the first query, the SNMP version then serves the others.
    int version = snmpget::kUnknown;
    ProcessOptions options;
    options.stopToken = stop;
    return instantiatePPD(
        ppdPath,
        [&](const QString& oid) { return doSNMPQueryOn(printerAddress, community, oid, version, options); },
        stop);
}

InstantiatedPPD instantiatePPD(const QString& ppdPath, const ppd::ValueForOid& valueForOid,
                               std::stop_token stop)
{
    ProcessOptions options;
    options.stopToken = stop;
    options.timeout = kGunzipTimeout;
    const ProcessResult gunzip =
        runProcess({QStringLiteral("gunzip"), QStringLiteral("-c"), QStringLiteral("--"), ppdPath}, options);
    if (gunzip.status == ProcessResult::Status::Stopped)
        return InstantiatedPPD::failure(stoppedText());
    if (!gunzip.succeeded())
        return InstantiatedPPD::failure(gunzipFailure(ppdPath, gunzip));

    const ppd::DecodedText decoded = ppd::decodeText(gunzip.standardOutput);
    if (!decoded.detectionError.isEmpty())
        qCWarning(lcQueue).noquote()
            << QStringLiteral("after stringWithContentsOfFile error %1").arg(decoded.detectionError);
    // Without query lines the PPD is installed as it is, only uncompressed.
    if (!ppd::needsInstantiation(decoded.text))
        return writeTemporaryFile(QStringLiteral("ppd_unzipped_"), gunzip.standardOutput);

    const ppd::RewriteResult rewritten = ppd::setInstallableDefaults(decoded.text, valueForOid);
    if (stop.stop_requested())
        return InstantiatedPPD::failure(stoppedText());
    if (!rewritten.ok())
        return InstantiatedPPD::failure(
            QStringLiteral("The PPD file %1 cannot be instantiated: %2").arg(ppdPath, rewritten.error));
    return writeTemporaryFile(QStringLiteral("ppd_instantiated_"),
                              ppd::encodeText(rewritten.text, decoded.encoding));
}

} // namespace talvo
