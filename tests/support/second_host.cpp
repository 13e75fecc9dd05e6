#include "support/second_host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

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

}  // namespace

SecondHost::SecondHost(const std::string &interface, const std::string &address, const std::string &far_address)
    : process_(start_holder()) {
    const std::string far = std::to_string(process_);
    place::output_of("ip link add " + interface + " type veth peer name eth0 netns " + far + " && ip address add " +
                     address + " dev " + interface + " && ip link set " + interface + " up");
    run("ip address add " + far_address + " dev eth0 && ip link set eth0 up && ip link set lo up");
}

SecondHost::~SecondHost() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

std::string SecondHost::run(const std::string &command) const {
    return place::output_of("nsenter --net=/proc/" + std::to_string(process_) + "/ns/net sh -c '" + command + "'");
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
