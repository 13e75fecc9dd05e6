// Names, resolved by the system's resolver, from name servers good and bad on a second host.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/network.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "support/place.h"
#include "support/second_host.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A name server on the second host that is told what to answer to a query.
using Answer = std::function<std::vector<Bytes>(const Bytes &query)>;

int serve(const Answer &answer) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    struct sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port = htons(53);
    if (bind(socket, reinterpret_cast<const struct sockaddr *>(&own), sizeof own) != 0) {
        return 1;
    }
    for (;;) {
        Bytes query(512);
        struct sockaddr_in from = {};
        socklen_t size = sizeof from;
        auto *const generic = reinterpret_cast<struct sockaddr *>(&from);
        const ssize_t length = recvfrom(socket, query.data(), query.size(), 0, generic, &size);
        query.resize(length > 0 ? static_cast<size_t>(length) : 0);
        for (const Bytes &one : answer(query)) {
            sendto(socket, one.data(), one.size(), 0, generic, size);
        }
    }
}

// "10.1.2.3" for a query for IPv4, nothing for others (RFC 1035, section 4).
Bytes answer_to(const Bytes &query) {
    if (query.size() < 16) {
        return query;
    }
    const bool is_ipv4 = query[query.size() - 3] == 1;
    Bytes answer = query;
    answer[2] = 0x81;
    answer[3] = 0x80;
    answer[7] = is_ipv4 ? 1 : 0;
    answer[11] = 0;
    const Bytes record = {0xc0, 12, 0, 1, 0, 1, 0, 0, 0, 60, 0, 4, 10, 1, 2, 3};
    if (is_ipv4) {
        answer.insert(answer.end(), record.begin(), record.end());
    }
    return answer;
}

constexpr char SILENT[] = "silent";

class NameServer : public testing::Test {
protected:
    ~NameServer() override {
        if (server_ > 0) {
            kill(server_, SIGKILL);
            waitpid(server_, nullptr, 0);
        }
    }

    void start(const std::function<int()> &work) {
        server_ = far_.start(work);
        EXPECT_TRUE(place::eventually([this] { return far_.run("ss -Hlun sport = :53").size() > 0; }));
    }

    // What GetIPbyDNSV2() makes of each name, all at once: the result, the address and the family.
    static std::vector<std::string> resolve(const std::vector<std::string> &names) {
        std::vector<std::string> results(names.size());
        std::vector<std::thread> threads;
        for (size_t i = 0; i < names.size(); ++i) {
            threads.emplace_back([&, i] {
                char address[INET6_ADDRSTRLEN] = "untouched";
                int family = 7;
                const int result = GetIPbyDNSV2(names[i].c_str(), address, &family);
                results[i] = std::to_string(result) + " " + address + " " + std::to_string(family);
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        return results;
    }

    SecondHost far_{"eth0", "10.7.0.1/24", "10.7.0.2/24"};
    place::BoundContent resolver_{"/etc/resolv.conf", "nameserver 10.7.0.2\noptions timeout:1 attempts:1\n"};
    pid_t server_ = -1;
};

TEST_F(NameServer, OfDebianResolvesBothFamiliesManyAddressesAndNothing) {
    std::vector<std::string> words = {"dnsmasq",
                                      "--keep-in-foreground",
                                      "--conf-file=/dev/null",
                                      "--no-resolv",
                                      "--no-hosts",
                                      "--user=root",
                                      "--pid-file=",
                                      "--log-facility=/dev/null",
                                      "--host-record=both.example,10.1.2.3,2001:db8::5",
                                      "--host-record=six.example,2001:db8::6"};
    for (int i = 1; i <= 60; ++i) {
        words.push_back("--host-record=many.example,10.0.0." + std::to_string(i));
    }
    start([words] {
        std::vector<char *> arguments;
        for (const std::string &word : words) {
            arguments.push_back(const_cast<char *>(word.c_str()));
        }
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        return 127;
    });
    const std::vector<std::string> results = resolve({"both.example", "six.example", "none.example", "many.example"});
    EXPECT_EQ(results[0], "0 10.1.2.3 0");
    EXPECT_EQ(results[1], "0 2001:db8::6 1");
    EXPECT_EQ(results[2], "-1  7");
    EXPECT_EQ(results[3].substr(0, 9), "0 10.0.0.");
}

// Both wait for seconds, so they do it side by side.
TEST_F(NameServer, ThatIsSlowIsWaitedForAndOneThatNeverAnswersOnlyForTheTimeoutAndTwoSeconds) {
    place::write_file(resolver_.file(), "nameserver 10.7.0.2\noptions timeout:30 attempts:5\n");
    start([] {
        bool is_first = true;
        return serve([&](const Bytes &query) -> std::vector<Bytes> {
            if (std::search(query.begin(), query.end(), std::begin(SILENT), std::end(SILENT) - 1) != query.end()) {
                return {};
            }
            usleep(is_first ? 1200000 : 0);
            is_first = false;
            return {answer_to(query)};
        });
    });
    std::thread slow([] { EXPECT_EQ(resolve({"slow.example"})[0], "0 10.1.2.3 0"); });
    velkor_lookup *lookup = nullptr;
    EXPECT_EQ(GetIpByNameAsync("silent.example", 1, &lookup), -1);
    slow.join();
    ASSERT_NE(lookup, nullptr);
    EXPECT_EQ(__atomic_load_n(&lookup->status, __ATOMIC_ACQUIRE), VELKOR_LOOKUP_PENDING);
    velkor_lookup_let_go(lookup);
}

TEST_F(NameServer, ThatAnswersNonsenseIsNotBelieved) {
    start([] {
        return serve([](const Bytes &query) -> std::vector<Bytes> {
            Bytes other = answer_to(query);
            other[0] = static_cast<unsigned char>(other[0] ^ 0x55);  // to another query
            Bytes cut = answer_to(query);
            cut.resize(5);
            return {Bytes(300, 0xff), Bytes(), cut, other};
        });
    });
    EXPECT_EQ(resolve({"wrong.example"})[0], "-1  7");
}

}  // namespace
