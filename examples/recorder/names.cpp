#include "names.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <velkor/network.h>

#include <algorithm>

#include "eventually.h"
#include "log.h"
#include "place.h"

namespace recorder {

namespace {

constexpr int TIMEOUT_S = 1;
// The library gives up one to three seconds after the time-out; the resolver would after a minute. Between the two
// there is room for a machine that is busy with other things.
constexpr unsigned BOUND_MS = 10000;

std::string first_address(const velkor_lookup &lookup) {
    char text[INET_ADDRSTRLEN] = "";
    for (const struct addrinfo *entry = lookup.result; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET) {
            const auto *const address = reinterpret_cast<const struct sockaddr_in *>(entry->ai_addr);
            inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
            break;
        }
    }
    return text;
}

}  // namespace

void Names::turn() {
    const Clock::time_point start = Clock::now();
    velkor_lookup *lookup = nullptr;
    ++asked_;
    const int result = GetIpByNameAsync(place::NAME, TIMEOUT_S, &lookup);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    longest_ms_ = std::max(longest_ms_.load(), static_cast<unsigned>(took.count()));
    expect(longest_ms_ < BOUND_MS, "a lookup keeps nobody for long");
    is_unanswered_ = result != 0;
    if (result == 0) {
        const std::string address = first_address(*lookup);
        expect(address == place::NAMED_ADDRESS, "the name has the address that its server knows");
        address_.set(address);
        ++resolved_;
        ++answers_since_;
    } else {
        ++given_up_;
        RECORDER_LOG("names", "no answer about %s: given up after %u ms", place::NAME,
                     static_cast<unsigned>(took.count()));
    }
    if (lookup != nullptr) {
        velkor_lookup_let_go(lookup);  // a resolver that still hangs frees it when it returns
    }
}

void Names::conclude() {
    for (unsigned turns = 0; turns < 3 && resolved_ == 0; ++turns) {
        turn();  // a short run, in which the only lookup met with trouble
    }
    expect(asked_ == resolved_ + given_up_ && resolved_ > 0, "the name is resolved");
}

Panel Names::panel() const {
    const std::string address = address_.get();
    return {format("%s is %s", place::NAME, address.empty() ? "not known yet" : address.c_str()),
            format("%u of %u resolved, %.1f s at most", resolved_.load(), asked_.load(), longest_ms_ / 1000.0)};
}

std::string Names::tally() const { return format("%u names", resolved_.load()); }

std::string Names::summary() const {
    return format("%u of %u lookups resolved, %s is %s; %u given up, the longest took %.1f s", resolved_.load(),
                  asked_.load(), place::NAME, address_.get().c_str(), given_up_.load(), longest_ms_ / 1000.0);
}

}  // namespace recorder
