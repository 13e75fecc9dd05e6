// Another machine on the recorder's network: a network namespace of its own behind a pair of virtual Ethernet
// interfaces. Everything stays inside the sandbox of the test.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

class SecondHost {
public:
    // Here `interface` gets `address`, there "eth0" gets `far_address`, both as "10.1.2.3/24". Both ends carry
    // afterwards.
    SecondHost(const std::string &interface, const std::string &address, const std::string &far_address);
    ~SecondHost();
    SecondHost(const SecondHost &) = delete;
    SecondHost &operator=(const SecondHost &) = delete;

    // Runs a shell command on the second host; answers what it printed.
    std::string run(const std::string &command) const;

    // Waits until every interface that is set up, here and there, carries packets. Some time passes between the one and
    // the other, and what is sent meanwhile is lost without a word: wait after each change to an interface that
    // matters.
    void wait_for_links() const;

    // Runs `work` on the second host, in a child process that ends with its result; answers the child's id.
    pid_t start(const std::function<int()> &work) const;

    // The process that holds the second host's namespace.
    pid_t process() const { return process_; }

private:
    pid_t process_;
};

// Makes interfaces here that are up and carry, to nobody.
void add_interfaces(const std::vector<std::string> &names);
