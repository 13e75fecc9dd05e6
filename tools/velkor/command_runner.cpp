#include "command_runner.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/process.h>

#include <cstdlib>

#include "descriptor.h"
#include "exit_status.h"

namespace tool {

namespace {

// Who forks the runner, by the id of the process.
pid_t tool_process = -1;

// The runner has the tool's standard streams, and serves on when the tool is gone: no pipeline with the tool in it
// would end. Whoever kills the tool ends the runner by that.
void end_with_tool() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != tool_process) {
        _exit(EXIT_FAILURE);  // the tool was quicker
    }
}

// Where the person is. The runner's commands are to run there, though its key is made elsewhere.
int home = -1;

// In the runner, before it begins. The terminal sends its signals to everybody: they are meant for the commands, which
// have no handlers when they start.
void settle_in_runner() {
    if (home < 0) {
        return;
    }
    end_with_tool();
    static_cast<void>(fchdir(home) == 0);
    home = -1;  // what the runner itself forks is no runner
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
}

// A directory of its own with the file that the key comes of, for as long as the key is needed.
class KeyDirectory {
public:
    KeyDirectory() : home_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        if (!home_) {
            fail_call("open the working directory");
        }
        if (mkdtemp(path_.data()) == nullptr) {
            fail_call("make a directory in /tmp");
        }
        if (chdir(path_.c_str()) != 0) {
            fail_call("enter " + path_);
        }
        home = home_.get();
    }
    ~KeyDirectory() {
        home = -1;
        unlink("TODO");
        static_cast<void>(fchdir(home_.get()) == 0);
        rmdir(path_.c_str());
    }
    KeyDirectory(const KeyDirectory &) = delete;
    KeyDirectory &operator=(const KeyDirectory &) = delete;

    // A key is made of half an inode's number: it may be somebody's already.
    static void make_file() {
        for (int attempt = 0; attempt < 100; ++attempt) {
            unlink("TODO");
            const Descriptor other(open("taken", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));  // takes the inode before
            const Descriptor file(open("TODO", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            unlink("taken");
            if (!file) {
                fail_call("make a file in /tmp");
            }
            if (shmget(ftok("TODO", 'a'), 0, 0) == -1) {
                return;
            }
        }
        throw Failure(NEGATIVE, "cannot find a free key for shared memory");
    }

private:
    Descriptor home_;
    std::string path_ = "/tmp/velkor-runner-XXXXXX";
};

pid_t start_runner() {
    static const int settled = pthread_atfork(nullptr, nullptr, settle_in_runner);
    tool_process = getpid();
    const KeyDirectory directory;
    KeyDirectory::make_file();
    const int process = settled == 0 ? VkSystemInit() : -1;
    if (process == -1) {
        throw Failure(NEGATIVE, "cannot start the command runner: error -1, no shared memory or no process");
    }
    return process;
}

}  // namespace

CommandRunner::CommandRunner() : process_(start_runner()) {}

CommandRunner::~CommandRunner() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    VkSystemUninit();
}

int run_command(const std::string &command) {
    const int status = VkSystem(command.c_str());
    if (status == -1) {
        throw Failure(NEGATIVE, "cannot run the command: error -1, the runner could not start it");
    }
    return status;
}

int exit_status_of(int wait_status) {
    return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
}

}  // namespace tool
