// The commands of the family `net`, by file, and what they share.
#pragma once

#include <string>
#include <vector>

#include "command_line.h"

namespace tool::net {

// net_local.cpp: what this machine knows by itself.
void add_addr(CLI::App &net, Run &chosen);
void add_mac(CLI::App &net, Run &chosen);
void add_route(CLI::App &net, Run &chosen);
void add_link(CLI::App &net, Run &chosen);
void add_port(CLI::App &net, Run &chosen);

// net_names.cpp: addresses and names.
void add_validate(CLI::App &net, Run &chosen);
void add_resolve(CLI::App &net, Run &chosen);

// net_probes.cpp: what other machines answer.
void add_ping(CLI::App &net, Run &chosen);
void add_arp(CLI::App &net, Run &chosen);
void add_conflict(CLI::App &net, Run &chosen);

// The interfaces that were named, or all there are.
std::vector<std::string> interfaces_or_all(const std::vector<std::string> &named);

// "02:fc:00:00:00:01"; empty when the interface does not exist.
std::string mac_text(const std::string &interface);

// All addresses of a name, the IPv4 ones first; throws a Failure when there is none in time.
std::vector<std::string> resolve(const std::string &name, int timeout);

}  // namespace tool::net
