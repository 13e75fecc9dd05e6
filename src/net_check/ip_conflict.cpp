// Who else holds an IPv4 address.
#include <netinet/ether.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include <velkor/firmware.h>
#include <velkor/network.h>
#include <velkor/text.h>

#include "support/arp_probe.h"
#include "support/card_names.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/platform.h"

namespace {

constexpr int SLOTS = VELKOR_CHECK_IP_SLOTS;
constexpr int SLOT_SIZE = VELKOR_CHECK_IP_SLOT_SIZE;

using SlotText = char[SLOT_SIZE];

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

// ---- The answers ----

// Counts stations. Their texts are kept here as well as at the caller's, who may not want them.
class Answers {
public:
    explicit Answers(char *buffer, int slots) : buffer_(buffer), slots_(slots) {}

    int count() const { return count_; }
    bool is_enough() const { return count_ >= slots_; }

    // A text that is recorded without being counted stays until the next takes its place.
    void take(const unsigned char *mac, const OwnCards &cards) {
        if (count_ < SLOTS) {
            char text[SLOT_SIZE] = "";
            write_mac(text, mac);
            VK_LOG("%s,%d,received = %d,mac = %s\n", "recv_pack", 234, count_, text);
            if (is_known(text)) {
                VK_LOG("%s,%d,same same same!!!", "recv_pack", 240);
                return;
            }
            record(text);
        }
        if (cards.may_have_sent(mac)) {
            return;
        }
        VK_LOG("%s,%d,received=%d +1", "recv_pack", 304, count_);
        ++count_;
    }

private:
    static void write_mac(SlotText &text, const unsigned char *mac) {
        struct ether_addr address;
        memcpy(&address, mac, sizeof address);
        ether_ntoa_r(&address, text);
    }

    // As far as the recorded text goes: one that begins with it counts as the same.
    bool is_known(const char *text) const {
        const auto begins = [&](const SlotText &known) { return strncmp(text, known, strlen(known)) == 0; };
        return std::any_of(texts_, texts_ + count_, begins);
    }

    void record(const char *text) {
        strncopy(texts_[count_], text, SLOT_SIZE - 1);
        if (buffer_ != nullptr && count_ < slots_) {
            memcpy(buffer_ + static_cast<ptrdiff_t>(count_) * SLOT_SIZE, texts_[count_], SLOT_SIZE);
        }
    }

    char *const buffer_;
    const int slots_;
    SlotText texts_[SLOTS] = {};
    int count_ = 0;
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

int ask_and_listen(int number, const char *address, int timeout, Answers answers) {
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
                answers.take(&room[velkor::ArpLayout::HEADER_SIZE], cards);
            }
        },
        [&] { return answers.is_enough(); });
    return compare(answers.count(), probe.sent());
}

}  // namespace

int CheckIp(int number, const char *address, char *buffer, int timeout, int slots) {
    const velkor::LockGuard guard(probe_lock);
    if (address == nullptr || slots > SLOTS) {
        return -1;
    }
    return ask_and_listen(number, address, timeout, Answers(buffer, slots));
}

int arping_main(int number, char *const arguments[]) {
    if (arguments == nullptr || arguments[0] == nullptr || arguments[1] == nullptr) {
        return -1;
    }
    return ask_and_listen(number, arguments[1], 1, Answers(nullptr, 1));
}
