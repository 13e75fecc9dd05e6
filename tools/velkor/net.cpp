// velkor net: addresses, names, interfaces, and who answers.
#include "net_commands.h"

void tool::add_net(CLI::App &velkor, Run &chosen) {
    CLI::App &family = *velkor.add_subcommand("net", "Addresses, names, interfaces, and who answers");
    family.require_subcommand(1);
    net::add_addr(family, chosen);
    net::add_mac(family, chosen);
    net::add_route(family, chosen);
    net::add_link(family, chosen);
    net::add_resolve(family, chosen);
    net::add_validate(family, chosen);
    net::add_ping(family, chosen);
    net::add_arp(family, chosen);
    net::add_conflict(family, chosen);
    net::add_port(family, chosen);
}
