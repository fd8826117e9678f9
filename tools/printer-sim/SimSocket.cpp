#include "printer-sim/SimSocket.h"

#include "foundation/NetworkAddress.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstring>

namespace talvo::sim {

QString endpointText(const sockaddr_in& address)
{
    return stringForInetAddr(address.sin_addr.s_addr) + u':' + QString::number(ntohs(address.sin_port));
}

bool sendFrom(int socket, const QByteArray& datagram, const sockaddr_in& to, uint32_t source)
{
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    in_pktinfo info{};
    info.ipi_spec_dst.s_addr = source;
    iovec buffer{const_cast<char*>(datagram.constData()), static_cast<size_t>(datagram.size())};
    msghdr message{};
    message.msg_name = const_cast<sockaddr_in*>(&to);
    message.msg_namelen = sizeof to;
    message.msg_iov = &buffer;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof info);
    std::memcpy(CMSG_DATA(header), &info, sizeof info);
    return ::sendmsg(socket, &message, MSG_DONTWAIT) >= 0;
}

} // namespace talvo::sim
