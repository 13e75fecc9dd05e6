// The text helpers' buffers, which all threads share. This program has the parser's source for itself, so that it is
// built without optimisation as the tests are: each shared word is then read as often as the source says.
#include "iniparser/iniparser.cpp"  // NOLINT(bugprone-suspicious-include)

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/ini_lockstep.h"
#include "support/place.h"
#include "support/racing_bytes.h"

namespace {

using ini::Owned;
using namespace std::string_literals;

constexpr const char *FILE_PATH = "/tmp/test.ini";

// ThreadSanitizer needs to see two accesses once, and the emulator is slow.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
constexpr unsigned SHARE = 20;
#else
constexpr unsigned SHARE = 1;
#endif
constexpr unsigned CALLS = 3000 / SHARE;
constexpr unsigned LOOKUPS = 50000 / SHARE;
constexpr unsigned LOADS = 200 / SHARE;

// What is in a helper's buffer while other threads write there.
std::string racing_text(const char *buffer) {
    std::string text;
    while (const char character = velkor::load_racing_byte(buffer + text.size())) {
        text += character;
        if (text.size() > 1024) {
            ADD_FAILURE() << "the buffer has no end";
            break;
        }
    }
    return text;
}

void in_threads(int count, const std::function<void(int)> &work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// Calls something over and over until it is destroyed.
class Nuisance {
public:
    template <typename Call>
    explicit Nuisance(Call call)
        : thread_([this, call] {
              while (!is_over_) {
                  call();
              }
          }) {}
    ~Nuisance() {
        is_over_ = true;
        thread_.join();
    }
    Nuisance(const Nuisance &) = delete;
    Nuisance &operator=(const Nuisance &) = delete;

private:
    std::atomic<bool> is_over_ = false;
    std::thread thread_;
};

// ---- Helpers ----

// What two threads leave there may be a mixture, but one of finished results.
void expect_finished_results(char *(*helper)(const char *), const std::string &before, const std::string &unfinished) {
    in_threads(4, [&](int thread) {
        for (size_t pass = 0; pass < CALLS; ++pass) {
            const std::string text(pass * 7919 % 1000, static_cast<char>('a' + thread));
            const std::string found = racing_text(helper((before + text + unfinished).c_str()));
            ASSERT_EQ(found.find_first_of(unfinished), std::string::npos) << found;
            ASSERT_LT(found.size(), 1000U);
        }
    });
    EXPECT_EQ(std::string(helper("x"), 1025), "x" + std::string(1024, '\0'));
}

TEST(HelperThreads, SeeNoTextThatIsHalfCropped) { expect_finished_results(strcrop, "", " \t"); }

TEST(HelperThreads, SeeNoTextThatIsHalfStripped) { expect_finished_results(strstrip, " \n", " \t\n"); }

TEST(HelperThreads, SeeNoTextThatIsHalfLowered) {
    in_threads(4, [](int thread) {
        for (size_t pass = 0; pass < CALLS; ++pass) {
            const std::string text(pass * 7919 % 1000, static_cast<char>('A' + thread));
            const std::string found = racing_text(strlwc(text.c_str()));
            ASSERT_EQ(found.find_first_not_of("abcd"), std::string::npos) << found;
            ASSERT_LT(found.size(), 1000U);
        }
    });
}

TEST(HelperThreads, MayTakeAnotherHelpersResult) {
    in_threads(4, [](int thread) {
        for (size_t pass = 0; pass < CALLS; ++pass) {
            const std::string text(pass * 7919 % 1000, static_cast<char>('A' + thread));
            const std::string found = racing_text(strstrip(strlwc(strcrop((" " + text + " ").c_str()))));
            ASSERT_EQ(found.find_first_not_of(" abcd"), std::string::npos) << found;
            ASSERT_LT(found.size(), 1002U);
        }
    });
}

// ---- Look-ups and loads ----

// Lowers texts of any length, as long as others look up.
void lower_some_texts() {
    static const std::string text(700, 'Z');
    for (size_t length = 0; length < text.size(); length += 37) {
        strlwc(text.c_str() + length);
    }
}

TEST(IniThreads, MissNothingWhileAnotherLowersTexts) {
    place::write_file(FILE_PATH, "[Net]\nIP = 1.2.3.4\nGateway of Last Resort = 5.6.7.8\n");
    const Owned d(iniparser_load(FILE_PATH));
    const Nuisance nuisance(lower_some_texts);
    in_threads(2, [&](int) {
        for (unsigned pass = 0; pass < LOOKUPS; ++pass) {
            ASSERT_STREQ(iniparser_getstr(d.get(), "NET:IP"), "1.2.3.4") << pass;
            ASSERT_EQ(iniparser_find_entry(d.get(), "net:GATEWAY of last resort"), 1) << pass;
        }
    });
}

TEST(IniThreads, LoadEveryEntryWhileAnotherLowersTexts) {
    std::string content;
    for (int i = 0; i < 50; ++i) {
        content += "[Section" + std::to_string(i) + "]\nThe First Key = 1\nThe Second Key = 2\n";
    }
    place::write_file(FILE_PATH, content);
    const std::string expected = ini::printed(iniparser_dump, Owned(iniparser_load(FILE_PATH)).get());
    const Nuisance nuisance(lower_some_texts);
    in_threads(2, [&](int) {
        for (unsigned pass = 0; pass < LOADS; ++pass) {
            const Owned d(iniparser_load(FILE_PATH));
            ASSERT_EQ(ini::printed(iniparser_dump, d.get()), expected) << pass;
        }
    });
}

// What callers read there is the name that was lowered last: by one of two threads at the same moment, which the other
// one does not wait for.
TEST(IniThreads, LeaveNoNameWhereAnotherIsLeavingOne) {
    const Owned d(dictionary_new(0));
    iniparser_add_entry(d.get(), "s", "k", "v");
    const char *const last_name = strlwc("before");
    is_name_being_left = true;
    EXPECT_STREQ(iniparser_getstr(d.get(), "S:K"), "v");
    EXPECT_STREQ(last_name, "before");
    is_name_being_left = false;
    EXPECT_STREQ(iniparser_getstr(d.get(), "S:K"), "v");
    EXPECT_STREQ(last_name, "s:k");
}

TEST(IniFork, AChildLooksUpThoughAnotherThreadWasInTheMiddleOfIt) {
    const Owned d(dictionary_new(0));
    iniparser_add_entry(d.get(), "s", "k", "v");
    const char *const last_name = strlwc("before");
    is_name_being_left = true;  // by a thread that the child does not have
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        const char *const value = iniparser_getstr(d.get(), "S:K");
        _exit(value != nullptr && value == "v"s && last_name == "s:k"s ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
