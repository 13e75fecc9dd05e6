#include <net/if.h>
#include <netinet/in.h>
#include <velkor/network.h>

#include "support/export_table.h"
#include "support/place.h"
#include "support/second_host.h"

namespace exports {
namespace {

constexpr const char *NEIGHBOUR = "10.7.0.2";
constexpr const char *SILENT = "10.7.0.3";  // what is sent there is lost
constexpr const char *NOBODY = "10.7.0.9";
constexpr int LOOK_MS = 980;

// A recorder with one card, a default route, and a second host that answers.
struct Network {
    SecondHost host{"eth0", "10.7.0.1/24", "10.7.0.2/24"};

    Network() {
        place::output_of("ip route add default via 10.7.0.2");
        host.run("ip link set eth0 address 02:00:00:00:00:22");
        place::output_of("ip neighbour add 10.7.0.3 lladdr 02:00:00:00:00:33 dev eth0");
        host.wait_for_links();
    }
};

std::shared_ptr<void> prepare() { return std::make_shared<Network>(); }

// ---- Addresses ----

constexpr unsigned char MAC[6] = {6, 5, 4, 3, 2, 2};

// ---- Bit arrays ----

std::string bits_of(const uint32_t (&bits)[64]) {
    std::string text;
    for (const uint32_t bit : bits) {
        text += std::to_string(bit) + ' ';
    }
    return text;
}

template <typename Call>
std::string bits(Call call) {
    uint32_t array[64] = {1, 0, 1};
    const auto result = call(array);
    return text_of(result, bits_of(array));
}

constexpr uint32_t WORDS[16] = {0x80000005, 0x42};

// ---- Names ----

std::string resolved() {
    char address[INET6_ADDRSTRLEN] = "";
    int family = -1;
    const int result = GetIPbyDNSV2("localhost", address, &family);
    return text_of(result, address, family);
}

std::string looked_up() {
    velkor_lookup *lookup = nullptr;
    const int result = GetIpByNameAsync("localhost", 3, &lookup);
    if (lookup != nullptr) {
        velkor_lookup_let_go(lookup);
    }
    return text_of(result, lookup != nullptr);
}

// The worker's side: the lookup is still this side's afterwards.
std::string task_of_a_worker() {
    auto *const lookup = static_cast<velkor_lookup *>(dvrCalloc(1, sizeof(velkor_lookup), "src/common_fun", 1));
    strncpy(lookup->name, "127.0.0.1", sizeof lookup->name - 1);
    lookup->status = VELKOR_LOOKUP_PENDING;
    pthread_mutex_init(&lookup->lock, nullptr);
    const void *const result = _Thr_GetIpTask(lookup);
    const int32_t status = lookup->status;
    velkor_lookup_let_go(lookup);
    return text_of(result == nullptr, status);
}

// ---- Interfaces ----

std::string own_address() {
    char mask[16] = "";
    const std::string text = filled([&](char *address) { return get_local_address(address, mask, "eth0"); });
    return text_of(text, mask);
}

std::string ipv6_address() {
    uint32_t attribute = 0;
    const uintptr_t device = if_nametoindex("lo");
    const std::string text = filled([&](char *out) { return NetDevice_GetIpv6AddressUsed(out, &attribute, device); });
    return text_of(text, attribute);
}

// ---- Questions to others ----

// It listens up to a second less than one: the answer may come too late.
std::string arping(const char *address) {
    char name[] = "arping";
    char *const arguments[] = {name, const_cast<char *>(address), nullptr};
    const int result = arping_main(0, arguments);
    return text_of(result == 0 || result == 1);
}

std::string mac_check(int timeout) {
    IfIRecvArp(1);
    return filled([=](char *found) { return CheckMac(NEIGHBOUR, "eth0", found, timeout); });
}

constexpr uint16_t PACKET[] = {1, 2, 3};

std::string delay(const char *address) {
    uint32_t milliseconds = 0;
    uint32_t replies = 0;
    const int result = CheckNetDelay(1, address, &milliseconds, &replies, 1, 1);
    return text_of(result, replies, milliseconds < 1000);
}

constexpr Row ROWS[] = {
    {"IsValidIP", [] { return text_of(IsValidIP("10.1.2.3")); }, PLAIN},
    {"IsValidIPv6", [] { return text_of(IsValidIPv6("2001:db8::1")); }},
    {"IsValidIpv6Gw", [] { return text_of(IsValidIpv6Gw("fe80::1")); }},
    {"detect_ip_type", [] { return text_of(detect_ip_type("2001:db8::1")); }, PLAIN},
    {"ipstring2u32", [] { return text_of(ipstring2u32("10.1.2.3")); }, PLAIN},
    {"IPAddressU32ToChar", [] { return filled([](char *out) { return IPAddressU32ToChar(0x0302010a, out); }); }, PLAIN},
    {"ChangeIpAddr", [] { return changed("010.001.000.005", ChangeIpAddr); }, PLAIN},
    {"Check_Mac_Rationality", [] { return text_of(Check_Mac_Rationality(MAC)); }},
    {"ReverseMAC", [] { return changed("02:00:00:00:00:11", [](char *text) { return ReverseMAC(text, 18); }); }, PLAIN},
    {"ConverseMAC", [] { return changed("02:ab:cd:ef:00:11", [](char *text) { return *ConverseMAC(text); }); }, PLAIN},
    {"ConverseLowMAC", [] { return changed("02:AB:CD:EF:00:11", [](char *text) { return *ConverseLowMAC(text); }); },
     PLAIN},

    {"decimal2binary", [] { return bits([](uint32_t *out) { return decimal2binary(5, 2, out); }); }, PLAIN},
    {"binary2decimal", [] { return bits([](uint32_t *in) { return binary2decimal(3, in); }); }, PLAIN},
    {"decimal2binaryEx", [] { return bits([](uint32_t *out) { return decimal2binaryEx(WORDS, out, 64); }); }, PLAIN},
    {"binary2decimalEx", [] { return bits([](uint32_t *in) { return binary2decimalEx(64, in, in + 32); }); }, PLAIN},
    {"Netbinary2decimalEx", [] { return bits([](uint32_t *in) { return Netbinary2decimalEx(32, in, in + 32); }); },
     PLAIN},

    {"GetIPbyDNSV2", resolved, {.lasts_ms = LOOK_MS, .starts_threads = true}},
    {"GetIpByNameAsync", looked_up, {.lasts_ms = LOOK_MS, .starts_threads = true}},
    {"_Thr_GetIpTask", task_of_a_worker},

    {"get_local_address", own_address},
    {"GetNetInterFaceMac", [] { return filled([](char *out) { return GetNetInterFaceMac(out, "eth0"); }); }},
    {"get_gateway", [] { return filled([](char *out) { return get_gateway(out, "eth0"); }); }},
    {"NetDevice_GetIpv6AddressUsed", ipv6_address},
    {"GetRandomPort", [] { return text_of(GetRandomPort(1024) >= 1024); },
     sharing("all but GetRandomPort() are reentrant: each call seeds rand() of the whole process")},

    {"CheckIp", [] { return filled([](char *found) { return CheckIp(0, NEIGHBOUR, found, 3, 1); }); }},
    {"CheckIp (nobody answers)",
     [] { return filled([](char *found) { return CheckIp(0, NOBODY, found, 2, 1); }); },
     {.threads = Threads::IN_TURNS, .lasts_ms = 1000, .reason = "calls in one process run one after the other"}},
    {"arping_main", [] { return arping(NEIGHBOUR); }},
    {"CheckMac", [] { return mac_check(2); }, lasting(1000)},
    {"IfIRecvArp", [] { return IfIRecvArp(1), text_of(); }, PLAIN},

    {"CheckNetDelay", [] { return delay(NEIGHBOUR); },
     sharing("calls at the same moment may take each other's answers")},
    {"CheckNetDelay (no answer)", [] { return delay(SILENT); }, lasting(1000)},
    {"cal_chksum", [] { return text_of(cal_chksum(PACKET, sizeof PACKET)); }, PLAIN},
};

}  // namespace

const Group NETWORK = {ROWS, prepare};

}  // namespace exports
