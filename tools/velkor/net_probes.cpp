// velkor net ping, arp, conflict: what other machines answer.
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <velkor/network.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <thread>

#include "descriptor.h"
#include "exit_status.h"
#include "net_commands.h"
#include "output.h"

namespace tool::net {

namespace {

// Ends the command when the process may not open the socket that the library will want.
void require_socket(const std::string &command, int family, int type, int protocol) {
    const Descriptor socket(::socket(family, type | SOCK_CLOEXEC, protocol));
    if (!socket && (errno == EPERM || errno == EACCES)) {
        throw Failure(BAD_USE, "net " + command +
                                   " needs the capability CAP_NET_RAW: run it with sudo, or once: "
                                   "sudo setcap cap_net_raw+ep $(command -v velkor)");
    }
    if (!socket) {
        fail_call("open a socket");
    }
}

// An address as it is, or the first IPv4 address of a name.
std::string ipv4_of(const std::string &host) {
    if (detect_ip_type(host.c_str()) == 0) {
        return host;
    }
    std::string address = resolve(host, 6).front();
    if (detect_ip_type(address.c_str()) != 0) {
        throw Failure(NEGATIVE, spelt_out(host) + " has no IPv4 address");
    }
    return address;
}

CLI::Option *add_seconds(CLI::App &command, int &seconds, const std::string &description) {
    return command.add_option("--timeout", seconds, description)
        ->type_name("S")
        ->check(CLI::Range(1, 3600).description(""))
        ->capture_default_str();
}

// ---- ping ----

struct PingOptions {
    std::string host;
    unsigned count = 4;
    int card = 1;
    int timeout = 1;
    double interval = 1;
    bool json = false;
};

struct PingResults {
    std::vector<Json> delays;  // milliseconds; null for no answer
    uint32_t answered = 0;
    uint32_t total = 0;
    uint32_t least = UINT32_MAX;
    uint32_t most = 0;
};

void ping_once(const PingOptions &options, const std::string &address, PingResults &results) {
    uint32_t delay = 0;
    const int result =
        CheckNetDelay(options.card, address.c_str(), &delay, nullptr, 1, static_cast<uint32_t>(options.timeout));
    if (result != 0) {
        results.delays.emplace_back(nullptr);
        if (!options.json) {
            std::cout << "no answer from " << address << std::endl;
        }
        return;
    }
    results.delays.emplace_back(delay);
    ++results.answered;
    results.total += delay;
    results.least = std::min(results.least, delay);
    results.most = std::max(results.most, delay);
    if (!options.json) {
        std::cout << "answer from " << address << " after " << delay << " ms" << std::endl;
    }
}

void show_summary(const PingOptions &options, const std::string &address, const PingResults &results) {
    const double average = results.answered != 0 ? static_cast<double>(results.total) / results.answered : 0;
    if (options.json) {
        print_json({{"host", options.host},
                    {"address", address},
                    {"sent", results.delays.size()},
                    {"answered", results.answered},
                    {"delays", results.delays},
                    {"average", results.answered != 0 ? Json(average) : Json(nullptr)}});
        return;
    }
    std::cout << results.delays.size() << " sent, " << results.answered << " answered";
    if (results.answered != 0) {
        std::cout << "; " << results.least << " to " << results.most << " ms, " << average << " on average";
    }
    std::cout << '\n';
}

int ping(const PingOptions &options) {
    require_socket("ping", AF_INET, SOCK_RAW, IPPROTO_ICMP);
    const std::string address = ipv4_of(options.host);
    // No request: says whether there is such a card.
    if (CheckNetDelay(options.card, address.c_str(), nullptr, nullptr, 0, 1) != 0) {
        throw Failure(NEGATIVE, "CheckNetDelay: -1, card " + std::to_string(options.card) +
                                    " has no interface (card 1 is eth0; with bonding, bond0)");
    }
    PingResults results;
    for (unsigned i = 0; i < options.count; ++i) {
        if (i != 0) {
            std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
        }
        ping_once(options, address, results);
    }
    show_summary(options, address, results);
    return results.answered == options.count ? SUCCESS : NEGATIVE;
}

// ---- arp ----

struct ArpOptions {
    std::string address;
    int card = 0;
    int timeout = 2;
    bool json = false;
};

int arp(const ArpOptions &options) {
    require_socket("arp", AF_PACKET, SOCK_DGRAM, 0);
    std::array<char, size_t{VELKOR_CHECK_IP_SLOTS} *VELKOR_CHECK_IP_SLOT_SIZE> slots = {};
    const int result =
        CheckIp(options.card, options.address.c_str(), slots.data(), options.timeout, VELKOR_CHECK_IP_SLOTS);
    if (result < 0) {
        throw Failure(NEGATIVE, "CheckIp: -1, the address is unknown, or card " + std::to_string(options.card) +
                                    " has no interface that is up and speaks ARP (card 0 is eth0)");
    }
    std::vector<std::string> stations;
    for (size_t slot = 0; result > 0 && slot < slots.size() && slots[slot] != '\0'; slot += VELKOR_CHECK_IP_SLOT_SIZE) {
        stations.emplace_back(&slots[slot]);
    }
    if (options.json) {
        print_json({{"address", options.address}, {"code", result}, {"stations", stations}});
        return result == 0 ? NEGATIVE : SUCCESS;
    }
    for (const std::string &station : stations) {
        std::cout << options.address << " is at " << station << '\n';
    }
    if (result == 0) {
        std::cout << "nobody has " << spelt_out(options.address) << '\n';
    }
    return result == 0 ? NEGATIVE : SUCCESS;
}

// ---- conflict ----

struct ConflictOptions {
    std::string interface;
    std::string address;
    int timeout = 5;
    bool json = false;
};

int conflict(const ConflictOptions &options) {
    require_socket("conflict", AF_PACKET, SOCK_DGRAM, 0);
    char own[16] = "";
    if (get_local_address(own, nullptr, options.interface.c_str()) != 0) {
        throw Failure(NEGATIVE, options.interface + " has no IPv4 address: nothing can be told");
    }
    const std::string probed = options.address.empty() ? own : options.address;
    char found[16] = "";
    IfIRecvArp(1);
    const int result = CheckMac(probed.c_str(), options.interface.c_str(), found, options.timeout);
    if (result < 0) {
        throw Failure(NEGATIVE, "CheckMac: " + std::to_string(result) + ", " + options.interface +
                                    " is down or does not speak ARP, or the address is unknown");
    }
    const std::string mac = mac_text(options.interface);
    if (options.json) {
        print_json({{"interface", options.interface},
                    {"mac", mac},
                    {"code", result},
                    {"found", result == 1 ? Json(found) : Json(nullptr)}});
    } else if (result == 1) {
        std::cout << "another station uses " << mac << ", with the address " << found << '\n';
    } else {
        std::cout << "no other station was seen to use " << mac << '\n';
    }
    return result == 0 ? SUCCESS : NEGATIVE;
}

}  // namespace

void add_ping(CLI::App &net, Run &chosen) {
    const auto options = std::make_shared<PingOptions>();
    CLI::App &command = *net.add_subcommand("ping", "Whether a host answers, and how fast");
    command.add_option("HOST", options->host, "IPv4 address or name")->required();
    command.add_option("-c,--count", options->count, "How many requests")
        ->type_name("N")
        ->check(CLI::Range(1U, 1000000U).description(""))
        ->capture_default_str();
    command.add_option("--card", options->card, "Through which card, from 1: 1 is eth0")
        ->type_name("N")
        ->capture_default_str();
    command.add_option("--interval", options->interval, "Seconds between requests")
        ->type_name("S")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->capture_default_str();
    add_seconds(command, options->timeout, "How long sending may take");
    add_json(command, options->json);
    command.footer("An answer is waited for one second. Needs CAP_NET_RAW.\nStatus 1 when a request is not answered.");
    command.callback([options, &chosen] { chosen = [options] { return ping(*options); }; });
}

void add_arp(CLI::App &net, Run &chosen) {
    const auto options = std::make_shared<ArpOptions>();
    CLI::App &command = *net.add_subcommand("arp", "Who has an IPv4 address");
    command.add_option("ADDRESS", options->address, "IPv4 address or name")->required();
    command.add_option("--card", options->card, "Through which card, from 0: 0 is eth0")
        ->type_name("N")
        ->capture_default_str();
    add_seconds(command, options->timeout, "How long to listen");
    add_json(command, options->json);
    command.footer("Needs CAP_NET_RAW.\nStatus 0 when somebody answers, 1 when nobody does.");
    command.callback([options, &chosen] { chosen = [options] { return arp(*options); }; });
}

void add_conflict(CLI::App &net, Run &chosen) {
    const auto options = std::make_shared<ConflictOptions>();
    CLI::App &command = *net.add_subcommand("conflict", "Whether another station uses an interface's MAC");
    command.add_option("--mac", options->interface, "The interface")->type_name("INTERFACE")->required();
    command.add_option("--address", options->address, "The address to ask for; the interface's own when not given")
        ->type_name("ADDRESS");
    add_seconds(command, options->timeout, "How long to listen");
    add_json(command, options->json);
    command.footer("Needs CAP_NET_RAW.\nStatus 0 when none was seen, 1 when one was.");
    command.callback([options, &chosen] { chosen = [options] { return conflict(*options); }; });
}

}  // namespace tool::net
