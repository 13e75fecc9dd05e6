#include "common_fun/route_dump.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Text = std::string;  // bytes

constexpr uint32_t SEQUENCE = 1;
constexpr uint32_t PORT = 77;

template <typename Record>
Text raw(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

struct Message {
    uint16_t type = RTM_NEWROUTE;
    uint16_t flags = NLM_F_MULTI;
    uint32_t sequence = 0;
    uint32_t port = 0;
    Text content{};
    uint32_t claimed = 0;  // a length instead of the true one

    Text bytes() const {
        const uint32_t length = static_cast<uint32_t>(sizeof(struct nlmsghdr) + content.size());
        return raw(nlmsghdr{claimed != 0 ? claimed : length, type, flags, sequence, port}) + content;
    }
};

const Text DONE = Message{.type = NLMSG_DONE, .content = Text(4, '\0')}.bytes();

// What the reader makes of these datagrams.
struct Reading {
    int result = 0;
    Text error;
    Text bytes;  // all that lies in the buffer
    size_t left = 0;

    explicit Reading(const std::vector<Text> &datagrams) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
        for (const Text &datagram : datagrams) {
            EXPECT_EQ(write(ends[1], datagram.data(), datagram.size()), static_cast<ssize_t>(datagram.size()));
        }
        velkor::RouteBuffer buffer = {};
        testing::internal::CaptureStderr();
        result = velkor::RouteDumpReader(buffer, SEQUENCE, PORT).read(ends[0]);
        error = testing::internal::GetCapturedStderr();
        bytes.assign(buffer.data(), buffer.size());
        char rest;
        while (recv(ends[0], &rest, 1, MSG_DONTWAIT) >= 0) {
            ++left;
        }
        close(ends[0]);
        close(ends[1]);
    }

    bool complains() const { return error.find("Error in recieved packet: ") != Text::npos; }
    bool runs_dry() const { return error.find("SOCK READ: : Resource temporarily unavailable\n") != Text::npos; }
};

int length(const Text &text) { return static_cast<int>(text.size()); }

TEST(RouteDumpReader, CollectsDatagramsUntilDone) {
    const Text one = Message{.content = "0123"}.bytes();
    const Text two = Message{.content = "4567"}.bytes() + one;
    const Reading reading({one, two, DONE, one});
    EXPECT_EQ(reading.result, length(one + two));
    EXPECT_EQ(reading.bytes.substr(0, (one + two).size()), one + two);
    EXPECT_EQ(reading.error, "");
    EXPECT_EQ(reading.left, 1U);
}

TEST(RouteDumpReader, EndsWithDoneInTheMiddleOfADatagram) {
    const Text one = Message{.content = "0123"}.bytes();
    EXPECT_EQ(Reading({one + DONE + one}).result, length(one));
    EXPECT_EQ(Reading({DONE}).result, 0);
}

TEST(RouteDumpReader, EndsBehindAMessageThatIsNotOneOfSeveral) {
    const Text one = Message{.content = "0123"}.bytes();
    const Text last = Message{.flags = 0}.bytes();
    EXPECT_EQ(Reading({one + last + one, DONE}).result, length(one + last));
}

TEST(RouteDumpReader, EndsBehindADatagramWhoseLastMessageIsTheAwaitedOne) {
    const Text ours = Message{.sequence = SEQUENCE, .port = PORT}.bytes();
    const Text others = Message{.sequence = SEQUENCE, .port = 1}.bytes();
    EXPECT_EQ(Reading({others, ours, DONE}).result, length(others + ours));
    EXPECT_EQ(Reading({others, ours + others, DONE}).result, length(others + ours + others));
}

TEST(RouteDumpReader, FailsWhenNothingMoreComes) {
    const Reading reading({Message{}.bytes()});
    EXPECT_EQ(reading.result, -1);
    EXPECT_TRUE(reading.runs_dry());
    EXPECT_FALSE(reading.complains());
}

TEST(RouteDumpReader, ComplainsOfWhatIsNoMessageAndReadsOn) {
    const Text good = Message{.content = "0123"}.bytes();
    for (const Text &bad : {Text("short"), Text(1, '\0'), Text(15, '\0'), Message{.claimed = 15}.bytes(),
                            Message{.claimed = 1000}.bytes(), Message{.claimed = 0xffffffff}.bytes(),
                            Message{.type = NLMSG_ERROR, .content = Text(20, '\0')}.bytes(), Text(40, '\xff')}) {
        const Reading reading({bad, DONE});
        EXPECT_EQ(reading.result, 0);
        EXPECT_TRUE(reading.complains());
        EXPECT_FALSE(reading.runs_dry());
        EXPECT_EQ(Reading({good + bad, good, DONE}).result, length(good + good));
    }
}

TEST(RouteDumpReader, EndsWithARefusedMessageThatIsTheAwaitedOne) {
    const Text good = Message{.content = "0123"}.bytes();
    const Text error =
        Message{.type = NLMSG_ERROR, .sequence = SEQUENCE, .port = PORT, .content = Text(20, '\0')}.bytes();
    const Reading reading({good + error, DONE});
    EXPECT_EQ(reading.result, length(good));
    EXPECT_TRUE(reading.complains());
}

TEST(RouteDumpReader, TakesAMessageThatClaimsWhatOnlyTheWholeDatagramHas) {
    const Text good = Message{.content = "0123"}.bytes();
    const Text liar = Message{.claimed = 36}.bytes();
    const Reading reading({good + liar, DONE});
    EXPECT_EQ(reading.result, length(good) + 36);
    EXPECT_FALSE(reading.complains());
}

