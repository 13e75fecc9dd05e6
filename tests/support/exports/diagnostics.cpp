#include <sys/stat.h>
#include <velkor/diagnostics.h>
#include <velkor_host.h>

#include <memory>
#include <thread>

#include "support/export_table.h"

namespace exports {
namespace {

// A buffer for each channel, with a line in it.
std::shared_ptr<void> prepare() {
    static RtMsgBuf buffers[VELKOR_MESSAGE_SLOTS];
    mkdir("rt_debug", 0755);
    rt_JudgePrintEn();
    for (unsigned slot = 0; slot < VELKOR_MESSAGE_SLOTS; ++slot) {
        buffers[slot].lock = PTHREAD_MUTEX_INITIALIZER;
        RtMsgEx_sFlag(&buffers[slot], 1, 1);
        insert_global_pointer(slot, &buffers[slot]);
        rt_printf(slot + 1, "the line of channel %u", slot + 1);
    }
    g_iRtGlobalfd = 1;
    mkdir("/dvrfile/log", 0755);
    return nullptr;
}

std::string message_of(int (*read)(char *out, int size)) {
    static thread_local char text[VELKOR_MESSAGE_TEXT_SIZE];
    const int result = read(text, sizeof text);
    return text_of(result, text);
}

std::string messages() {
    std::string texts;
    for (const auto read : {get_msg0, get_msg1, get_msg2, get_msg3, get_msg4, get_msg5, get_msg6, get_msg7}) {
        texts += message_of(read);
    }
    return texts;
}

std::string reregistered() {
    static RtMsgBuf buffer = {PTHREAD_MUTEX_INITIALIZER, 0, 0, ""};
    insert_global_pointer(7, &buffer);
    return text_of(find_empty_pointer());
}

// Waits until a line that is logged now was taken out of the ring.
std::string drained() {
    velkor_host_ring before = {};
    velkor_host_ring now = {};
    velkor_host_ring_get(1, &before);
    const int logged = vk_printftomem(0, "storm", 0, "a line to be drained");
    do {
        std::this_thread::yield();
        velkor_host_ring_get(1, &now);
    } while (now.read + now.dropped <= before.read + before.dropped);
    return text_of(logged);
}

std::string drained_by_own_thread() {
    static FirstTime is_first;
    if (is_first()) {
        std::thread([] { logman_thread(nullptr); }).detach();
    }
    return drained();
}

std::string drained_by_the_librarys_thread() {
    static FirstTime is_first;
    const int started = is_first() ? logman_init() : 0;
    return text_of(started, drained());
}

constexpr Row ROWS[] = {
    {"vk_printftomem", [] { return text_of(vk_printftomem(0, "storm", 0, "%s %d", "a line", 7)); }},
    {"vk_printf_tocon", [] { return text_of(vk_printf_tocon("storm", "diagnostics.cpp", 1, "%s %d", "a line", 7)); }},
    {"vk_GetLogmanEnable", [] { return text_of(vk_GetLogmanEnable()); }, PLAIN},
    {"vk_OutLogToLogmanEnable", [] { return text_of(vk_OutLogToLogmanEnable()); }},
    {"logman_init (once in a process)", drained_by_the_librarys_thread, STARTS_THREADS},
    {"logman_thread (never returns)", drained_by_own_thread, STARTS_THREADS},
    {"logman_read_config", [] { return text_of(logman_read_config()); }},
    {"logman_match_filter", [] { return changed("[stamp] [1 storm]text", logman_match_filter); }},
    {"logman_set_filter", [] { return text_of(logman_set_filter(1, "storm")); }},
    {"logman_set_invert", [] { return text_of(logman_set_invert(1, "no line contains this")); }},

    {"find_empty_pointer", [] { return text_of(find_empty_pointer()); }, PLAIN},
    {"insert_global_pointer", reregistered, PLAIN},
    {"rt_printf", [] { return text_of(rt_printf(1, "%s %d", "a line", 7)); }},
    {"Rt_PrintfNoGlobalfd", [] { return text_of(Rt_PrintfNoGlobalfd("storm", "%s %d", "a line", 7)); }},
    {"rt_JudgePrintEn", [] { return text_of(rt_JudgePrintEn()); }},
    {"get_msg0 get_msg1 get_msg2 get_msg3 get_msg4 get_msg5 get_msg6 get_msg7", messages},
    {"get_msg0 (of NULL, which is reported)", [] { return text_of(get_msg0(nullptr, 0)); }},

    {"upgrade_WriteLog", [] { return text_of(upgrade_WriteLog("step", "1", "done") >= 0); }},
    {"upgrade_UnlinkLog", [] { return text_of(upgrade_UnlinkLog()); }},
};

}  // namespace

const Group DIAGNOSTICS = {ROWS, prepare};

}  // namespace exports
