#include "pane/ManualAddressCheck.h"

#include "foundation/NetworkAddress.h"
#include "pane/PaneLog.h"

namespace talvo {

ManualAddressCheck::Services ManualAddressCheck::realServices()
{
    return {
        [](const QString& text, std::stop_token stop) { return resolveTypedAddress(text, std::move(stop)); },
        [](uint32_t address, const ProbeSettings& settings, std::stop_token stop) {
            return testForPrinterAtAddress(address, settings, std::move(stop));
        }};
}

ManualAddressCheck::ManualAddressCheck(Services services, std::function<ProbeSettings()> settings,
                                       QObject* parent)
    : QObject(parent), m_services(std::move(services)), m_settings(std::move(settings))
{
    // A second without typing: the address is probably whole by then.
    m_pause.setSingleShot(true);
    m_pause.setInterval(std::chrono::seconds(1));
    connect(&m_pause, &QTimer::timeout, this, &ManualAddressCheck::startCheck);
}

ManualAddressCheck::~ManualAddressCheck()
{
    stopRunning();
}

void ManualAddressCheck::stopRunning()
{
    ++m_generation;
    m_pause.stop();
    if (m_worker.joinable()) {
        qCInfo(lcPane) << "Cancelling running validate thread";
        // The lookups are abandoned and the probe's children killed at the
        // stop, so the join is short.
        m_worker.request_stop();
        m_worker.join();
    }
}

void ManualAddressCheck::setText(const QString& text)
{
    stopRunning();
    m_text = text.trimmed();
    if (m_text.isEmpty())
        return publish({});
    if (!isIPv4OrHostNameText(m_text))
        return publish({State::Invalid, {}, {}});
    publish({State::Checking, m_text, {}});
    m_pause.start();
}

void ManualAddressCheck::reset()
{
    stopRunning();
    m_text.clear();
    publish({});
}

void ManualAddressCheck::publish(Result result)
{
    m_result = std::move(result);
    Q_EMIT changed(m_result);
}

void ManualAddressCheck::postIfCurrent(uint64_t generation, std::function<void()> step)
{
    // The destructor joins the worker before this object goes, and Qt drops
    // what is posted to an object that is gone: `this` is safe here.
    QMetaObject::invokeMethod(
        this,
        [this, generation, step = std::move(step)] {
            if (generation == m_generation)
                step();
        },
        Qt::QueuedConnection);
}

void ManualAddressCheck::startCheck()
{
    const uint64_t generation = m_generation;
    const QString text = m_text;
    const ProbeSettings settings = m_settings ? m_settings() : ProbeSettings{};
    m_worker = std::jthread([this, generation, text, settings](std::stop_token stop) {
        const std::optional<ResolvedAddress> resolved = m_services.resolve(text, stop);
        if (stop.stop_requested())
            return;
        if (!resolved) {
            postIfCurrent(generation, [this] {
                m_worker.join();
                publish({State::Invalid, {}, {}});
            });
            return;
        }
        const QString quad = stringForInetAddr(resolved->address);
        const QString shown =
            resolved->name.isEmpty() ? quad : QStringLiteral("%1 (%2)").arg(resolved->name, quad);
        postIfCurrent(generation, [this, shown] { publish({State::Checking, shown, {}}); });
        std::optional<ProbeOutcome> outcome = m_services.probe(resolved->address, settings, stop);
        if (stop.stop_requested() || !outcome)
            return;
        postIfCurrent(generation, [this, shown, outcome = std::move(outcome)] {
            // The worker has finished: the next edit has nothing to stop.
            m_worker.join();
            publish({State::Checked, shown, outcome});
        });
    });
}

} // namespace talvo