TEST(RouteDumpReader, FailsBeyondItsBuffer) {
    const Text large = Message{.content = Text(4096 - 16, 'x')}.bytes();
    EXPECT_EQ(Reading({large, large, large, large, DONE}).result, -1);  // no room is left for the end
    const Text less = Message{.content = Text(4096 - 64, 'x')}.bytes();
    const Reading fitting({large, large, large, less, DONE});
    EXPECT_EQ(fitting.result, 3 * 4096 + 4048);
    // A datagram that is cut off at the end of the buffer is refused, and the rest is not found.
    const Reading cut({large, large, large, less, large, DONE});
    EXPECT_EQ(cut.result, -1);
    EXPECT_TRUE(cut.complains());
    EXPECT_TRUE(cut.runs_dry());
    // Messages that say more than came.
    const Text liar = Message{.content = Text(4096 - 16, 'x')}.bytes() + Message{.claimed = 4112}.bytes();
    EXPECT_EQ(Reading({liar, liar, liar, DONE}).result, -1);
}

// ---- Routes ----

Text attribute(uint16_t type, const Text &content, int lie = 0) {
    const uint16_t size = static_cast<uint16_t>(sizeof(struct rtattr) + content.size() + static_cast<size_t>(lie));
    Text bytes = raw(rtattr{size, type}) + content;
    return bytes + Text((4 - bytes.size() % 4) % 4, '\0');
}

Text word(uint32_t value) { return raw(value); }

Text route(const Text &attributes, unsigned char family = AF_INET, unsigned char table = RT_TABLE_MAIN) {
    struct rtmsg message = {};
    message.rtm_family = family;
    message.rtm_table = table;
    return raw(message) + attributes;
}

TEST(RouteMessage, TellsDestinationGatewayAndInterface) {
    const Text content =
        route(attribute(RTA_TABLE, word(254)) + attribute(RTA_DST, word(1)) + attribute(RTA_PREFSRC, word(9)) +
              attribute(RTA_GATEWAY, word(2)) + attribute(RTA_OIF, word(3)));
    const std::optional<velkor::Route> told = velkor::parse_route(content);
    ASSERT_TRUE(told);
    EXPECT_EQ(told->destination, 1U);
    EXPECT_EQ(told->gateway, 2U);
    EXPECT_EQ(told->interface, 3U);
}

TEST(RouteMessage, ThatTellsNothingIsAllZero) {
    const std::optional<velkor::Route> told = velkor::parse_route(route(""));
    ASSERT_TRUE(told);
    EXPECT_EQ(told->destination, 0U);
    EXPECT_EQ(told->interface, 0U);
}

TEST(RouteMessage, OfAnotherFamilyOrTableIsNone) {
    EXPECT_FALSE(velkor::parse_route(route("", AF_INET6)));
    EXPECT_FALSE(velkor::parse_route(route("", AF_INET, RT_TABLE_LOCAL)));
    EXPECT_FALSE(velkor::parse_route(route("", AF_INET, 0)));
}

TEST(RouteMessage, TooShortForItsFieldsIsNone) {
    const Text whole = route("");
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(velkor::parse_route(velkor::Bytes(whole).first(size))) << size;
    }
}

TEST(RouteMessage, IsReadUpToAnAttributeThatLies) {
    const Text good = attribute(RTA_OIF, word(3));
    for (const Text &bad : {raw(rtattr{3, RTA_DST}), raw(rtattr{0, RTA_DST}), attribute(RTA_DST, word(1), 100),
                            Text("\x08"), Text(3, '\x01')}) {
        const std::optional<velkor::Route> told = velkor::parse_route(route(good + bad));
        ASSERT_TRUE(told);
        EXPECT_EQ(told->interface, 3U);
        EXPECT_EQ(told->destination, 0U);
    }
}

TEST(RouteMessage, SkipsAnAttributeTooShortForAnAddress) {
    const std::optional<velkor::Route> told = velkor::parse_route(
        route(attribute(RTA_DST, "abc") + attribute(RTA_GATEWAY, "") + attribute(RTA_OIF, word(3))));
    ASSERT_TRUE(told);
    EXPECT_EQ(told->destination, 0U);
    EXPECT_EQ(told->gateway, 0U);
    EXPECT_EQ(told->interface, 3U);
}

// The test that is made without writing the text, held against the text.
TEST(RouteDestination, LooksLikeTheDefaultWhenItsTextContainsZeros) {
    size_t matches = 0;
    for (const unsigned rest : {0x000000U, 0x000001U, 0x000100U, 0x010000U, 0x0a0000U, 0x00000aU, 0x640000U}) {
        for (unsigned first = 0; first < 256; ++first) {
            const uint32_t destination = htonl(first << 24 | rest);
            char text[INET_ADDRSTRLEN];
            inet_ntop(AF_INET, &destination, text, sizeof text);
            const bool contains = strstr(text, "0.0.0.0") != nullptr;
            EXPECT_EQ(velkor::looks_like_default(destination), contains) << text;
            matches += contains ? 1 : 0;
        }
    }
    EXPECT_EQ(matches, 26U);
}

TEST(RouteDump, IsTakenApartUpToAMessageThatLies) {
    const Text one = Message{.content = route(attribute(RTA_OIF, word(1)))}.bytes();
    const Text two = Message{.content = route(attribute(RTA_OIF, word(2)))}.bytes();
    const Text good = one + two;
    for (const Text &bad : {Message{.claimed = 15}.bytes(), Message{.claimed = 10000}.bytes(), Text("short")}) {
        std::vector<uint32_t> interfaces;
        const Text dump = good + bad;
        velkor::for_each_route(dump, [&](const velkor::Route &told) { interfaces.push_back(told.interface); });
        EXPECT_EQ(interfaces, (std::vector<uint32_t>{1, 2}));
    }
}

}  // namespace
