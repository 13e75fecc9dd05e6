// Children forked at any moment of a busy process. What a lock held at the wrong moment would do is a hang, so that
// each child has an alarm, and many are made.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/allocation.h>
#include <velkor/calendar.h>
#include <velkor/concurrency.h>
#include <velkor/diagnostics.h>
#include <velkor/firmware.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/place.h"

namespace {

constexpr int CHILDREN = 100;

void fork_out_of(const std::function<void()> &business, const std::function<bool()> &childs_work) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> busy;
    for (int i = 0; i < 3; ++i) {
        busy.emplace_back([&] {
            while (!stop) {
                business();
            }
        });
    }
    for (int i = 0; i < CHILDREN; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            _exit(childs_work() ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "child " << i;
        if (status != 0) {
            break;
        }
    }
    stop = true;
    for (std::thread &thread : busy) {
        thread.join();
    }
}

int log_text(const char *text) { return vk_printftomem(0, "test", 0, "%s", text); }

TEST(ForkStorm, AChildOfALoggingProcessNeverHangs) {
    const LogCapture log;
    fork_out_of([] { log_text("parent"); }, [] { return log_text("child") == 0; });
}

TEST(ForkStorm, AChildOfAReconfiguringProcessNeverHangs) {
    const LogCapture log;
    const auto reconfigure = [] {
        logman_set_filter(0, "e");
        logman_read_config();
    };
    fork_out_of(reconfigure, [] {
        const bool read = logman_read_config() == 0 && log_text("child") == 0;
        logman_set_filter(0, "child");
        std::string of_child = "child";
        std::string of_parent = "parent";
        return read && logman_match_filter(of_child.data()) == 1 && logman_match_filter(of_parent.data()) == 0;
    });
}

TEST(ForkStorm, AChildOfAProcessThatConvertsTimesNeverHangs) {
    const LogCapture log;
    const auto convert = [] {
        char text[64];
        TimeToString("Y-M-D H:I:S", text, StrToTime("20231114221320"));
        return std::string(text) == "2023-11-14 22:13:20" && log_text("line") == 0;
    };
    fork_out_of([&] { convert(); }, convert);
}

TEST(ForkStorm, AChildOfAProcessThatPrintsIntoBuffersNeverHangs) {
    static RtMsgBuf buffer = {PTHREAD_MUTEX_INITIALIZER, 2, 0, ""};
    place::output_of("mkdir /tmp/rt_debug");
    ASSERT_EQ(chdir("/tmp"), 0);
    insert_global_pointer(0, &buffer);
    rt_JudgePrintEn();
    const auto print = [] {
        static thread_local char out[VELKOR_MESSAGE_TEXT_SIZE];  // allocated, it would try the sanitizers' own locks
        return rt_printf(1, "%s", "line") == 0 && get_msg0(out, sizeof out) == 0 && strstr(out, "line\r\n") != nullptr;
    };
    fork_out_of([&] { print(); }, print);
}

TEST(ForkStorm, AChildOfAnAllocatingProcessNeverHangs) {
    static std::atomic<int> number{0};
    const auto allocate = [] {
        // Names that were not seen before, so that the registry is searched under its lock.
        const std::string file = "recorder/file" + std::to_string(++number) + ".c";
        dvrFree(dvrMalloc(100, file.c_str(), 1));
    };
    fork_out_of(allocate, [&] {
        allocate();
        return dvrRegMem("child", 0) == 0 && dvrFree(dvrStrdup("x", "child/main.c", 1)) == 0;
    });
}

TEST(ForkStorm, AChildOfAProcessWithRegisteredThreadsNeverHangs) {
    const auto record = [] {
        ThrInfo_DoRecord("storm", 1, nullptr);
        ThrInfo_Clear();
    };
    fork_out_of(record, [&] {
        record();
        return true;
    });
}

TEST(ForkStorm, AChildOfAProcessThatChangesItsTimersNeverHangs) {
    const auto idle = [](void *argument) { return argument; };
    const TimerEntry first = {1000000000, idle, nullptr};
    const TimerEntry other = {1000000000, idle, const_cast<TimerEntry *>(&first)};
    ASSERT_EQ(init_timer(&first), 0);
    const auto change = [&] {
        add_timer(&other);
        search_timer(&other);
        del_timer(&other);
    };
    fork_out_of(change, [&] {
        change();
        return search_timer(&first) != nullptr && add_timer(&other) == 0 && search_timer(&other) != nullptr &&
               del_timer(&first) == 0 && search_timer(&first) == nullptr;
    });
}

}  // namespace
