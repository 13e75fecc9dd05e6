// Shell commands, run by a small process that was forked early: forking a recorder that holds gigabytes takes longer
// than most commands run.
//
// Callers and runner meet in 52 slots of shared memory. There is no lock between them; each side polls words that the
// other one writes. A slot goes round like this:
//
//     caller   in_use 0 -> 1, the request's words, last of all request 1
//     runner   request 1 -> 0, takes it on
//     runner   status, after everything that belongs to it
//     owner    all words back, last of all in_use 0: the caller of a plain command, the pump of a pipe command
//
// A caller that gives a pipe command up before it has read a byte frees the slot itself, and the pump notices by the
// status, which is a number that no other request gets.
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <span>
#include <utility>

#include <velkor/allocation.h>
#include <velkor/process.h>
#include <velkor/text.h>

#include "support/errno_keeper.h"
#include "support/lock_guard.h"
#include "support/log.h"
#include "support/open_file.h"
#include "support/owners.h"
#include "support/pause.h"
#include "support/platform.h"
#include "support/polled_word.h"

namespace {

constexpr const char *SOURCE = "src/vk_system";

}  // namespace

// ---- The child's side of vk_popen() -------------------------------------------------------------------------------

namespace {

struct OpenChild {
    OpenChild *next;
    FILE *stream;
    pid_t process;
};
static_assert(sizeof(void *) != 4 || sizeof(OpenChild) == 12);

pthread_mutex_t children_lock = PTHREAD_MUTEX_INITIALIZER;
OpenChild *children = nullptr;

struct PipeEnds {
    int kept;    // the caller's
    int given;   // the command's
    int target;  // where the command expects it
};

// Handlers belong to a memory that is still the parent's. Ignored signals stay ignored, as exec leaves them.
void drop_signal_handlers() {
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action;
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN && action.sa_handler != SIG_DFL) {
            action.sa_handler = SIG_DFL;
            action.sa_flags = 0;
            sigaction(signal, &action, nullptr);
        }
    }
}

// Both ends close on exec, which the one must not that is in its place already.
void put_in_place(const PipeEnds &ends) {
    close(ends.kept);
    if (ends.given == ends.target) {
        fcntl(ends.given, F_SETFD, 0);
    } else {
        dup2(ends.given, ends.target);
    }
}

constexpr int NO_DESCRIPTOR = -1;

// An earlier stream may have had the very descriptor that is the command's own now.
void close_earlier_streams(int target) {
    for (const OpenChild *child = children; child != nullptr; child = child->next) {
        const int descriptor = fileno_unlocked(child->stream);  // another thread may be reading under its lock
        if (descriptor != target) {
            close(descriptor);
        }
    }
}

// Runs in the parent's memory while the parent's thread stands still: it calls only what a signal handler may call, and
// writes nothing but its own part of the stack.
[[noreturn, gnu::noinline]] void become_shell(const char *command, const PipeEnds &ends, const sigset_t &mask) {
    drop_signal_handlers();
    put_in_place(ends);
    close_earlier_streams(ends.target);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(127);
}

// No signal finds the child before its handlers are gone. Under the list's lock.
pid_t start_shell(const char *command, const PipeEnds &ends) {
    sigset_t all;
    sigset_t mask;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &mask);
    const pid_t process = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork): fork() would copy it all
    if (process == 0) {
        become_shell(command, ends, mask);  // NOLINT(clang-analyzer-unix.Vfork): it keeps to what is allowed
    }
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    return process;
}

}  // namespace

// ---- vk_popen(), vk_pclose() --------------------------------------------------------------------------------------

