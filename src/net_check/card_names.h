// The switches of the firmware's configuration that say which interface a card is. The two checks that ask count cards
// differently: each has its own rule.
#pragma once

#include <net/if.h>
#include <stdio.h>

#include <velkor/firmware.h>

namespace velkor {

struct Bonding {
    bool is_on = false;
    bool has_second = false;
};

inline Bonding configured_bonding() {
    const CfgNetConfig *const config = Cfg_gNetConfig(0);
    return config != nullptr ? Bonding{config->bonding != 0, config->secondBond != 0} : Bonding{};
}

// "eth%d" of any number is shorter.
using InterfaceName = char[IFNAMSIZ];

}  // namespace velkor
