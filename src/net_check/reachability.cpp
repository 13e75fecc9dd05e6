// Whether a host answers ICMP echo requests, and how fast.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <span>

#include <velkor/network.h>

#include "net_check/card_names.h"
#include "net_check/icmp_packet.h"
#include "support/log.h"
#include "support/owners.h"
#include "support/uninterrupted.h"

namespace {

constexpr int MOST_LOOKS = 4;
constexpr size_t PACKET_SIZE = 4096;
constexpr size_t DEVICE_OPTION_SIZE = 32;

// Cards count from 1 here.
void name_card(velkor::InterfaceName &name, int card) {
    const velkor::Bonding bonding = velkor::configured_bonding();
    if (bonding.is_on && card <= 4) {
        snprintf(name, sizeof name, "bond0");
    } else if (!bonding.has_second || card < 5) {
        snprintf(name, sizeof name, "eth%d", static_cast<int>(static_cast<unsigned>(card) - 1));
    } else {
        snprintf(name, sizeof name, "bond1");
    }
}

// A raw socket that sends through the card; closed when it cannot be set up.
int open_raw_socket(int card, uint32_t timeout) {
    velkor::OwnedDescriptor socket(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
    if (!socket) {
        return -1;
    }
    struct timeval send_timeout = {};
    send_timeout.tv_sec = static_cast<time_t>(timeout);
    if (setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout) != 0) {
        return -1;
    }
    const int receive_buffer = 65536;
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    velkor::InterfaceName name;
    name_card(name, card);
    char device[DEVICE_OPTION_SIZE] = "";
    memcpy(device, name, strlen(name));
    if (setsockopt(socket.get(), SOL_SOCKET, SO_BINDTODEVICE, device, sizeof device) != 0) {
        return -1;
    }
    return socket.release();
}

struct timeval time_of_day() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    return now;
}

uint32_t milliseconds_since(const struct timeval &start) {
    const struct timeval now = time_of_day();
    const int64_t seconds = int64_t{now.tv_sec} - start.tv_sec;
    const int64_t microseconds = int64_t{now.tv_usec} - start.tv_usec;
    return static_cast<uint32_t>(seconds * 1000 + microseconds / 1000);
}

// One call's exchange with one host.
class Pinger {
public:
    Pinger(int socket, const char *address)
        : socket_(socket), text_(address), identifier_(static_cast<uint16_t>(getpid())) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = inet_addr(address);
    }

    bool send() const {
        const ssize_t length = velkor::uninterrupted([&] {
            return sendto(socket_, request_.data(), request_.size(), 0,
                          reinterpret_cast<const struct sockaddr *>(&address_), sizeof address_);
        });
        if (length < 1) {
            VK_LOG("%s send data error %d", "CheckNetDelay", static_cast<int>(length));
        }
        return length >= 1;
    }

    // Looks for the answer among the packets that come, as often as this call still may. The look behind one without a
    // packet fails, but is counted.
    bool receive() {
        Packet packet = Packet::OTHER;
        for (bool came = true; packet == Packet::OTHER;) {
            if (!count_look() || !came) {
                return false;
            }
            came = wait();
            packet = came ? look() : Packet::OTHER;
        }
        return packet == Packet::ANSWER;
    }

private:
    enum class Packet { ANSWER, OTHER, FAILURE };

    bool count_look() {
        ++looks_;
        if (looks_ > MOST_LOOKS) {
            VK_LOG("too many icmp packet %d ", looks_);
        }
        return looks_ <= MOST_LOOKS;
    }

    bool wait() const {
        const int ready = velkor::wait_readable(socket_, looks_ * 1000);
        if (ready <= 0) {
            VK_LOG("%s select error %d", "CheckNetDelay", ready);
        }
        return ready > 0;
    }

    Packet look() const {
        std::array<unsigned char, PACKET_SIZE> packet;
        struct sockaddr_in from = {};
        socklen_t size = sizeof from;
        const ssize_t length = velkor::uninterrupted([&] {
            return recvfrom(socket_, packet.data(), packet.size(), MSG_DONTWAIT,
                            reinterpret_cast<struct sockaddr *>(&from), &size);
        });
        if (length < 1) {
            VK_LOG("%s recv data error %d", "CheckNetDelay", static_cast<int>(length));
            return Packet::FAILURE;
        }
        char sender[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &from.sin_addr, sender, sizeof sender);
        if (strcmp(sender, text_) != 0) {
            VK_LOG("%s receive %s data", "CheckNetDelay", sender);
            return Packet::OTHER;
        }
        return judge(std::span<const unsigned char>(packet).first(static_cast<size_t>(length)));
    }

    Packet judge(std::span<const unsigned char> packet) const {
        const std::optional<velkor::IcmpHead> head = velkor::icmp_head_of(packet);
        if (!head) {
            VK_LOG("%s icmp packet size err", "CheckNetDelay");
            return Packet::OTHER;
        }
        VK_LOG("ip:%s,icmp->icmp_type:%d,icmp->icmp_id:%d", text_, head->type, head->identifier);
        return head->type == ICMP_ECHOREPLY && head->identifier == identifier_ ? Packet::ANSWER : Packet::OTHER;
    }

    const int socket_;
    const char *const text_;
    const uint16_t identifier_;
    const std::array<unsigned char, velkor::ECHO_SIZE> request_ = velkor::write_echo_request(identifier_);
    struct sockaddr_in address_ = {};
    int looks_ = 0;  // of all requests together
};

}  // namespace

int CheckNetDelay(int card, const char *address, uint32_t *delay, uint32_t *replies, int count, uint32_t timeout) {
    if (address == nullptr) {
        return -1;
    }
    VK_LOG("CheckNetDelay _cIp=%s", address);
    const velkor::OwnedDescriptor socket(open_raw_socket(card, timeout));
    if (!socket) {
        return -1;
    }
    Pinger pinger(socket.get(), address);
    const struct timeval start = time_of_day();
    for (int i = 0; i < count; ++i) {
        if (!pinger.send() || !pinger.receive()) {
            return -1;
        }
        if (replies != nullptr) {
            ++*replies;
        }
        if (delay != nullptr) {
            *delay += milliseconds_since(start);
        }
    }
    return 0;
}

uint16_t cal_chksum(const uint16_t *data, int length) {
    const size_t size = data != nullptr && length > 0 ? static_cast<size_t>(length) : 0;
    return velkor::internet_checksum({reinterpret_cast<const unsigned char *>(data), size});
}