namespace {

bool start_child(OpenChild &child, const char *command, const PipeEnds &ends) {
    const velkor::LockGuard guard(children_lock);
    child.process = start_shell(command, ends);
    if (child.process < 0) {
        return false;
    }
    child.next = children;
    // In this order also for a child that is forked in between.
    __atomic_store_n(&children, &child, __ATOMIC_RELEASE);
    return true;
}

bool open_child(OpenChild &child, const char *command, const char *mode) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return false;
    }
    const bool reads = mode[0] == 'r';
    velkor::OwnedDescriptor kept(ends[reads ? 0 : 1]);
    const velkor::OwnedDescriptor given(ends[reads ? 1 : 0]);
    velkor::OwnedStream stream(fdopen(kept.get(), mode));
    if (!stream) {
        return false;
    }
    const PipeEnds pipe_ends = {kept.release(), given.get(), reads ? STDOUT_FILENO : STDIN_FILENO};
    child.stream = stream.get();
    if (!start_child(child, command, pipe_ends)) {
        return false;
    }
    stream.release();
    return true;
}

OpenChild *take_child(const FILE *stream) {
    const velkor::LockGuard guard(children_lock);
    for (OpenChild **link = &children; *link != nullptr; link = &(*link)->next) {
        OpenChild *const child = *link;
        if (child->stream == stream) {
            *link = child->next;
            return child;
        }
    }
    return nullptr;
}

int wait_for(pid_t process) {
    int status = 0;
    pid_t ended;
    do {
        ended = waitpid(process, &status, 0);
    } while (ended < 0 && errno == EINTR);
    return ended < 0 ? -1 : status;
}

}  // namespace

FILE *vk_popen(const char *command, const char *mode) {
    if (mode == nullptr || (mode[0] != 'r' && mode[0] != 'w')) {
        errno = EINVAL;
        return nullptr;
    }
    auto *const child = static_cast<OpenChild *>(dvrMalloc(sizeof(OpenChild), SOURCE, 115));
    if (child == nullptr) {
        return nullptr;
    }
    if (!open_child(*child, command, mode)) {
        const velkor::ErrnoKeeper of_failure;
        dvrFree(child);
        return nullptr;
    }
    return child->stream;
}

int vk_pclose(FILE *stream) {
    OpenChild *const child = take_child(stream);
    if (child == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const pid_t process = child->process;
    dvrFree(child);
    fclose(stream);
    return wait_for(process);
}

// ---- The shared area ----------------------------------------------------------------------------------------------

namespace {

constexpr int32_t PLAIN_COMMAND = 0;
constexpr int32_t PIPE_COMMAND = 1;
constexpr int32_t FINISHED = 1;
constexpr int32_t FAILED = -1;
constexpr uintptr_t NOT_OPENED = UINTPTR_MAX;
constexpr uintptr_t CLOSED = 0;

using Word = std::atomic<int32_t>;
static_assert(sizeof(Word) == sizeof(int32_t) && Word::is_always_lock_free);

struct Slot {
    Word in_use;
    Word kind;
    Word request;
    Word status;  // 0: not yet. PLAIN_COMMAND: FINISHED. PIPE_COMMAND: the pipe's number, or FAILED
    Word result;
    char command[2048];
    std::atomic<uintptr_t> caller_stream;  // NOT_OPENED, the caller's stream, or CLOSED
    std::atomic<FILE *> runner_pipe;
    std::atomic<FILE *> runner_command;
};
static_assert(sizeof(void *) != 4 || sizeof(Slot) == 2080);

constexpr size_t AREA_SIZE = VELKOR_COMMAND_SLOTS * sizeof(Slot);
using Slots = std::span<Slot, VELKOR_COMMAND_SLOTS>;

constexpr long CALLERS_PAUSE_US = 100;
constexpr long RUNNERS_IDLE_PAUSE_US = 1100;
constexpr long RUNNERS_BUSY_PAUSE_US = 100;
constexpr long PUMPS_OPENING_PAUSE_US = 100;
constexpr long PUMPS_CLOSING_PAUSE_US = 1000;

constexpr size_t PIPE_PATH_SIZE = 128;

void format_pipe_path(char (&path)[PIPE_PATH_SIZE], int32_t number) {
    memset(path, 0, sizeof path);
    snprintf(path, sizeof path, "/tmpfile/vk_pipe_file_%d.pipe", number);
}

// An open of a pipe waits until somebody has the other end, for ever if need be. This one does not: a reader without a
// writer reads nothing, and a writer without a reader is refused. Reading and writing wait as ever.
int open_at_once(const char *path, int flags) {
    velkor::OwnedDescriptor descriptor(velkor::open_file(path, flags));
    if (!descriptor) {
        return -1;
    }
    const int status = fcntl(descriptor.get(), F_GETFL);
    return status >= 0 && fcntl(descriptor.get(), F_SETFL, status & ~O_NONBLOCK) == 0 ? descriptor.release() : -1;
}

// Every polled word is one of memory that caller and runner share.
template <typename Value>
void pause_while(std::atomic<Value> &word, Value seen, long microseconds) {
    velkor::pause_while(word, seen, microseconds, velkor::Reach::several_processes);
}

template <typename Value>
void wake_poller(std::atomic<Value> &word) {
    velkor::wake_poller(word, velkor::Reach::several_processes);
}

template <typename Value>
void publish(std::atomic<Value> &word, Value value) {
    word.store(value, std::memory_order_release);
    wake_poller(word);
}

}  // namespace

// ---- The runner: plain commands -----------------------------------------------------------------------------------

namespace {

void answer(Slot &slot, int result) {
    slot.result.store(result, std::memory_order_relaxed);
    publish(slot.status, FINISHED);
}

void *run_plain_command(void *argument) {
    Slot &slot = *static_cast<Slot *>(argument);
    answer(slot, system(slot.command));  // NOLINT(cert-env33-c): this is what the runner is for
    return nullptr;
}

bool start_detached(void *(*body)(void *), void *argument) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, body, argument) != 0) {
        return false;
    }
    pthread_detach(thread);
    return true;
}

