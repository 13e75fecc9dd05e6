#include "support/wire.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ether.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "net_check/icmp_packet.h"

namespace wire {

namespace {

void add_number(Bytes &bytes, unsigned number) {
    bytes.push_back(static_cast<unsigned char>(number >> 8));
    bytes.push_back(static_cast<unsigned char>(number));
}

void add(Bytes &bytes, const Bytes &more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

const struct sockaddr *generic(const void *address) { return static_cast<const struct sockaddr *>(address); }

// A child tells by one byte that it is ready.
struct Readiness {
    int ends[2] = {-1, -1};
    Readiness() { EXPECT_EQ(pipe(ends), 0); }
    ~Readiness() {
        close(ends[0]);
        close(ends[1]);
    }
    void tell() const { EXPECT_EQ(write(ends[1], "+", 1), 1); }
    void wait() const {
        char answer;
        EXPECT_EQ(read(ends[0], &answer, 1), 1);
    }
};

void end(pid_t process) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

int open_frame_socket(const char *interface) {
    const int socket = ::socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP));
    struct sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ARP);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    return bind(socket, generic(&address), sizeof address) == 0 ? socket : -1;
}

void wait_for_request(int socket) {
    unsigned char frame[2048];
    while (recv(socket, frame, sizeof frame, 0) < 42 || frame[21] != 1) {
    }
}

int send_frames(const Readiness &ready, int told, const std::vector<Bytes> &frames, ArpStation::Begin begin) {
    const int socket = open_frame_socket("eth0");
    ready.tell();
    char order;
    if (begin == ArpStation::Begin::AT_A_REQUEST) {
        wait_for_request(socket);
    } else if (read(told, &order, 1) != 1) {
        return 1;
    }
    for (const Bytes &frame : frames) {
        send(socket, frame.data(), frame.size(), 0);
    }
    for (;;) {
        pause();
    }
}

void put_checksum_in(Bytes &packet) {
    if (packet.size() < 4) {
        return;
    }
    memset(&packet[2], 0, 2);
    const uint16_t sum = velkor::internet_checksum(packet);
    memcpy(&packet[2], &sum, sizeof sum);
}

void send_answer(const EchoStation::Answer &answer, const struct sockaddr_in &to) {
    usleep(answer.delay_ms * 1000);
    const int socket = ::socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
    if (answer.has_options) {
        const unsigned char options[4] = {IPOPT_NOOP, IPOPT_NOOP, IPOPT_NOOP, IPOPT_EOL};
        setsockopt(socket, IPPROTO_IP, IP_OPTIONS, options, sizeof options);
    }
    if (!answer.from.empty()) {
        struct sockaddr_in from = {};
        from.sin_family = AF_INET;
        from.sin_addr.s_addr = inet_addr(answer.from.c_str());
        if (bind(socket, generic(&from), sizeof from) != 0) {
            _exit(3);
        }
    }
    Bytes packet = answer.packet;
    put_checksum_in(packet);
    sendto(socket, packet.data(), packet.size(), 0, generic(&to), sizeof to);
    close(socket);
}

}  // namespace

Bytes bytes_of(const std::string &text) { return {text.begin(), text.end()}; }

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &part : parts) {
        add(all, part);
    }
    return all;
}

Bytes ipv4(const std::string &text) {
    Bytes bytes(4);
    EXPECT_EQ(inet_pton(AF_INET, text.c_str(), bytes.data()), 1) << text;
    return bytes;
}

Bytes mac(const std::string &text) {
    struct ether_addr address;
    EXPECT_NE(ether_aton_r(text.c_str(), &address), nullptr) << text;
    return {address.ether_addr_octet, address.ether_addr_octet + ETH_ALEN};
}

Bytes mac_of(const std::string &interface) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    struct ifreq request = {};
    strncpy(request.ifr_name, interface.c_str(), IFNAMSIZ - 1);
    EXPECT_EQ(ioctl(socket, SIOCGIFHWADDR, &request), 0) << interface;
    close(socket);
    const auto *const bytes = reinterpret_cast<const unsigned char *>(request.ifr_hwaddr.sa_data);
    return {bytes, bytes + ETH_ALEN};
}

