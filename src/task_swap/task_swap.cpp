// Two users of the command runner: the finder of running tasks, and the swap file on a recording disk.
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>

#include <velkor/firmware.h>
#include <velkor/process.h>
#include <velkor/text.h>

#include "support/assertion_report.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/pause.h"
#include "support/platform.h"

// ---- Running tasks ------------------------------------------------------------------------------------------------

namespace {

struct TaskIds {
    int count = 0;
    std::array<int32_t, VELKOR_TASK_IDS> ids = {};
};

// The file that takes the output of a search: it is there as long as this is.
class ResultFile {
public:
    ResultFile() { is_made_ = velkor::OwnedDescriptor(mkostemp(path_, O_CLOEXEC)).get() >= 0; }
    ~ResultFile() {
        if (is_made_) {
            unlink(path_);
        }
    }
    ResultFile(const ResultFile &) = delete;
    ResultFile &operator=(const ResultFile &) = delete;

    explicit operator bool() const { return is_made_; }
    const char *path() const { return path_; }

private:
    char path_[sizeof "/tmpfile/findTaskXXXXXX"] = "/tmpfile/findTaskXXXXXX";
    bool is_made_;
};

// The shells that run the search are not searched for; "sshd" would go with them.
const char *exclusion(const char *name) {
    return strcmp(name, "sshd") == 0 ? "| grep -v grep " : "| grep -v sh | grep -v grep ";
}

void search(const char *name, const char *path) {
    char command[128];
    snprintf(command, sizeof command, "%s %s %s %s %s", "ps | grep ", name, exclusion(name), " > ", path);
    VkSystem(command);
}

// A line without a number gives 0, one that is too great the greatest, as `long` does on the recorder.
int32_t leading_number(const char *line) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<long>(strtol(line, nullptr, 10), Limits::min(), Limits::max()));
}

TaskIds read_ids(FILE *file) {
    TaskIds tasks;
    char line[128];
    while (tasks.count < VELKOR_TASK_IDS && fgets(line, sizeof line, file) != nullptr) {
        tasks.ids[static_cast<size_t>(tasks.count++)] = leading_number(line);
    }
    return tasks;
}

int check_length(const char *name) {
    const size_t length = strnlen(name, VELKOR_TASK_NAME_SIZE);
    if (length == VELKOR_TASK_NAME_SIZE) {
        VK_LOG("[%s:%d]-please input a task name less than 31!\n", "vk_FindRunningTask", __LINE__);
        return -10;
    }
    if (length == 0) {
        VK_LOG("[%s:%d]-please input a task name!\n", "vk_FindRunningTask", __LINE__);
        return -11;
    }
    return 0;
}

int find_tasks(const char *name, TaskIds &tasks) {
    const ResultFile result;
    if (!result) {
        return -12;
    }
    search(name, result.path());
    const velkor::OwnedStream file(velkor::open_file_stream(result.path(), O_RDONLY, "r"));
    if (!file) {
        VK_LOG("[%s:%d]-fail to open", "vk_FindRunningTask", __LINE__);
        return -13;
    }
    tasks = read_ids(file.get());
    return 0;
}

}  // namespace

int vk_FindRunningTask(const char *_strTaskName, int *_piTaskCnt, int *_piTaskIds) {
    if (_strTaskName == nullptr) {
        velkor::report_assertion("src/common_fun", __LINE__, "vk_FindRunningTask", "NULL != _strTaskName");
        return -1;
    }
    if (_piTaskCnt == nullptr) {
        velkor::report_assertion("src/common_fun", __LINE__, "vk_FindRunningTask", "NULL != _piTaskCnt");
        return -2;
    }
    if (const int refusal = check_length(_strTaskName); refusal != 0) {
        return refusal;
    }
    TaskIds tasks;
    if (const int failure = find_tasks(_strTaskName, tasks); failure != 0) {
        return failure;
    }
    *_piTaskCnt = tasks.count;
    if (_piTaskIds != nullptr) {
        std::copy_n(tasks.ids.begin(), tasks.count, _piTaskIds);
    }
    return 0;
}

// ---- Swap ---------------------------------------------------------------------------------------------------------