void take_plain_command(Slot &slot) {
    if (!start_detached(run_plain_command, &slot)) {
        answer(slot, -1);
    }
}

}  // namespace

// ---- The runner: pipe commands ------------------------------------------------------------------------------------
//
// Everything that can fail is done before the caller hears the pipe's number, and the runner holds both ends of the
// pipe by then. No open waits for the other end, neither here nor at the caller's: the other side may be gone.

namespace {

constexpr int32_t PIPE_NUMBERS_END = 0x10000000;
int32_t pipe_counter = 1;

struct Pipe {
    Slot *slot;
    int32_t number;
    int reader;  // keeps the pipe open for writing until the caller reads it
    FILE *writer;
};

void remove_pipe(int32_t number) {
    char path[PIPE_PATH_SIZE];
    format_pipe_path(path, number);
    unlink(path);
}

// Whether the slot is still that of the pipe that left this status there. The kind tells, too: a plain command that has
// ended has the status 1, and so has the first pipe.
bool is_still_of(const Slot &slot, int32_t status) {
    return slot.status.load(std::memory_order_acquire) == status &&
           slot.kind.load(std::memory_order_relaxed) == PIPE_COMMAND;
}

// Whether the caller has opened the pipe, and perhaps closed it again; not if it gave up and the slot is another's.
// The stream is looked at first: with a stream of the slot's next owner would come that one's status and kind.
bool wait_for_reader(const Pipe &pipe) {
    for (;;) {
        const uintptr_t stream = pipe.slot->caller_stream.load(std::memory_order_acquire);
        if (!is_still_of(*pipe.slot, pipe.number)) {
            return false;
        }
        if (stream != NOT_OPENED) {
            return true;
        }
        pause_while(pipe.slot->caller_stream, NOT_OPENED, PUMPS_OPENING_PAUSE_US);
    }
}

bool write_all(int descriptor, std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return false;  // EPIPE, as a rule: the caller has closed its end
        }
        bytes = bytes.subspan(written > 0 ? static_cast<size_t>(written) : 0);
    }
    return true;
}

// Until the end of the output, an error, or the caller's end: in blocks, each as soon as it comes.
void carry_output(const Slot &slot, int from, int to) {
    static constexpr size_t BLOCK = 65536;  // what a pipe holds
    char block[BLOCK];
    while (slot.caller_stream.load(std::memory_order_acquire) != CLOSED) {
        const ssize_t length = read(from, block, sizeof block);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0 || !write_all(to, {block, static_cast<size_t>(length)})) {
            return;
        }
    }
}

