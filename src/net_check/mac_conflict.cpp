// Whether another station uses an interface's MAC.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <string.h>

#include <atomic>

#include <velkor/network.h>
#include <velkor/text.h>

#include "net_check/arp_probe.h"
#include "support/log.h"

namespace {

constexpr int MAC_LENGTH = 6;

using Ipv4Text = char[INET_ADDRSTRLEN];

std::atomic<bool> listens{false};

void write_address(char *out, uint32_t address) {
    Ipv4Text text = "";
    inet_ntop(AF_INET, &address, text, sizeof text);
    strncopy(out, text, INET_ADDRSTRLEN - 1);
}

// Looks at one packet after the other. None is checked for its form: whatever carries the MAC tells of a station that
// uses it.
class MacWatch {
public:
    MacWatch(const char *interface, const char *probed, char *found, velkor::ArpLayout layout)
        : interface_(interface), probed_(probed), found_(found), layout_(layout) {}

    int conflicts() const { return conflicts_; }

    void take(const velkor::ArpRoom &packet) {
        Ipv4Text own_address = "";
        char own_mac[MAC_LENGTH + 1] = "";
        if (get_local_address(own_address, nullptr, interface_) == 0 && GetNetInterFaceMac(own_mac, interface_) == 0 &&
            memcmp(&packet[layout_.sender_hardware()], own_mac, MAC_LENGTH) == 0) {
            look_at_sender(packet, own_address, own_mac);
        }
        settle();
    }

private:
    void look_at_sender(const velkor::ArpRoom &packet, const char *own_address, const char *own_mac) {
        const uint32_t sender = velkor::address_at(packet, layout_.sender_protocol());
        write_address(found_, velkor::address_at(packet, layout_.target_protocol()));
        write_address(sender_, sender);
        if (sender == 0 || strcmp(sender_, own_address) == 0) {
            return;
        }
        VK_LOG("check mac: _csrcIp== %s  _cdstIp == %s ", sender_, found_);
        for (int i = 0; i < MAC_LENGTH; ++i) {
            VK_LOG("mac check:%c", own_mac[i]);
        }
        ++conflicts_;
    }

    // What was seen counts only when it is not about the address that was asked for.
    void settle() {
        if (*found_ == '\0' || strcmp(found_, probed_) == 0) {
            conflicts_ = 0;
        } else if (*sender_ != '\0' && strcmp(sender_, "0.0.0.0") != 0) {
            strncopy(found_, sender_, INET_ADDRSTRLEN - 1);
        }
    }

    const char *const interface_;
    const char *const probed_;
    char *const found_;
    const velkor::ArpLayout layout_;
    Ipv4Text sender_ = "";  // of the last packet that carried the MAC
    int conflicts_ = 0;
};

}  // namespace

int CheckMac(const char *address, const char *interface, char *found, int timeout) {
    if (address == nullptr || interface == nullptr) {
        return -1;
    }
    velkor::ArpProbe probe;
    if (!probe.ask(interface, address)) {
        return -1;
    }
    if (!listens.load(std::memory_order_relaxed)) {
        return -2;
    }
    Ipv4Text unwanted = "";
    MacWatch watch(interface, address, found != nullptr ? found : unwanted, {probe.question().own.sll_halen});
    velkor::listen_for_arp(
        probe.descriptor(), timeout, [&](const velkor::ArpRoom &packet, size_t, unsigned char) { watch.take(packet); },
        [&] { return watch.conflicts() > 0; });
    if (watch.conflicts() == 0) {
        return 0;
    }
    VK_LOG("mac check dev:%s", interface);
    return 1;
}

void IfIRecvArp(int on) { listens.store(on != 0, std::memory_order_relaxed); }
