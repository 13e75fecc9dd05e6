// Who else holds an IPv4 address.
#include <net/ethernet.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include <velkor/firmware.h>
#include <velkor/network.h>

#include "net_check/arp_answers.h"
#include "net_check/arp_probe.h"
#include "net_check/card_names.h"
#include "support/lock_guard.h"
#include "support/platform.h"

namespace {

// One probe at a time in a process.
pthread_mutex_t probe_lock = PTHREAD_MUTEX_INITIALIZER;

__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] { probe_lock = PTHREAD_MUTEX_INITIALIZER; });
}

// ---- The recorder's own cards ----

class OwnCards {
public:
    OwnCards() {
        const CfgMediaDevice *const device = Cfg_gMediaDevice(0);
        const CfgNetConfig *const config = Cfg_gNetConfig(0);
        if (device == nullptr || config == nullptr) {
            return;
        }
        count_ = std::clamp(device->cardCount, 0, VELKOR_CARDS);
        for (int card = 0; card < count_; ++card) {
            std::reverse_copy(config->mac[card], config->mac[card] + ETH_ALEN, macs_[card]);
        }
    }

    // The only card of a recorder cannot answer itself.
    bool may_have_sent(const unsigned char *mac) const {
        const auto is_it = [&](const auto &own) { return memcmp(own, mac, ETH_ALEN) == 0; };
        return count_ >= 2 && std::any_of(macs_, macs_ + count_, is_it);
    }

private:
    int count_ = 0;
    unsigned char macs_[VELKOR_CARDS][ETH_ALEN] = {};
};

// ---- The probe ----

// Cards count from 0 here.
void name_card(velkor::InterfaceName &name, int number) {
    const velkor::Bonding bonding = velkor::configured_bonding();
    if (bonding.is_on && number < 4) {
        snprintf(name, sizeof name, "bond0");
    } else if (bonding.has_second && number >= 4) {
        snprintf(name, sizeof name, "bond1");
    } else {
        snprintf(name, sizeof name, "eth%d", number);
    }
}

int compare(int answers, int questions) {
    if (answers == 0 || answers < questions) {
        return 0;
    }
    return answers == questions ? 1 : 2;
}

int ask_and_listen(int number, const char *address, int timeout, velkor::ArpAnswers answers) {
    const OwnCards cards;
    velkor::InterfaceName interface;
    name_card(interface, number);
    velkor::ArpProbe probe;
    if (!probe.ask(interface, address)) {
        return -1;
    }
    velkor::listen_for_arp(
        probe.descriptor(), timeout,
        [&](const velkor::ArpRoom &room, size_t length, unsigned char packet_type) {
            if (probe.is_answered_by(velkor::ArpBytes(room).first(length), packet_type)) {
                const unsigned char *const mac = &room[velkor::ArpLayout::HEADER_SIZE];
                answers.take(mac, cards.may_have_sent(mac));
            }
        },
        [&] { return answers.is_enough(); });
    return compare(answers.count(), probe.sent());
}

}  // namespace

int CheckIp(int number, const char *address, char *buffer, int timeout, int slots) {
    const velkor::LockGuard guard(probe_lock);
    if (address == nullptr || slots > VELKOR_CHECK_IP_SLOTS) {
        return -1;
    }
    return ask_and_listen(number, address, timeout, velkor::ArpAnswers(buffer, slots));
}

int arping_main(int number, char *const arguments[]) {
    if (arguments == nullptr || arguments[0] == nullptr || arguments[1] == nullptr) {
        return -1;
    }
    return ask_and_listen(number, arguments[1], 1, velkor::ArpAnswers(nullptr, 1));
}