namespace {

constexpr int SATA = 1;
constexpr int FIT_FOR_SWAP = 3;
constexpr int PATH_FOUND = 1001;
constexpr int NO_DISK = -1;
constexpr int64_t QUIET_US = 2000000;

// Starting and stopping take as long as the script does; who comes second finds the work done.
pthread_mutex_t swap_lock = PTHREAD_MUTEX_INITIALIZER;
int32_t swap_disk = NO_DISK;

__attribute__((constructor)) void survive_fork() {
    velkor::when_forked([] { swap_lock = PTHREAD_MUTEX_INITIALIZER; });
}

using MountPath = char[64];

bool is_disk(int disk) { return static_cast<unsigned>(disk) < VELKOR_SWAP_DISKS; }

// A negative number that finds no disk stays as it is.
int choose_disk(int wanted) {
    if (wanted >= 0 || disk_GetDiskNum(SATA) < 1) {
        return wanted;
    }
    for (int disk = 0; disk < VELKOR_SWAP_DISKS; ++disk) {
        if (disk_GetState(disk) >= FIT_FOR_SWAP) {
            return disk;
        }
    }
    return wanted;
}

bool find_path(int disk, MountPath &path) {
    if (!is_disk(disk)) {
        VK_LOG("%s %d no valid disk", "_swapmem_GetPath", __LINE__);
        return false;
    }
    memset(path, 0, sizeof path);
    if (disk_GetSataMntPath(disk, SATA, path) != PATH_FOUND || path[0] == '\0') {
        VK_LOG("%s %d get mntpath error", "_swapmem_GetPath", __LINE__);
        return false;
    }
    path[sizeof path - 1] = '\0';
    return true;
}

// Whether the command ended by itself and with 0; not if it could not be run at all.
bool run(const char *command, const char *function) {
    const int status = VkSystem(command);
    if (WTERMSIG(status) == 0 && WEXITSTATUS(status) == 0) {
        return true;
    }
    VK_LOG("%s %d %s run failed", function, __LINE__, command);
    return false;
}

using Command = char[64];

// Cut at 63 characters, wherever that is.
void format_start_command(Command &command, const MountPath &path) {
    char whole[128];
    snprintf(whole, sizeof whole, "/dvr/swap_ctrl.sh start %s %d", path, cfg_gSwapMaxsize());
    strncopy(command, whole, sizeof command - 1);
}

int start_on_disk(int wanted) {
    const int disk = choose_disk(wanted);
    MountPath path;
    const bool found = find_path(disk, path);
    VK_LOG("%s %d _iDiskNo=%d iRet = %d", "_swapmem_GetPath", __LINE__, wanted, found ? 0 : -1);
    if (!found) {
        VK_LOG("%s %d get mntpath error", "swapmem_Start", __LINE__);
        return -3;
    }
    Command command;
    format_start_command(command, path);
    if (!run(command, "swapmem_Start")) {
        return -4;
    }
    swap_disk = disk;
    return 0;
}

}  // namespace

int swapmem_Start(int _iDiskNo) {
    const velkor::LockGuard guard(swap_lock);
    if (swap_disk != NO_DISK) {
        VK_LOG("%s %d swap is running", "swapmem_Start", __LINE__);
        return -2;
    }
    const int result = start_on_disk(_iDiskNo);
    VK_LOG("%s %d _iDiskNo=%d iRet = %d", "swapmem_Start", __LINE__, _iDiskNo, result);
    return result;
}

namespace {

struct SwapArea {
    int active = 0;
    int size = 0;
    int used = 0;
};

using Line = char[512];

// Answers the number of fields; four is all of them.
int parse(const Line &line, SwapArea &area) {
    Line name;
    Line type;
    // NOLINTNEXTLINE(cert-err34-c): numbers of the kernel's
    return sscanf(line, "%511s\t%511s\t%d\t%d", name, type, &area.size, &area.used);
}

// The line of the first swap area, behind the titles; empty when there is none.
bool read_first_area(Line &line) {
    const velkor::OwnedStream file(velkor::open_file_stream("/proc/swaps", O_RDONLY, "r"));
    if (!file) {
        return false;
    }
    if (fgets(line, sizeof line, file.get()) == nullptr || fgets(line, sizeof line, file.get()) == nullptr) {
        line[0] = '\0';
    }
    return true;
}

int look_at_swap(SwapArea &area) {
    Line line;
    if (!read_first_area(line)) {
        VK_LOG("%s %d fopen wrong", "swapmem_Check", __LINE__);
        return -1;
    }
    if (strstr(line, "swapfile.dat") == nullptr) {
        return 0;
    }
    const int fields = parse(line, area);
    if (fields < 4) {
        VK_LOG("%s %d sscanf(%s) return error: %d", "swapmem_Check", __LINE__, line, fields);
        return -2;
    }
    area.active = 1;
    return 0;
}

void store(int *out, int value) {
    if (out != nullptr) {
        *out = value;
    }
}

}  // namespace

int swapmem_Check(int *_piStat, int *_piSize, int *_piUsed) {
    SwapArea area;
    const int result = look_at_swap(area);
    if (result == -2) {
        return result;
    }
    store(_piStat, area.active);
    store(_piSize, area.size);
    store(_piUsed, area.used);
    VK_LOG("%s %d iRet=%d iStat=%d iSize=%d iUsed=%d", "swapmem_Check", __LINE__, result, area.active, area.size,
           area.used);
    return result;
}

namespace {

bool is_heavily_used() {
    int used = 0;
    return swapmem_Check(nullptr, nullptr, &used) == 0 && used >= int64_t{cfg_gSwapHighLv()} * 1024;
}

// What is in swap must go back into memory: the recorder makes room for it.
void quieten_recorder() {
    vk_cmd_UpgradeSetChnStat(0);
    VkSystem("killall nimbus.bin");
    velkor::pause_for_us(QUIET_US);
}

int stop_swap() {
    const bool quietened = is_heavily_used();
    if (quietened) {
        quieten_recorder();
    }
    const bool stopped = run("/dvr/swap_ctrl.sh stop", "swapmem_Stop");
    if (stopped) {
        swap_disk = NO_DISK;
    }
    if (quietened) {
        vk_cmd_UpgradeSetChnStat(1);
    }
    return stopped ? 0 : -3;
}

}  // namespace

int swapmem_Stop(int _iDiskNo) {
    if (!is_disk(_iDiskNo)) {
        VK_LOG("%s %d param wrong", "swapmem_Stop", __LINE__);
        return -1;
    }
    const velkor::LockGuard guard(swap_lock);
    if (_iDiskNo != swap_disk) {
        VK_LOG("%s %d swap is not running on this", "swapmem_Stop", __LINE__);
        return -2;
    }
    const int result = stop_swap();
    VK_LOG("%s %d _iDiskNo=%d iRet = %d", "swapmem_Stop", __LINE__, _iDiskNo, result);
    return result;
}
