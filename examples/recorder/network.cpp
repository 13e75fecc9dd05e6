#include "network.h"

#include <velkor/network.h>
#include <velkor/system_info.h>

#include <cstring>

#include "log.h"
#include "place.h"

namespace recorder {

namespace {

constexpr unsigned CONFLICT_EVERY = 6;  // turns

}  // namespace

// Where the driver does not tell, asking closes a descriptor twice (system_info.h): so it is asked once, before there
// are threads that could have opened another one meanwhile, and never again.
void Network::prepare() {
    const int link = DetectEth0(0);
    driver_tells_ = link != VELKOR_LINK_UNKNOWN;
    is_up_ = link != VELKOR_LINK_DOWN;
    expect(!driver_tells_ || link == VELKOR_LINK_UP, "the link is up");

    char address[16] = "";
    char mask[16] = "";
    expect(get_local_address(address, mask, place::INTERFACE) == 0, "the address and the mask are told");
    expect(strcmp(address, place::ADDRESS) == 0 && strcmp(mask, place::MASK) == 0, "they are what was set");
    expect(IsValidIP(address) == 1, "the address is one for a host");
    char gateway[16] = "";
    expect(get_gateway(gateway, place::INTERFACE) == 0, "the routes are read");
    expect(strcmp(gateway, place::SECOND_HOST) == 0, "the gateway is the second host");
    gateway_.set(gateway);
}

void Network::turn() {
    look_at_link();
    if (is_up_) {
        ping();
    }
    if (is_up_ && turns_++ % CONFLICT_EVERY == 0) {
        look_for_conflict();
    }
}

void Network::look_at_link() {
    const bool is_up = !driver_tells_ || DetectEth0(0) == VELKOR_LINK_UP;
    if (is_up != is_up_) {
        times_down_ += is_up ? 0 : 1;
        RECORDER_LOG("network", "%s is %s", place::INTERFACE,
                     is_up ? "up again" : "down: the second host is not asked");
    }
    is_up_ = is_up;
}

void Network::ping() {
    uint32_t delay = 0;
    uint32_t replies = 0;
    ++asked_;
    if (CheckNetDelay(1, place::SECOND_HOST, &delay, &replies, 1, 1) == 0) {
        expect(replies == 1, "an answer is counted");
        delay_ms_ = delay;
        ++answered_;
        ++answers_since_;
    } else {
        ++unanswered_;
        RECORDER_LOG("network", "%s does not answer", place::SECOND_HOST);
    }
}

// As before a recorder takes an address: who has it? The second host's is its own, and it says so.
void Network::look_for_conflict() {
    char holders[VELKOR_CHECK_IP_SLOTS][VELKOR_CHECK_IP_SLOT_SIZE] = {};
    const int stations = CheckIp(0, place::SECOND_HOST, holders[0], 1, 1);
    if (stations == 1) {
        expect(strcmp(holders[0], place::SECOND_HOST_MAC) == 0, "the second host holds its address");
        ++conflicts_;
        RECORDER_LOG("network", "%s is taken by %s", place::SECOND_HOST, holders[0]);
    }
}

void Network::conclude() {
    char holders[VELKOR_CHECK_IP_SLOTS][VELKOR_CHECK_IP_SLOT_SIZE] = {};
    expect(CheckIp(0, place::ADDRESS, holders[0], 1, 1) == 0, "nobody else holds this recorder's address");
    if (conflicts_ == 0) {
        look_for_conflict();
    }
    expect(asked_ == answered_ + unanswered_ && answered_ > 0, "the second host answers");
    expect(unanswered_ == 0 || has_seen_loss(), "it does not fail to while there is a link");
    expect(conflicts_ > 0, "an address that is taken is found to be");
}

Panel Network::panel() const {
    const char *const state = !driver_tells_ ? "link unknown" : is_up_ ? "up" : "DOWN";
    return {format("%s %s, gateway %s", place::INTERFACE, state, gateway_.get().c_str()),
            format("%u of %u pings answered, %u ms", answered_.load(), asked_.load(), delay_ms_.load())};
}

std::string Network::tally() const { return format("%u pings", answered_.load()); }

std::string Network::summary() const {
    return format("%u of %u pings answered; %s taken by %s, %s by nobody else; link %s", answered_.load(),
                  asked_.load(), place::SECOND_HOST, place::SECOND_HOST_MAC, place::ADDRESS,
                  driver_tells_ ? format("lost %u times", times_down_.load()).c_str() : "not told by the driver");
}

}  // namespace recorder
