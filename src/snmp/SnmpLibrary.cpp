#include "snmp/SnmpLibrary.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "foundation/LogThrottle.h"

#include <cstdlib>

Q_LOGGING_CATEGORY(lcSnmp, "talvo.snmp")

namespace talvo::snmp {
namespace {

// The library's own messages ("Bad PDU type received", ...) come once per bad
// datagram: they go to our log, a few lines at a time, instead of straight to
// standard error.
int libraryMessage(int, int, void* serverArgument, void*)
{
    static LogThrottle throttle;
    const auto* message = static_cast<const snmp_log_message*>(serverArgument);
    if (message && message->msg && throttle.admit(LogThrottle::Clock::now()))
        qCDebug(lcSnmp).noquote() << "net-snmp:" << QString::fromLocal8Bit(message->msg).trimmed();
    return 0;
}

} // namespace

void ensureLibraryInitialised()
{
    static std::once_flag once;
    std::call_once(once, [] {
        std::lock_guard lock(libraryMutex());
        // The system speaks numeric OIDs only: loading the MIB files would cost
        // time and fill the log with "Cannot find module" lines. A MIBS the
        // user set is left as it is.
        ::setenv("MIBS", "", 0);
        // No persistent state is loaded or saved on the user's behalf: the
        // system keeps nothing between runs in net-snmp's files.
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
        snmp_disable_log();
        snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &libraryMessage, nullptr);
        snmp_enable_calllog();
        init_snmp(sorlenDiscoverySNMPType);
    });
}

std::recursive_mutex& libraryMutex()
{
    static std::recursive_mutex mutex;
    return mutex;
}

} // namespace talvo::snmp