// Answers the status that the slot has from now on.
int32_t run_pipe_command(const Pipe &pipe) {
    Slot &slot = *pipe.slot;
    FILE *const command = vk_popen(slot.command, "re");
    slot.runner_command.store(command, std::memory_order_relaxed);
    if (command == nullptr) {
        fclose(pipe.writer);
        remove_pipe(pipe.number);
        publish(slot.status, FAILED);
        return FAILED;
    }
    carry_output(slot, fileno(command), fileno(pipe.writer));
    vk_pclose(command);
    fclose(pipe.writer);
    return pipe.number;
}

// The slot is not this pump's any more if its status has changed: a process that started anew has cleared the area.
void free_slot_when_closed(Slot &slot, int32_t status) {
    uintptr_t stream;
    while ((stream = slot.caller_stream.load(std::memory_order_acquire)) != CLOSED) {
        pause_while(slot.caller_stream, stream, PUMPS_CLOSING_PAUSE_US);
    }
    if (is_still_of(slot, status)) {
        slot.in_use.store(0, std::memory_order_release);
    }
}

void *pump(void *argument) {
    const Pipe pipe = *static_cast<Pipe *>(argument);
    dvrFree(argument);
    pipe.slot->runner_pipe.store(pipe.writer, std::memory_order_relaxed);
    publish(pipe.slot->status, pipe.number);

    const bool has_reader = wait_for_reader(pipe);
    close(pipe.reader);
    if (!has_reader) {
        fclose(pipe.writer);
        remove_pipe(pipe.number);
        return nullptr;
    }
    const int32_t status = run_pipe_command(pipe);
    free_slot_when_closed(*pipe.slot, status);
    return nullptr;
}

bool start_pump(const Pipe &pipe) {
    auto *const record = static_cast<Pipe *>(dvrMalloc(sizeof(Pipe), SOURCE, __LINE__));
    if (record == nullptr) {
        return false;
    }
    *record = pipe;
    if (!start_detached(pump, record)) {
        dvrFree(record);
        return false;
    }
    return true;
}

bool open_pipe(Slot &slot, const char *path, int32_t number) {
    velkor::OwnedDescriptor reader(open_at_once(path, O_RDONLY));
    velkor::OwnedDescriptor writer(open_at_once(path, O_WRONLY));  // which needs the reader
    if (!reader || !writer) {
        return false;
    }
    velkor::OwnedStream stream(fdopen(writer.get(), "w"));
    if (!stream) {
        return false;
    }
    writer.release();
    if (!start_pump({&slot, number, reader.get(), stream.get()})) {
        return false;
    }
    reader.release();
    stream.release();
    return true;
}

void take_pipe_command(Slot &slot) {
    if (pipe_counter >= PIPE_NUMBERS_END) {
        pipe_counter = 1;
    }
    char path[PIPE_PATH_SIZE];
    format_pipe_path(path, pipe_counter);
    unlink(path);
    if (mkfifo(path, 0666) != 0 || !open_pipe(slot, path, pipe_counter++)) {
        unlink(path);
        publish(slot.status, FAILED);
    }
}

}  // namespace

// ---- The runner: its life -----------------------------------------------------------------------------------------

namespace {

// The open streams of the process that forked are its own, and so are their commands, which wait for the end of their
// input or output: this process must not hold it open. Everything else that was open stays, as fork() leaves it: the
// libraries that are called here may need it.
void let_go_of_callers_commands() {
    const velkor::LockGuard guard(children_lock);
    close_earlier_streams(NO_DESCRIPTOR);
    children = nullptr;
}

void leave_callers_world() {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGUSR1, SIG_IGN);
    signal(SIGUSR2, SIG_IGN);
    signal(SIGCHLD, SIG_DFL);  // or there would be no status to report
    let_go_of_callers_commands();
}