Bytes ArpFrame::bytes() const {
    Bytes frame = joined({to, from});
    add_number(frame, ETH_P_ARP);
    add_number(frame, hardware_type);
    add_number(frame, protocol);
    frame.push_back(static_cast<unsigned char>(hardware_length));
    frame.push_back(static_cast<unsigned char>(protocol_length));
    add_number(frame, operation);
    add(frame, joined({sender_mac, sender, target_mac, target}));
    frame.resize(frame.size() - cut_off);
    return frame;
}

Tap::Tap(unsigned protocol)
    : socket_(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL))), protocol_(protocol) {
    EXPECT_GE(socket_, 0);
}

Tap::~Tap() { close(socket_); }

std::vector<Tap::Sent> Tap::take() const {
    std::vector<Sent> sent;
    for (;;) {
        Bytes packet(4096);
        struct sockaddr_ll link = {};
        socklen_t size = sizeof link;
        const ssize_t length = recvfrom(socket_, packet.data(), packet.size(), MSG_DONTWAIT,
                                        reinterpret_cast<struct sockaddr *>(&link), &size);
        if (length < 0) {
            return sent;
        }
        if (length < ETH_HLEN || link.sll_pkttype != PACKET_OUTGOING || ntohs(link.sll_protocol) != protocol_) {
            continue;
        }
        char name[IF_NAMESIZE] = "";
        if_indextoname(static_cast<unsigned>(link.sll_ifindex), name);
        sent.push_back({name, Bytes(packet.begin(), packet.begin() + ETH_ALEN),
                        Bytes(packet.begin() + ETH_HLEN, packet.begin() + length)});
    }
}

ArpStation::ArpStation(const SecondHost &host, const std::vector<Bytes> &frames, Begin begin) {
    int told[2];
    EXPECT_EQ(pipe(told), 0);
    const Readiness ready;
    process_ = host.start([&] { return send_frames(ready, told[0], frames, begin); });
    ready.wait();
    close(told[0]);
    told_ = told[1];
}

namespace {

std::vector<Bytes> bytes_of(const std::vector<ArpFrame> &frames) {
    std::vector<Bytes> all;
    for (const ArpFrame &frame : frames) {
        all.push_back(frame.bytes());
    }
    return all;
}

}  // namespace

ArpStation::ArpStation(const SecondHost &host, const std::vector<ArpFrame> &frames, Begin begin)
    : ArpStation(host, bytes_of(frames), begin) {}

ArpStation::~ArpStation() {
    end(process_);
    close(told_);
}

void ArpStation::tell() const { EXPECT_EQ(write(told_, "+", 1), 1); }

EchoStation::EchoStation(const SecondHost &host,
                         const std::function<std::vector<Answer>(const Bytes &request)> &answer) {
    host.run("echo 1 >/proc/sys/net/ipv4/icmp_echo_ignore_all");
    const Readiness ready;
    process_ = host.start([&] {
        const int socket = ::socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
        ready.tell();
        for (;;) {
            Bytes packet(4096);
            struct sockaddr_in from = {};
            socklen_t size = sizeof from;
            const ssize_t length =
                recvfrom(socket, packet.data(), packet.size(), 0, reinterpret_cast<struct sockaddr *>(&from), &size);
            if (length < 28 || packet[20] != ICMP_ECHO) {
                continue;
            }
            for (const Answer &one : answer(Bytes(packet.begin() + 20, packet.begin() + length))) {
                send_answer(one, from);
            }
        }
        return 0;
    });
    ready.wait();
}

EchoStation::~EchoStation() { end(process_); }

HighDescriptors::HighDescriptors() {
    do {
        held_.push_back(dup(0));
    } while (held_.back() >= 0 && held_.back() < 1099);
    EXPECT_EQ(held_.back(), 1099) << "raise the limit of open files";
}

HighDescriptors::~HighDescriptors() {
    for (const int descriptor : held_) {
        close(descriptor);
    }
}

NoDescriptors::NoDescriptors() {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit_), 0);
    const struct rlimit none = {0, limit_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
}

NoDescriptors::~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &limit_); }

size_t open_descriptors() {
    size_t count = 0;
    DIR *const directory = opendir("/proc/self/fd");
    while (const struct dirent *const entry = readdir(directory)) {
        char target[64] = "";
        const ssize_t length = readlinkat(dirfd(directory), entry->d_name, target, sizeof target - 1);
        const bool is_descriptor = length >= 0 && atoi(entry->d_name) != dirfd(directory);
        count += is_descriptor && strcmp(target, "/tmp/tty.logman") != 0 ? 1 : 0;
    }
    closedir(directory);
    return count;
}

}  // namespace wire
