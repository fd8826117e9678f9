#pragma once
// What the simulator's sockets share: a printer's datagram sent from its own
// address, and the text of an endpoint for the event log.

#include <QByteArray>
#include <QString>

#include <netinet/in.h>

#include <cstdint>

namespace talvo::sim {

// "A.B.C.D:PORT".
QString endpointText(const sockaddr_in& address);

// Sends `datagram` to `to` from `source` (network order), a local address of
// the namespace: the address rides in IP_PKTINFO, since the simulator's
// sockets are bound to 0.0.0.0 for all its printers at once. Does not block;
// false with errno set when nothing was sent.
bool sendFrom(int socket, const QByteArray& datagram, const sockaddr_in& to, uint32_t source);

} // namespace talvo::sim