// Two runners can serve one area, when a recorder was started anew before the old runner was ended: taking is one step,
// so that only one of them runs the command.
bool take_request(Slot &slot) {
    if (slot.in_use.load(std::memory_order_acquire) == 0 || slot.request.load(std::memory_order_relaxed) == 0 ||
        slot.request.exchange(0, std::memory_order_acq_rel) == 0) {
        return false;
    }
    switch (slot.kind.load(std::memory_order_relaxed)) {
        case PLAIN_COMMAND:
            take_plain_command(slot);
            break;
        case PIPE_COMMAND:
            take_pipe_command(slot);
            break;
        default:
            slot.in_use.store(0, std::memory_order_release);
    }
    return true;
}

bool take_requests(Slots slots) {
    bool took = false;
    for (Slot &slot : slots) {
        took |= take_request(slot);
    }
    return took;
}

// A request in the first slot is not waited over; one that nobody will ever take must not keep this process busy.
void pause_until_bell(Slots slots, long microseconds) {
    Slot &first = slots.front();
    const int32_t request = first.request.load(std::memory_order_relaxed);
    if (request == 0 || first.in_use.load(std::memory_order_relaxed) == 0) {
        pause_while(first.request, request, microseconds);
    }
}

// A caller that has died has perhaps been started anew, with a runner of its own. That one is to be quicker: its bell
// is not this one's to answer.
[[noreturn]] void serve(Slots slots, pid_t caller) {
    leave_callers_world();
    for (;;) {
        const long pause = take_requests(slots) ? RUNNERS_BUSY_PAUSE_US : RUNNERS_IDLE_PAUSE_US;
        if (getppid() == caller) {
            pause_until_bell(slots, pause);
        } else {
            velkor::pause_for_us(pause);
        }
    }
}

}  // namespace

// ---- Attaching ----------------------------------------------------------------------------------------------------

namespace {

// The area as this process has it mapped. A call that still waits keeps it so when somebody detaches it meanwhile.
//
// Which streams are this process's own is not in the area: processes that share it have streams at the same addresses,
// a parent and its child above all.
struct Attachment {
    Slot *slots;
    int calls;
    std::atomic<FILE *> own_streams[VELKOR_COMMAND_SLOTS];  // by slot; NULL when this process opened none there
};

pthread_mutex_t slot_lock = PTHREAD_MUTEX_INITIALIZER;
Attachment *attached = nullptr;  // under the lock, and so is the count of calls
int segment = -1;

void begin(Attachment &attachment, Slot *slots) {
    attachment.slots = slots;
    attachment.calls = 0;
    for (std::atomic<FILE *> &stream : attachment.own_streams) {
        stream.store(nullptr, std::memory_order_relaxed);
    }
}

// A child's calls and streams are those that it makes itself.
void start_afresh_in_child() {
    slot_lock = PTHREAD_MUTEX_INITIALIZER;
    children_lock = PTHREAD_MUTEX_INITIALIZER;
    if (attached != nullptr) {
        begin(*attached, attached->slots);
    }
}

__attribute__((constructor)) void survive_fork() { velkor::when_forked(start_afresh_in_child); }

void unmap(Attachment *attachment) {
    shmdt(attachment->slots);
    dvrFree_libc(attachment);
}

void remove_segment() {
    if (segment != -1) {
        shmctl(segment, IPC_RMID, nullptr);
        segment = -1;
    }
}

// A child that is forked meanwhile finds no attachment that is gone.
void detach() {
    Attachment *const former = std::exchange(attached, nullptr);
    if (former != nullptr && former->calls == 0) {
        unmap(former);
    }
    remove_segment();
}

int find_or_create_segment() {
    const key_t key = ftok("TODO", 'a');
    if (key == -1) {
        return -1;
    }
    const int found = shmget(key, AREA_SIZE, 0666);
    return found != -1 ? found : shmget(key, AREA_SIZE, IPC_CREAT | 0666);
}

bool attach() {
    segment = find_or_create_segment();
    if (segment == -1) {
        return false;
    }
    void *const area = shmat(segment, nullptr, 0);
    if (area == nullptr || area == reinterpret_cast<void *>(-1)) {  // NOLINT(performance-no-int-to-ptr)
        return false;
    }
    memset(area, 0, AREA_SIZE);
    auto *const attachment = static_cast<Attachment *>(dvrMalloc_libc(sizeof(Attachment)));
    if (attachment == nullptr) {
        shmdt(area);
        return false;
    }
    begin(*attachment, static_cast<Slot *>(area));
    std::atomic_thread_fence(std::memory_order_release);  // filled before it is seen
    attached = attachment;
    return true;
}

pid_t fork_runner() {
    const pid_t caller = getpid();
    const pid_t runner = fork();
    if (runner == 0) {
        serve(Slots(attached->slots, VELKOR_COMMAND_SLOTS), caller);
    }
    return runner;
}

// For the time of one call.
class Area {
public:
    Area() {
        const velkor::LockGuard guard(slot_lock);
        attachment_ = attached;
        if (attachment_ != nullptr) {
            ++attachment_->calls;
        }
    }
    ~Area() {
        const velkor::LockGuard guard(slot_lock);
        if (attachment_ != nullptr && --attachment_->calls == 0 && attachment_ != attached) {
            unmap(attachment_);
        }
    }
    Area(const Area &) = delete;
    Area &operator=(const Area &) = delete;

