#pragma once

// The address typed in the manual mode, checked as the user types: what the
// display shows, with no widget in sight. Text that is neither four decimal
// octets nor a well-formed host name is invalid at once; anything else shows
// "checking" at once, and once typing pauses it is resolved (one forward and
// one reverse lookup) and probed. Every edit and every reset stops what runs,
// so a late answer never speaks for text the field no longer holds.
//
//     talvo::ManualAddressCheck check(talvo::ManualAddressCheck::realServices(),
//                                     [this] { return probeSettings(); });
//     connect(&check, &talvo::ManualAddressCheck::changed, this, &Pane::render);
//     check.setText(field->text()); // on every edit
//     check.reset();                // entering or leaving: nothing runs, nothing late
//
// Lives on one thread (the one that made it, with an event loop): every call
// and every signal happen there. The lookups and the probe run on a worker of
// its own, which the destructor stops and joins.

#include "queue/PrinterProbe.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <thread>

namespace talvo {

class ManualAddressCheck : public QObject
{
    Q_OBJECT
public:
    enum class State {
        Empty,    // nothing typed
        Invalid,  // neither form, or a name that does not resolve both ways
        Checking, // well-formed: waiting for a pause, resolving or probing
        Checked,  // the probe's outcome is in
    };
    struct Result
    {
        State state = State::Empty;
        // Checking and Checked: the address as the display names it: the
        // text typed until it is resolved, then "name (a.b.c.d)" or "a.b.c.d".
        QString shownAddress;
        // Checked only.
        std::optional<ProbeOutcome> outcome;
    };
    // What the check asks of the world; tests give their own.
    struct Services
    {
        std::function<std::optional<ResolvedAddress>(const QString& text, std::stop_token)> resolve;
        std::function<std::optional<ProbeOutcome>(uint32_t address, const ProbeSettings&, std::stop_token)>
            probe;
    };
    // resolveTypedAddress and testForPrinterAtAddress.
    static Services realServices();

    // `settings` is asked on this thread each time a probe starts, so a
    // community changed meanwhile is the one used.
    ManualAddressCheck(Services services, std::function<ProbeSettings()> settings, QObject* parent = nullptr);
    ~ManualAddressCheck() override;
    ManualAddressCheck(const ManualAddressCheck&) = delete;
    ManualAddressCheck& operator=(const ManualAddressCheck&) = delete;

    // How long typing must pause before a well-formed text is resolved.
    void setPause(std::chrono::milliseconds pause) { m_pause.setInterval(pause); }

    // The field's text after an edit (blanks around it ignored).
    void setText(const QString& text);
    // Back to Empty, with nothing running.
    void reset();

    const Result& result() const { return m_result; }
    bool isRunning() const { return m_worker.joinable(); }

Q_SIGNALS:
    // Every new result, also when only the shown address changed.
    void changed(const talvo::ManualAddressCheck::Result& result);

private:
    void stopRunning();
    void startCheck();
    void publish(Result result);
    // Runs `step` on this object's thread unless the check moved on.
    void postIfCurrent(uint64_t generation, std::function<void()> step);

    Services m_services;
    std::function<ProbeSettings()> m_settings;
    QTimer m_pause;
    QString m_text;
    Result m_result;
    uint64_t m_generation = 0; // bumped by every edit and reset
    std::jthread m_worker;
};

} // namespace talvo
