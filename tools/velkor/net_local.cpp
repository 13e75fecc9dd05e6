// velkor net addr, mac, route, link, port: what this machine knows by itself.
#include <net/if.h>
#include <sys/socket.h>
#include <velkor/network.h>
#include <velkor/system_info.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>

#include "descriptor.h"
#include "exit_status.h"
#include "net_commands.h"
#include "output.h"

namespace tool::net {

namespace {

constexpr size_t MAC_SIZE = 6;

struct InterfacesOptions {
    std::vector<std::string> interfaces;
    bool json = false;
};

// What a command found out about an interface.
struct Finding {
    Json json;         // beside the interface's name
    std::string text;  // for people
    bool is_good;
};

// Shows a finding for each interface. Of interfaces that were named all must be good, of all there are one.
int show_findings(const InterfacesOptions &options, const std::function<Finding(const std::string &)> &look) {
    const std::vector<std::string> interfaces = interfaces_or_all(options.interfaces);
    Json array = Json::array();
    Table table;
    size_t good = 0;
    for (const std::string &interface : interfaces) {
        const Finding finding = look(interface);
        Json object = {{"interface", interface}};
        object.update(finding.json);
        array.push_back(object);
        table.add(interface, finding.text);
        good += finding.is_good ? 1 : 0;
    }
    if (options.json) {
        print_json(array);
    } else {
        table.print();
    }
    return good == interfaces.size() || (options.interfaces.empty() && good > 0) ? SUCCESS : NEGATIVE;
}

void add_interfaces_command(CLI::App &net, Run &chosen, const std::string &name, const std::string &description,
                            const std::string &footer, std::function<Finding(const std::string &)> look) {
    const auto options = std::make_shared<InterfacesOptions>();
    CLI::App &command = *net.add_subcommand(name, description);
    add_words(command, "INTERFACE", options->interfaces, "Interfaces; all when none is named");
    add_json(command, options->json);
    command.footer(footer);
    command.callback([options, look = std::move(look), &chosen] {
        chosen = [options, look] { return show_findings(*options, look); };
    });
}

Json text_or_null(const std::string &text) { return text.empty() ? Json(nullptr) : Json(text); }

Finding find_addresses(const std::string &interface) {
    char address[16] = "";
    char mask[16] = "";
    char ipv6[64] = "";
    uint32_t prefix_length = 0;
    get_local_address(address, mask, interface.c_str());
    NetDevice_GetIpv6AddressUsed(ipv6, &prefix_length, if_nametoindex(interface.c_str()));
    std::string text = *address != '\0' ? std::string(address) + ", mask " + mask : "no IPv4 address";
    if (*ipv6 != '\0') {
        text += ", " + std::string(ipv6) + "/" + std::to_string(prefix_length);
    }
    return {{{"address", text_or_null(address)}, {"mask", text_or_null(mask)}, {"ipv6", text_or_null(ipv6)}},
            text,
            *address != '\0'};
}

Finding find_mac(const std::string &interface) {
    unsigned char mac[MAC_SIZE + 1] = {};
    if (GetNetInterFaceMac(reinterpret_cast<char *>(mac), interface.c_str()) != 0) {
        return {{{"mac", nullptr}, {"acceptable", false}}, "no such interface", false};
    }
    std::reverse(mac, mac + MAC_SIZE);  // the check takes it last byte first
    const bool is_acceptable = Check_Mac_Rationality(mac) == 0;
    const std::string text = mac_text(interface);
    return {{{"mac", text}, {"acceptable", is_acceptable}},
            text + (is_acceptable ? "" : ", not fit for a recorder"),
            is_acceptable};
}

Finding find_gateway(const std::string &interface) {
    char gateway[16] = "";
    if (get_gateway(gateway, interface.c_str()) != 0) {
        throw Failure(NEGATIVE, "get_gateway: -1, the routes cannot be read");
    }
    return {{{"gateway", text_or_null(gateway)}}, *gateway != '\0' ? gateway : "no gateway", *gateway != '\0'};
}

// ---- link ----

const char *link_name(int link) {
    switch (link) {
        case VELKOR_LINK_UP:
            return "up";
        case VELKOR_LINK_DOWN:
            return "down";
        default:
            return "unknown";
    }
}

// The second way closes the socket that it is given when it fails; each gets one of its own.
int look_at_link(const std::string &interface) {
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int link = detect_ethtool(socket.get(), interface.c_str());
    if (link != VELKOR_LINK_UNKNOWN) {
        return link;
    }
    const int other = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int second = detect_mii(other, interface.c_str());
    if (second != VELKOR_LINK_UNKNOWN) {
        close(other);
    }
    return second;
}

}  // namespace

std::vector<std::string> interfaces_or_all(const std::vector<std::string> &named) {
    if (!named.empty()) {
        return named;
    }
    std::vector<std::string> all;
    struct if_nameindex *const list = if_nameindex();
    for (const struct if_nameindex *entry = list; entry != nullptr && entry->if_name != nullptr; ++entry) {
        all.emplace_back(entry->if_name);
    }
    if_freenameindex(list);
    return all;
}

std::string mac_text(const std::string &interface) {
    char mac[MAC_SIZE + 1] = "";
    if (GetNetInterFaceMac(mac, interface.c_str()) != 0) {
        return "";
    }
    std::string text;
    for (size_t i = 0; i < MAC_SIZE; ++i) {
        char byte[4];
        snprintf(byte, sizeof byte, i == 0 ? "%02x" : ":%02x", static_cast<unsigned char>(mac[i]));
        text += byte;
    }
    return text;
}

void add_addr(CLI::App &net, Run &chosen) {
    add_interfaces_command(net, chosen, "addr", "IPv4 address and mask, and the IPv6 address in use",
                           "Status 1 when an interface that was named, or every one, has no IPv4 address.",
                           find_addresses);
}

void add_mac(CLI::App &net, Run &chosen) {
    add_interfaces_command(net, chosen, "mac", "Hardware addresses, and whether a recorder may have them",
                           "Status 1 when one that was named, or every one, is missing or not fit.", find_mac);
}

void add_route(CLI::App &net, Run &chosen) {
    add_interfaces_command(
        net, chosen, "route", "Default gateways by interface, as a recorder finds them",
        "The last route of the main table whose destination's text contains 0.0.0.0 counts: a route to 10.0.0.0\n"
        "does, too.\n"
        "Status 1 when an interface that was named, or every one, has none.",
        find_gateway);
}

void add_link(CLI::App &net, Run &chosen) {
    struct LinkOptions {
        std::string interface;
        bool json = false;
    };
    const auto options = std::make_shared<LinkOptions>();
    CLI::App &command = *net.add_subcommand("link", "Whether an Ethernet port has a link");
    command.add_option("INTERFACE", options->interface, "The port's interface")->required();
    add_json(command, options->json);
    command.footer("Status 0 when the link is up, 1 when it is down or cannot be told.");
    command.callback([options, &chosen] {
        chosen = [options] {
            const int link = look_at_link(options->interface);
            if (options->json) {
                print_json({{"interface", options->interface}, {"link", link_name(link)}, {"code", link}});
            } else {
                std::cout << options->interface << ": " << link_name(link) << '\n';
            }
            return link == VELKOR_LINK_UP ? SUCCESS : NEGATIVE;
        };
    });
}

void add_port(CLI::App &net, Run &chosen) {
    struct PortOptions {
        uint16_t lower = 1024;
        bool json = false;
    };
    const auto options = std::make_shared<PortOptions>();
    CLI::App &command = *net.add_subcommand("port", "A random port number");
    command.add_option("--lower", options->lower, "Numbers below it have it added, modulo 65536")
        ->type_name("PORT")
        ->capture_default_str();
    add_json(command, options->json);
    command.callback([options, &chosen] {
        chosen = [options] {
            const unsigned port = GetRandomPort(options->lower);
            if (options->json) {
                print_json({{"port", port}});
            } else {
                std::cout << port << '\n';
            }
            return SUCCESS;
        };
    });
}

}  // namespace tool::net