    explicit operator bool() const { return attachment_ != nullptr; }
    Slots slots() const { return Slots(attachment_->slots, VELKOR_COMMAND_SLOTS); }

    void own(const Slot &slot, FILE *stream) const {
        attachment_->own_streams[&slot - attachment_->slots].store(stream, std::memory_order_release);
    }

    // The slot of a stream that this process opened, and that is given up by that; NULL for any other stream.
    Slot *disown(FILE *stream) const {
        for (Slot &slot : slots()) {
            FILE *own = stream;
            if (attachment_->own_streams[&slot - attachment_->slots].compare_exchange_strong(own, nullptr)) {
                return &slot;
            }
        }
        return nullptr;
    }

    // The runner polls many words, but can wait on one of them only: whatever slot a request is in, it is announced at
    // the first one's.
    Word &bell() const { return slots().front().request; }

private:
    Attachment *attachment_;
};

}  // namespace

int VkSystemInit() {
    const velkor::LockGuard guard(slot_lock);
    if (attached != nullptr) {
        detach();
        return -1;
    }
    const pid_t runner = attach() ? fork_runner() : -1;
    if (runner == -1) {
        detach();
    }
    return runner;
}

void VkSystemUninit() {
    const velkor::LockGuard guard(slot_lock);
    if (attached != nullptr) {
        detach();
    }
}

// ---- The caller's side --------------------------------------------------------------------------------------------

