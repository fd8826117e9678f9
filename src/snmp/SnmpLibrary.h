#pragma once

// The net-snmp library as one process-wide resource: set up once, and one lock
// around every call into its traditional (single-threaded) session API, so
// queries can be sent from any thread while the work thread pumps replies.
//
//     talvo::snmp::ensureLibraryInitialised();
//     std::lock_guard lock(talvo::snmp::libraryMutex());
//     snmp_async_send(...);

#include <QLoggingCategory>

#include <mutex>

Q_DECLARE_LOGGING_CATEGORY(lcSnmp)

namespace talvo::snmp {

// The application name net-snmp is set up and shut down with.
inline constexpr char sorlenDiscoverySNMPType[] = "SorlenDiscovery";

// Runs init_snmp exactly once, however often and from whichever thread it is
// called. The first call sets MIBS in the environment, which no other thread
// may read or change meanwhile (a child started at that moment reads it):
// make the first call before the process starts threads, as the SNMP
// transport's constructor does.
void ensureLibraryInitialised();

// Recursive: reply callbacks run inside snmp_read and may send new queries.
std::recursive_mutex& libraryMutex();

} // namespace talvo::snmp
