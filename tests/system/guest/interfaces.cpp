#include "interfaces.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rig {

namespace {

// One netlink request. Attributes nest from their opening to their closing.
class Request {
public:
    Request(uint16_t type, uint16_t flags)
    {
        header()->nlmsg_len = NLMSG_LENGTH(sizeof(ifinfomsg));
        header()->nlmsg_type = type;
        header()->nlmsg_flags = flags;
    }

    size_t open(uint16_t type)
    {
        const size_t start = header()->nlmsg_len;
        add(type, nullptr, 0);
        return start;
    }

    void close(size_t start)
    {
        reinterpret_cast<rtattr *>(buffer_ + start)->rta_len = static_cast<uint16_t>(header()->nlmsg_len - start);
    }

    void add(uint16_t type, const void *data, size_t size)
    {
        auto *attribute = reinterpret_cast<rtattr *>(buffer_ + header()->nlmsg_len);
        attribute->rta_type = type;
        attribute->rta_len = static_cast<uint16_t>(RTA_LENGTH(size));
        if (size != 0)
            memcpy(RTA_DATA(attribute), data, size);
        header()->nlmsg_len += RTA_ALIGN(attribute->rta_len);
    }

    void add(uint16_t type, const char *text) { add(type, text, strlen(text) + 1); }

    // An interface record without an attribute around it.
    void add_interface() { header()->nlmsg_len += NLMSG_ALIGN(sizeof(ifinfomsg)); }

    bool send()
    {
        const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
        header()->nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
        struct {
            nlmsghdr header;
            nlmsgerr error;
            char rest[512];
        } answer = {};
        const bool answered = fd >= 0 && ::send(fd, buffer_, header()->nlmsg_len, 0) > 0 &&
                              recv(fd, &answer, sizeof answer, 0) > 0 && answer.header.nlmsg_type == NLMSG_ERROR;
        if (fd >= 0)
            ::close(fd);
        if (answered)
            errno = -answer.error.error;
        return answered && answer.error.error == 0;
    }

private:
    nlmsghdr *header() { return reinterpret_cast<nlmsghdr *>(buffer_); }

    alignas(nlmsghdr) char buffer_[512] = {};
};

bool make_link(const char *name, const char *peer)
{
    Request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    request.add(IFLA_IFNAME, name);
    const size_t info = request.open(IFLA_LINKINFO);
    request.add(IFLA_INFO_KIND, "veth");
    const size_t data = request.open(IFLA_INFO_DATA);
    const size_t end = request.open(VETH_INFO_PEER);
    request.add_interface();
    request.add(IFLA_IFNAME, peer);
    request.close(end);
    request.close(data);
    request.close(info);
    return request.send();
}

// Sends one request on an interface's name.
bool control(const char *name, unsigned long number, ifreq &request)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    snprintf(request.ifr_name, sizeof request.ifr_name, "%s", name);
    const bool done = fd >= 0 && ioctl(fd, number, &request) == 0;
    if (fd >= 0)
        close(fd);
    return done;
}

bool rename(const char *from, const char *to)
{
    ifreq request = {};
    snprintf(request.ifr_newname, sizeof request.ifr_newname, "%s", to);
    return control(from, SIOCSIFNAME, request);
}

} // namespace

bool set_up(const char *name, bool up)
{
    ifreq request = {};
    if (!control(name, SIOCGIFFLAGS, request))
        return false;
    request.ifr_flags = static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
    return control(name, SIOCSIFFLAGS, request);
}

bool make_interfaces()
{
    // The kernel gives the card the first name.
    return rename("eth0", "eth1") && make_link("eth0", "eth3");
}

} // namespace rig
