// Any datagrams as the kernel's routes: the reader and the walk stay inside what came, and the walk finds what a second
// walk, written another way, finds.
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common_fun/route_dump.h"
#include "fuzzer.h"

namespace {

struct Pair {
    int ends[2];
    Pair() { EXPECT_TRUE(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) == 0); }
    ~Pair() {
        close(ends[0]);
        close(ends[1]);
    }
};

uint32_t word_at(const std::vector<uint8_t> &bytes, size_t at) {
    return static_cast<uint32_t>(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16) |
           static_cast<uint32_t>(bytes[at + 3]) << 24;
}

// The same walk over indexes. Returns the number of routes and adds up what they tell.
size_t count_routes(const std::vector<uint8_t> &bytes, uint64_t &sum) {
    size_t routes = 0;
    for (size_t at = 0; at + 16 <= bytes.size();) {
        const size_t length = word_at(bytes, at);
        if (length < 16 || length > bytes.size() - at) {
            break;
        }
        if (length >= 28 && bytes[at + 16] == AF_INET && bytes[at + 20] == RT_TABLE_MAIN) {
            ++routes;
            uint32_t told[6] = {};
            for (size_t attribute = at + 28; attribute + 4 <= at + length;) {
                const size_t size = static_cast<size_t>(bytes[attribute] | bytes[attribute + 1] << 8);
                const int type = bytes[attribute + 2] | bytes[attribute + 3] << 8;
                if (size < 4 || size > at + length - attribute) {
                    break;
                }
                if (size >= 8 && (type == RTA_DST || type == RTA_OIF || type == RTA_GATEWAY)) {
                    told[type] = word_at(bytes, attribute + 4);
                }
                attribute += (size + 3) / 4 * 4;
            }
            sum += uint64_t{told[RTA_DST]} * 3 + uint64_t{told[RTA_OIF]} * 5 + uint64_t{told[RTA_GATEWAY]} * 7;
        }
        at += (length + 3) / 4 * 4;
    }
    return routes;
}

// The input as datagrams: two bytes of length, and as many bytes.
void send_datagrams(int socket, const uint8_t *data, size_t size) {
    for (int i = 0; i < 8 && size >= 2; ++i) {
        const size_t length = std::min<size_t>(static_cast<size_t>(data[0] | data[1] << 8), size - 2);
        send(socket, data + 2, length, MSG_DONTWAIT);
        data += 2 + length;
        size -= 2 + length;
    }
}

}  // namespace

// The reader complains of each bad datagram, and here they are nearly all bad.
extern "C" void perror(const char *) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const Pair pair;
    send_datagrams(pair.ends[1], data, size);
    velkor::RouteBuffer buffer = {};
    const int length = velkor::RouteDumpReader(buffer, 1, 77).read(pair.ends[0]);
    EXPECT_TRUE(length >= -1 && length <= static_cast<int>(buffer.size()));
    if (length < 0) {
        return 0;
    }
    const std::vector<uint8_t> dump(buffer.begin(), buffer.begin() + length);
    const std::vector<char> exact(buffer.begin(), buffer.begin() + length);
    size_t routes = 0;
    uint64_t sum = 0;
    velkor::for_each_route(exact, [&](const velkor::Route &route) {
        ++routes;
        sum += uint64_t{route.destination} * 3 + uint64_t{route.interface} * 5 + uint64_t{route.gateway} * 7;
    });
    uint64_t expected_sum = 0;
    EXPECT_TRUE(routes == count_routes(dump, expected_sum));
    EXPECT_TRUE(sum == expected_sum);
    return 0;
}
