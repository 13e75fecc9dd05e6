// What goes over the wire between this machine and a second host, seen and made byte by byte.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/second_host.h"

namespace wire {

using Bytes = std::vector<unsigned char>;

Bytes bytes_of(const std::string &text);
Bytes joined(std::initializer_list<Bytes> parts);

// "10.1.2.3" and "02:00:00:00:00:01" as they lie in a packet.
Bytes ipv4(const std::string &text);
Bytes mac(const std::string &text);

// The hardware address of an interface here.
Bytes mac_of(const std::string &interface);

// An ARP packet in an Ethernet frame, each part free to lie.
struct ArpFrame {
    Bytes to = mac("ff:ff:ff:ff:ff:ff");
    Bytes from = mac("02:00:00:00:00:99");
    unsigned hardware_type = 1;
    unsigned protocol = 0x0800;
    unsigned hardware_length = 6;
    unsigned protocol_length = 4;
    unsigned operation = 2;
    Bytes sender_mac = mac("02:00:00:00:00:99");
    Bytes sender = ipv4("10.7.0.9");
    Bytes target_mac = mac("00:00:00:00:00:00");
    Bytes target = ipv4("0.0.0.0");
    size_t cut_off = 0;  // bytes that are missing at the end

    Bytes bytes() const;
};

// Sees what leaves this machine from now on, without the Ethernet header.
class Tap {
public:
    explicit Tap(unsigned protocol);
    ~Tap();
    Tap(const Tap &) = delete;
    Tap &operator=(const Tap &) = delete;

    struct Sent {
        std::string interface;
        Bytes to;  // the hardware address
        Bytes packet;
    };

    // What left since the last time.
    std::vector<Sent> take() const;

private:
    int socket_;
    unsigned protocol_;
};

// A process on the second host that sends frames as soon as an ARP request went by, or only when it is told to.
class ArpStation {
public:
    enum class Begin { AT_A_REQUEST, WHEN_TOLD };

    ArpStation(const SecondHost &host, const std::vector<Bytes> &frames, Begin begin = Begin::AT_A_REQUEST);
    ArpStation(const SecondHost &host, const std::vector<ArpFrame> &frames, Begin begin = Begin::AT_A_REQUEST);
    ~ArpStation();
    ArpStation(const ArpStation &) = delete;
    ArpStation &operator=(const ArpStation &) = delete;

    void tell() const;

private:
    pid_t process_ = -1;
    int told_ = -1;
};

// A process on the second host, which itself is told to be silent, that answers echo requests in its own way.
class EchoStation {
public:
    struct Answer {
        Bytes packet;              // from the ICMP header on; its checksum is put in
        std::string from{};        // an address of the host instead of the one that was asked
        unsigned delay_ms = 0;     // before it is sent
        bool has_options = false;  // in the IP header
    };

    // Each request gets the answers that `answer` makes of it.
    EchoStation(const SecondHost &host, const std::function<std::vector<Answer>(const Bytes &request)> &answer);
    ~EchoStation();
    EchoStation(const EchoStation &) = delete;
    EchoStation &operator=(const EchoStation &) = delete;

private:
    pid_t process_ = -1;
};

// While it lives, the next descriptor that is opened has the number 1100 or a greater one.
class HighDescriptors {
public:
    HighDescriptors();
    ~HighDescriptors();
    HighDescriptors(const HighDescriptors &) = delete;
    HighDescriptors &operator=(const HighDescriptors &) = delete;

private:
    std::vector<int> held_;
};

// While it lives, nothing more can be opened.
class NoDescriptors {
public:
    NoDescriptors();
    ~NoDescriptors();
    NoDescriptors(const NoDescriptors &) = delete;
    NoDescriptors &operator=(const NoDescriptors &) = delete;

private:
    struct rlimit limit_;
};

// Number of descriptors that this process has open, besides that of its log.
size_t open_descriptors();

}  // namespace wire
