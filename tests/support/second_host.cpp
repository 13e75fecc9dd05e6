#include "support/second_host.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "support/place.h"

namespace {

// A process that has left for a network namespace of its own, and stays there until it is ended.
pid_t start_holder() {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const char answer = unshare(CLONE_NEWNET) == 0 ? '+' : '-';
        if (write(ready[1], &answer, 1) != 1 || answer != '+') {
            _exit(1);
        }
        for (;;) {
            pause();
        }
    }
    close(ready[1]);
    char answer = '-';
    EXPECT_EQ(read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, '+') << "no network namespace for the second host";
    close(ready[0]);
    return child;
}

// What leaves an interface and what comes to it, but nothing of what the tests are about.
constexpr unsigned short EXPERIMENTAL = 0x88b5;

bool is_to_carry(int socket, const char *interface) {
    struct ifreq request = {};
    strncpy(request.ifr_name, interface, IFNAMSIZ - 1);
    return ioctl(socket, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & (IFF_UP | IFF_LOOPBACK)) == IFF_UP;
}

// A frame that the interface does not carry yet is taken and dropped without a word; one that leaves is seen leaving.
// A socket is not shown what it sends itself, so there are two.
bool carries(int sender, int watcher, unsigned index) {
    struct sockaddr_ll everybody = {};
    everybody.sll_family = AF_PACKET;
    everybody.sll_protocol = htons(EXPERIMENTAL);
    everybody.sll_ifindex = static_cast<int>(index);
    everybody.sll_halen = 6;
    memset(everybody.sll_addr, 0xff, everybody.sll_halen);
    const char frame[46] = {};
    sendto(sender, frame, sizeof frame, 0, reinterpret_cast<const struct sockaddr *>(&everybody), sizeof everybody);
    bool is_seen = false;
    char room[64];
    struct sockaddr_ll from = {};
    socklen_t size = sizeof from;
    while (recvfrom(watcher, room, sizeof room, MSG_DONTWAIT, reinterpret_cast<struct sockaddr *>(&from), &size) >= 0) {
        is_seen = is_seen || (from.sll_pkttype == PACKET_OUTGOING && from.sll_protocol == htons(EXPERIMENTAL) &&
                              from.sll_ifindex == static_cast<int>(index));
    }
    return is_seen;
}

// Whether all that are set up here do.
bool all_carry() {
    const int sender = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int watcher = socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ALL));
    struct if_nameindex *const interfaces = if_nameindex();
    bool all = sender >= 0 && watcher >= 0 && interfaces != nullptr;
    for (const struct if_nameindex *one = interfaces; all && one->if_index != 0; ++one) {
        all = !is_to_carry(sender, one->if_name) || carries(sender, watcher, one->if_index);
    }
    if_freenameindex(interfaces);
    close(sender);
    close(watcher);
    return all;
}

bool wait_until_all_carry() { return place::eventually(all_carry); }

std::string commands_to_add(const std::string &name) {
    return "link add " + name + " type veth peer name p" + name + "\nlink set " + name + " up\nlink set p" + name +
           " up\n";
}

void run_batch(const std::string &commands) { place::output_of("ip -batch - <<END\n" + commands + "END"); }

}  // namespace

SecondHost::SecondHost(const std::string &interface, const std::string &address, const std::string &far_address)
    : process_(start_holder()) {
    run_batch("link add " + interface + " type veth peer name eth0 netns " + std::to_string(process_) +
              "\naddress add " + address + " dev " + interface + "\nlink set " + interface + " up\n");
    run("ip -batch - <<END\naddress add " + far_address + " dev eth0\nlink set eth0 up\nlink set lo up\nEND");
    wait_for_links();
}

SecondHost::~SecondHost() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

std::string SecondHost::run(const std::string &command) const {
    return place::output_of("nsenter --net=/proc/" + std::to_string(process_) + "/ns/net sh -c '" + command + "'");
}

void SecondHost::wait_for_links() const {
    EXPECT_TRUE(wait_until_all_carry());
    const pid_t child = start([] { return wait_until_all_carry() ? 0 : 1; });
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

pid_t SecondHost::start(const std::function<int()> &work) const {
    const std::string path = "/proc/" + std::to_string(process_) + "/ns/net";
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int space = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (space < 0 || setns(space, CLONE_NEWNET) != 0) {
            _exit(126);
        }
        _exit(work());
    }
    return child;
}

void add_interfaces(const std::vector<std::string> &names) {
    std::string commands;
    for (const std::string &name : names) {
        commands += commands_to_add(name);
    }
    run_batch(commands);
    EXPECT_TRUE(wait_until_all_carry());
}
