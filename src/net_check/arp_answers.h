// The stations that answered an ARP question: counted, told apart by their MAC, and recorded where the caller wants it.
#pragma once

#include <netinet/ether.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include <velkor/network.h>
#include <velkor/text.h>

#include "support/log.h"

namespace velkor {

// Their texts are kept here as well as at the caller's, who may not want them.
class ArpAnswers {
public:
    ArpAnswers(char *buffer, int slots) : buffer_(buffer), slots_(slots) {}

    int count() const { return count_; }
    bool is_enough() const { return count_ >= slots_; }

    // A text that is recorded without being counted stays until the next takes its place.
    void take(const unsigned char *mac, bool is_own) {
        if (count_ < SLOTS) {
            SlotText text = "";
            write_mac(text, mac);
            VK_LOG("%s,%d,received = %d,mac = %s\n", "recv_pack", 234, count_, text);
            if (is_known(text)) {
                VK_LOG("%s,%d,same same same!!!", "recv_pack", 240);
                return;
            }
            record(text);
        }
        if (is_own) {
            return;
        }
        VK_LOG("%s,%d,received=%d +1", "recv_pack", 304, count_);
        ++count_;
    }

private:
    static constexpr int SLOTS = VELKOR_CHECK_IP_SLOTS;
    static constexpr int SLOT_SIZE = VELKOR_CHECK_IP_SLOT_SIZE;
    using SlotText = char[SLOT_SIZE];

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

}  // namespace velkor
