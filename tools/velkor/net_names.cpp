// velkor net validate, resolve: addresses and names.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <velkor/network.h>

#include <algorithm>
#include <iostream>
#include <memory>

#include "exit_status.h"
#include "net_commands.h"
#include "output.h"

namespace tool::net {

namespace {

// ---- validate ----

struct ValidateOptions {
    std::vector<std::string> addresses;
    bool is_gateway = false;
    bool json = false;
};

// What a check answered, and what it means.
struct AddressVerdict {
    const char *function;
    int code;
    const char *meaning;
    bool is_good;
};

AddressVerdict judge_ipv4(const std::string &address) {
    const int code = IsValidIP(address.c_str());
    switch (code) {
        case 1:
            return {"IsValidIP", code, "IPv4 unicast", true};
        case 2:
            return {"IsValidIP", code, "IPv4 multicast", true};
        case 3:
            return {"IsValidIP", code, "IPv4, all zero", false};
        default:
            return {"IsValidIP", code, "no IP address", false};
    }
}

AddressVerdict judge_ipv6(const std::string &address) {
    constexpr const char *MEANINGS[] = {"IPv6, usable",    "no IP address", "IPv6 multicast",
                                        "IPv6 link-local", "IPv6 loopback", "IPv6 unspecified"};
    const int code = IsValidIPv6(address.c_str());
    return {"IsValidIPv6", code, MEANINGS[-code], code == 0};
}

AddressVerdict judge_ipv6_gateway(const std::string &address) {
    constexpr const char *MEANINGS[] = {"IPv6 gateway, usable", "no IP address", "IPv6 multicast", "IPv6 loopback",
                                        "IPv6 unspecified"};
    const int code = IsValidIpv6Gw(address.c_str());
    return {"IsValidIpv6Gw", code, code == 255 ? "no gateway" : MEANINGS[-code], code == 0};
}

AddressVerdict judge(const std::string &address, bool is_gateway) {
    const bool is_ipv6 = detect_ip_type(address.c_str()) == 1 || (is_gateway && address.empty());
    if (!is_ipv6) {
        return judge_ipv4(address);
    }
    return is_gateway ? judge_ipv6_gateway(address) : judge_ipv6(address);
}

int validate(const ValidateOptions &options) {
    Json array = Json::array();
    Table table;
    bool all_good = true;
    for (const std::string &address : options.addresses) {
        const AddressVerdict verdict = judge(address, options.is_gateway);
        array.push_back({{"address", address},
                         {"function", verdict.function},
                         {"code", verdict.code},
                         {"meaning", verdict.meaning},
                         {"valid", verdict.is_good}});
        table.add(spelt_out(address),
                  std::string(verdict.meaning) + " (" + verdict.function + ": " + std::to_string(verdict.code) + ")");
        all_good = all_good && verdict.is_good;
    }
    if (options.json) {
        print_json(array);
    } else {
        table.print();
    }
    return all_good ? SUCCESS : NEGATIVE;
}

// ---- resolve ----

struct ResolveOptions {
    std::string name;
    int timeout = 6;
    bool json = false;
};

// Lets go of a lookup on every way.
struct LookupKeeper {
    velkor_lookup *lookup = nullptr;
    LookupKeeper() = default;
    ~LookupKeeper() {
        if (lookup != nullptr) {
            velkor_lookup_let_go(lookup);
        }
    }
    LookupKeeper(const LookupKeeper &) = delete;
    LookupKeeper &operator=(const LookupKeeper &) = delete;
};

void add_address(std::vector<std::string> &texts, const struct addrinfo &entry, int family) {
    if (entry.ai_family != family) {
        return;
    }
    char text[INET6_ADDRSTRLEN] = "";
    const void *const address =
        family == AF_INET ? static_cast<const void *>(&reinterpret_cast<const sockaddr_in *>(entry.ai_addr)->sin_addr)
                          : &reinterpret_cast<const sockaddr_in6 *>(entry.ai_addr)->sin6_addr;
    inet_ntop(family, address, text, sizeof text);
    texts.emplace_back(text);
}

int show_resolved(const ResolveOptions &options) {
    const std::vector<std::string> addresses = resolve(options.name, options.timeout);
    if (options.json) {
        print_json({{"name", options.name}, {"chosen", addresses.front()}, {"addresses", addresses}});
        return SUCCESS;
    }
    for (const std::string &address : addresses) {
        std::cout << address << '\n';
    }
    return SUCCESS;
}

}  // namespace

std::vector<std::string> resolve(const std::string &name, int timeout) {
    LookupKeeper keeper;
    const int result = GetIpByNameAsync(name.c_str(), timeout, &keeper.lookup);
    if (result != 0) {
        const bool is_pending = keeper.lookup != nullptr &&
                                __atomic_load_n(&keeper.lookup->status, __ATOMIC_ACQUIRE) == VELKOR_LOOKUP_PENDING;
        throw Failure(NEGATIVE, "GetIpByNameAsync: " + std::to_string(result) + ", " +
                                    (is_pending ? "the resolver does not answer in time for "
                                                : "the resolver knows no address of ") +
                                    spelt_out(name));
    }
    std::vector<std::string> addresses;
    for (const int family : {AF_INET, AF_INET6}) {
        for (const struct addrinfo *entry = keeper.lookup->result; entry != nullptr; entry = entry->ai_next) {
            add_address(addresses, *entry, family);
        }
    }
    if (addresses.empty()) {
        throw Failure(NEGATIVE, "the resolver knows no IP address of " + spelt_out(name));
    }
    return addresses;
}

void add_validate(CLI::App &net, Run &chosen) {
    const auto options = std::make_shared<ValidateOptions>();
    CLI::App &command = *net.add_subcommand("validate", "What kind of address a text is");
    add_words(command, "ADDRESS", options->addresses, "Addresses")->required();
    command.add_flag("--gateway", options->is_gateway, "Ask whether an IPv6 address may be a gateway");
    add_json(command, options->json);
    command.footer("Status 1 when one is not to be given to a recorder.");
    command.callback([options, &chosen] { chosen = [options] { return validate(*options); }; });
}

void add_resolve(CLI::App &net, Run &chosen) {
    const auto options = std::make_shared<ResolveOptions>();
    CLI::App &command = *net.add_subcommand("resolve", "The addresses of a name");
    command.add_option("NAME", options->name, "The name; its first 128 characters count")->required();
    command.add_option("--timeout", options->timeout, "When to give up; it may take up to three seconds more")
        ->type_name("S")
        ->check(CLI::Range(1, 3600).description(""))
        ->capture_default_str();
    add_json(command, options->json);
    command.footer("The first line is the address that a recorder takes.\nStatus 1 when there is none in time.");
    command.callback([options, &chosen] { chosen = [options] { return show_resolved(*options); }; });
}

}  // namespace tool::net