namespace {

bool is_acceptable(const char *command) {
    return command != nullptr && strnlen(command, VELKOR_COMMAND_SIZE) < VELKOR_COMMAND_SIZE;
}

void clear(Slot &slot) {
    slot.kind.store(0, std::memory_order_relaxed);
    slot.request.store(0, std::memory_order_relaxed);
    slot.status.store(0, std::memory_order_relaxed);
    slot.result.store(0, std::memory_order_relaxed);
    memset(slot.command, 0, sizeof slot.command);
    slot.caller_stream.store(0, std::memory_order_relaxed);
    slot.runner_pipe.store(nullptr, std::memory_order_relaxed);
    slot.runner_command.store(nullptr, std::memory_order_relaxed);
}

// In one step, because a process that was forked from this one has the same slots and another lock.
Slot *take_free_slot(const Area &area) {
    for (Slot &slot : area.slots()) {
        int32_t free = 0;
        if (slot.in_use.compare_exchange_strong(free, 1, std::memory_order_acq_rel)) {
            clear(slot);
            return &slot;
        }
    }
    return nullptr;
}

void give_back(Slot &slot) {
    slot.status.store(0, std::memory_order_release);
    slot.request.store(0, std::memory_order_release);
    publish(slot.caller_stream, CLOSED);
    slot.in_use.store(0, std::memory_order_release);
}

int32_t request(Word &bell, Slot &slot, int32_t kind, const char *command) {
    strncopy(slot.command, command, VELKOR_COMMAND_SIZE - 1);
    slot.kind.store(kind, std::memory_order_relaxed);
    slot.caller_stream.store(kind == PIPE_COMMAND ? NOT_OPENED : CLOSED, std::memory_order_relaxed);
    slot.request.store(1, std::memory_order_release);
    wake_poller(bell);
    int32_t status;
    while ((status = slot.status.load(std::memory_order_acquire)) == 0) {
        pause_while(slot.status, 0, CALLERS_PAUSE_US);
    }
    return status;
}

int run(const Area &area, const char *command) {
    Slot *const slot = take_free_slot(area);
    if (slot == nullptr) {
        return -1;
    }
    request(area.bell(), *slot, PLAIN_COMMAND, command);
    const int result = slot->result.load(std::memory_order_relaxed);
    give_back(*slot);
    return result;
}

// What fopen() opens with for a mode, or -1 for what is none.
int flags_of_mode(const char *mode) {
    const bool both_ways = strchr(mode, '+') != nullptr;
    const int exclusive = strchr(mode, 'x') != nullptr ? O_EXCL : 0;
    switch (mode[0]) {
        case 'r':
            return both_ways ? O_RDWR : O_RDONLY;
        case 'w':
            return (both_ways ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC | exclusive;
        case 'a':
            return (both_ways ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND | exclusive;
        default:
            return -1;
    }
}

// As fopen(), but without waiting for the other end.
FILE *open_stream(const char *path, const char *mode) {
    const int flags = flags_of_mode(mode);
    velkor::OwnedDescriptor descriptor(flags >= 0 ? open_at_once(path, flags) : -1);
    return velkor::stream_of(descriptor, mode);
}

FILE *open_to_read(int32_t number, const char *command, const char *mode) {
    char path[PIPE_PATH_SIZE];
    format_pipe_path(path, number);
    VK_LOG("[%s:%d]-file=%s cmd=%s\n", "VkPipeOpen", __LINE__, path, command);
    return open_stream(path, mode);
}

}  // namespace

int VkSystem(const char *command) {
    const Area area;
    if (!is_acceptable(command) || !area) {
        return -1;
    }
    VK_LOG("do vksystem(\"%s\")\n", command);
    const int result = run(area, command);
    VK_LOG("ret value is = %d", result);
    return result;
}

FILE *VkPipeOpen(const char *command, const char *mode) {
    const Area area;
    if (!is_acceptable(command) || mode == nullptr || !area) {
        return nullptr;
    }
    Slot *const slot = take_free_slot(area);
    if (slot == nullptr) {
        return nullptr;
    }
    const int32_t status = request(area.bell(), *slot, PIPE_COMMAND, command);
    FILE *const stream = status > 0 ? open_to_read(status, command, mode) : nullptr;
    if (stream == nullptr) {
        give_back(*slot);
        return nullptr;
    }
    area.own(*slot, stream);
    publish(slot->caller_stream, reinterpret_cast<uintptr_t>(stream));
    return stream;
}

namespace {

// The slot is given up before the stream is closed, for the next stream to be opened may have the same address; and the
// pipe's path is taken before that, for the slot may be another's at once. It is already where a process that started
// anew has cleared the area.
void close_pipe(Slot &slot, FILE *stream) {
    char path[PIPE_PATH_SIZE];
    format_pipe_path(path, slot.status.load(std::memory_order_acquire));
    uintptr_t open_stream = reinterpret_cast<uintptr_t>(stream);
    if (slot.in_use.load(std::memory_order_acquire) == 0 ||
        !slot.caller_stream.compare_exchange_strong(open_stream, CLOSED, std::memory_order_acq_rel)) {
        return;
    }
    wake_poller(slot.caller_stream);
    fclose(stream);
    unlink(path);
}

}  // namespace

int VkPipeClose(FILE *stream) {
    const Area area;
    if (stream == nullptr || !area) {
        return -1;
    }
    if (Slot *const slot = area.disown(stream)) {
        close_pipe(*slot, stream);
    }
    return 0;
}
