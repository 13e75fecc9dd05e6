// The place around the recorder, as second_host.sh makes it.
#pragma once

namespace recorder::place {

constexpr const char *LOG_SWITCH = "/dvrfile/logman";
constexpr const char *LOG_TERMINAL = "/tmp/tty.logman";
constexpr const char *DISK = "/tmp/disk0";  // small, so that it can be filled

constexpr const char *INTERFACE = "eth0";
constexpr const char *ADDRESS = "10.7.0.1";
constexpr const char *MASK = "255.255.255.0";

constexpr const char *SECOND_HOST = "10.7.0.2";  // also the gateway, and the name server
constexpr const char *SECOND_HOST_MAC = "2:0:0:0:7:2";
constexpr const char *NAME = "camera.example";
constexpr const char *NAMED_ADDRESS = "10.7.0.20";

// The hands of whoever stands beside the second host.
constexpr const char *PULL_CABLE = "/dvr/second_host.sh ip link set eth0 down";
constexpr const char *PLUG_CABLE = "/dvr/second_host.sh ip link set eth0 up";
constexpr const char *HANG_NAME_SERVER = "kill -STOP $(cat /dvr/name_server.pid)";
constexpr const char *FREE_NAME_SERVER = "kill -CONT $(cat /dvr/name_server.pid)";

}  // namespace recorder::place
