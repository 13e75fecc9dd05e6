// Whether an Ethernet port has a link.
#include <errno.h>
#include <linux/ethtool.h>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <velkor/system_info.h>

#include "support/interface_request.h"
#include "support/owners.h"

namespace {

constexpr int LAST_PORT = 8;
constexpr size_t NAME_LENGTH = 9;  // of a port; more is cut off
constexpr uint16_t STATUS_BITS = BMSR_JCD | BMSR_LSTATUS | BMSR_RFAULT;

// The driver's answer lies behind the request's pointer.
struct LinkQuestion {
    uint32_t command = ETHTOOL_GLINK;
    uint32_t data = 0;
};

int open_socket() { return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

void tell_failure(const char *request, const char *interface) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): at worst another thread's message
    fprintf(stderr, "%s on %s failed: %s\n", request, interface, strerror(errno));
}

}  // namespace

int detect_ethtool(int socket, const char *interface) {
    LinkQuestion question;
    struct ifreq request = velkor::interface_request(interface);
    request.ifr_data = reinterpret_cast<char *>(&question);
    if (ioctl(socket, SIOCETHTOOL, &request) == -1) {
        return VELKOR_LINK_UNKNOWN;
    }
    return question.data == 0 ? VELKOR_LINK_DOWN : VELKOR_LINK_UP;
}

int detect_mii(int socket, const char *interface) {
    interface = interface != nullptr ? interface : "";
    struct ifreq request;
    memset(&request, 0, sizeof request);
    strncpy(request.ifr_name, interface, IFNAMSIZ);  // the kernel ends it itself
    if (ioctl(socket, SIOCGMIIPHY, &request) == -1) {
        tell_failure("SIOCGMIIPHY", interface);
        close(socket);
        return VELKOR_LINK_UNKNOWN;
    }
    // The kernel has put the transceiver's address into the union where the name's data would be.
    struct mii_ioctl_data registers;
    static_assert(sizeof registers <= sizeof request.ifr_ifru);
    memcpy(&registers, &request.ifr_ifru, sizeof registers);
    registers.reg_num = MII_BMSR;
    memcpy(&request.ifr_ifru, &registers, sizeof registers);
    if (ioctl(socket, SIOCGMIIREG, &request) == -1) {
        tell_failure("SIOCGMIIREG", interface);
        return VELKOR_LINK_UNKNOWN;
    }
    memcpy(&registers, &request.ifr_ifru, sizeof registers);
    return (registers.val_out & STATUS_BITS) == BMSR_LSTATUS ? VELKOR_LINK_UP : VELKOR_LINK_DOWN;
}

int DetectEth0(int number) {
    if (number > LAST_PORT) {
        return -1;
    }
    char interface[IFNAMSIZ];
    snprintf(interface, sizeof interface, "eth%d", number);
    interface[NAME_LENGTH] = '\0';
    // Not an owner: detect_mii() may close it, and then it is closed once more.
    const int socket = open_socket();
    if (socket < 0) {
        return socket;
    }
    int link = detect_ethtool(socket, interface);
    if (link == VELKOR_LINK_UNKNOWN) {
        link = detect_mii(socket, interface);
    }
    close(socket);
    return link;
}

int DetectEth0Ex() {
    LinkQuestion question;
    struct ifreq request = velkor::interface_request("eth0");
    request.ifr_data = reinterpret_cast<char *>(&question);
    const velkor::OwnedDescriptor socket(open_socket());
    return socket ? ioctl(socket.get(), SIOCDEVPRIVATE, &request) : -1;
}
