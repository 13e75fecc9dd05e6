// The sandbox: see sandbox.sh, which compiles this and runs it as
//
//     sandbox PROJECT [OPTION...] COMMAND [ARGUMENT...]
//
// A program, because each of some thousand tests begins with it: a script of the same steps took longer than most
// tests.
//
// Nothing that runs inside may reach the machine, whatever rights it has and whatever it gets wrong. So the machine is
// taken over read-only, the former root is unmounted, and only then a user namespace is entered: the kernel keeps
// whoever is root in that one from taking "read-only" back, and from making devices.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#define STAGE "/tmp/.velkor-sandbox"  // only a place to mount on; each run mounts its own file system there
#define MOST_WRITABLE 8

struct Request {
    const char *project;
    const char *directory;  // the working directory
    const char *writable[MOST_WRITABLE];
    size_t writable_count;
    const char *disk;
    const char *libraries;
    char **command;
};

static void need(bool done, const char *what) {
    if (!done) {
        fprintf(stderr, "sandbox: %s: %s\n", what, strerror(errno));
        exit(125);
    }
}

static const char *in_stage(const char *format, ...) __attribute__((format(printf, 1, 2)));

// A path below STAGE; it stays until the next call.
static const char *in_stage(const char *format, ...) {
    static char path[PATH_MAX];
    int length = snprintf(path, sizeof path, "%s", STAGE);
    va_list values;
    va_start(values, format);
    length += vsnprintf(path + length, sizeof path - (size_t)length, format, values);
    va_end(values);
    errno = ENAMETOOLONG;
    need(length < (int)sizeof path, "a path");
    return path;
}

static void write_file(const char *path, const char *text) {
    int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    need(file >= 0 && write(file, text, strlen(text)) == (ssize_t)strlen(text) && close(file) == 0, path);
}

static void make_directory(const char *path, mode_t mode) {
    need((mkdir(path, mode) == 0 || errno == EEXIST) && chmod(path, mode) == 0, path);
}

static bool is_directory(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// ---- Mounts -------------------------------------------------------------------------------------------------------

static void bind_mount(const char *from, const char *to) {
    need(mount(from, to, NULL, MS_BIND | MS_REC, NULL) == 0, from);
}

static void bind_with(const char *from, const char *to, uint64_t attributes) {
    struct mount_attr change = {.attr_set = attributes};
    bind_mount(from, to);
    need(syscall(SYS_mount_setattr, AT_FDCWD, to, AT_RECURSIVE, &change, sizeof change) == 0, to);
}

// With all that is mounted below, and without its devices.
static void bind_read_only(const char *from, const char *to) {
    bind_with(from, to, MOUNT_ATTR_RDONLY | MOUNT_ATTR_NODEV);
}

// It can be written to, but keeps its name, owner and mode.
static void bind_device(const char *from, const char *to) { bind_with(from, to, MOUNT_ATTR_RDONLY); }

static void mount_memory(const char *at, const char *options) {
    need(mount("velkor", at, "tmpfs", MS_NOSUID | MS_NODEV, options) == 0, at);
}

// ---- The machine's files ------------------------------------------------------------------------------------------

// What is not the machine's, or is made below; what is neither a directory nor a link in / is not needed.
static bool is_taken_over(const char *name) {
    static const char *const OWN[] = {".", "..", "dev", "dvr", "dvrfile", "etc", "proc", "run", "tmp", "tmpfile"};
    for (size_t own = 0; own < sizeof OWN / sizeof OWN[0]; ++own)
        if (strcmp(name, OWN[own]) == 0)
            return false;
    return true;
}

static void take_over(const char *name, unsigned char type) {
    char outside[PATH_MAX];
    snprintf(outside, sizeof outside, "/%s", name);
    if (type == DT_LNK) {
        char target[PATH_MAX] = "";
        need(readlink(outside, target, sizeof target - 1) >= 0 && symlink(target, in_stage("/%s", name)) == 0, outside);
    } else if (type == DT_DIR) {
        make_directory(in_stage("/%s", name), 0755);
        bind_read_only(outside, in_stage("/%s", name));
    }
}

static void take_over_the_machine(const struct Request *request) {
    DIR *root = opendir("/");
    need(root != NULL, "/");
    for (struct dirent *entry; (entry = readdir(root)) != NULL;)
        if (is_taken_over(entry->d_name) && !(request->libraries != NULL && strcmp(entry->d_name, "lib") == 0))
            take_over(entry->d_name, entry->d_type);
    closedir(root);
}

static bool is_entry(const char *name) { return strcmp(name, ".") != 0 && strcmp(name, "..") != 0; }

// Links in `into` to all that is in `directory`, which the sandbox has at `kept`. Names that are there already stay.
static void link_entries(const char *directory, const char *kept, const char *into) {
    DIR *entries = opendir(directory);
    need(entries != NULL, directory);
    for (struct dirent *entry; (entry = readdir(entries)) != NULL;) {
        if (!is_entry(entry->d_name))
            continue;
        char target[PATH_MAX];
        snprintf(target, sizeof target, "%s/%s", kept, entry->d_name);
        need(symlink(target, in_stage("%s/%s", into, entry->d_name)) == 0 || errno == EEXIST, target);
    }
    closedir(entries);
}

// /etc must take new files: links to the machine's own, and room beside them.
static void make_etc(void) {
    make_directory(in_stage("/.etc"), 0755);
    bind_read_only("/etc", in_stage("/.etc"));
    make_directory(in_stage("/etc"), 0755);
    write_file(in_stage("/etc/TZ"), "UTC0\n");
    link_entries("/etc", "/.etc", "/etc");
}

// Programs for another processor find their C library beside the machine's, in the one file tree that there is.
static void make_lib(const char *libraries) {
    if (libraries == NULL)
        return;
    make_directory(in_stage("/.lib"), 0755);
    bind_read_only("/lib", in_stage("/.lib"));
    make_directory(in_stage("/lib"), 0755);
    link_entries(libraries, libraries, "/lib");
    link_entries("/lib", "/.lib", "/lib");
}

// ---- What is the sandbox's own ------------------------------------------------------------------------------------

// Devices by name, and terminals that only this sandbox has. The console is a file.
static void make_dev(void) {
    static const char *const DEVICES[] = {"null", "zero", "full", "random", "urandom", "tty"};
    make_directory(in_stage("/dev"), 0755);
    for (size_t device = 0; device < sizeof DEVICES / sizeof DEVICES[0]; ++device) {
        char outside[64];
        snprintf(outside, sizeof outside, "/dev/%s", DEVICES[device]);
        write_file(in_stage("%s", outside), "");
        bind_device(outside, in_stage("%s", outside));
    }
    write_file(in_stage("/dev/console"), "");
    make_directory(in_stage("/dev/shm"), 01777);
    make_directory(in_stage("/dev/pts"), 0755);
    need(mount("devpts", in_stage("/dev/pts"), "devpts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=620") ==
             0,
         "/dev/pts");
    static const char *const LINKS[][2] = {{"pts/ptmx", "ptmx"},
                                           {"/proc/self/fd", "fd"},
                                           {"/proc/self/fd/0", "stdin"},
                                           {"/proc/self/fd/1", "stdout"},
                                           {"/proc/self/fd/2", "stderr"}};
    for (size_t link = 0; link < sizeof LINKS / sizeof LINKS[0]; ++link)
        need(symlink(LINKS[link][0], in_stage("/dev/%s", LINKS[link][1])) == 0, LINKS[link][1]);
}

// Root may write there by its user number alone, whatever rights it has; and what it writes is for the whole machine.
static void protect_kernel_settings(void) {
    static const char *const SETTINGS[] = {"acpi", "bus",      "driver", "fs",  "irq",
                                           "mtrr", "pressure", "scsi",   "sys", "sysrq-trigger"};
    for (size_t i = 0; i < sizeof SETTINGS / sizeof SETTINGS[0]; ++i) {
        char path[PATH_MAX];
        snprintf(path, sizeof path, "%s", in_stage("/proc/%s", SETTINGS[i]));
        if (access(path, F_OK) == 0)
            bind_read_only(path, path);
    }
    bind_mount("/proc/sys/net", in_stage("/proc/sys/net"));  // those of its own network
}

static void make_proc(void) {
    make_directory(in_stage("/proc"), 0555);
    need(mount("proc", in_stage("/proc"), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, NULL) == 0, "/proc");
    protect_kernel_settings();
}

static void make_var_tmp(const char *disk) {
    if (!is_directory(in_stage("/var/tmp")))
        return;
    if (disk != NULL)
        bind_mount(disk, in_stage("/var/tmp"));
    else
        mount_memory(in_stage("/var/tmp"), "mode=1777");
}

static void copy_script(const char *project, const char *name) {
    char text[64 * 1024] = "";
    char from[PATH_MAX];
    snprintf(from, sizeof from, "%s/examples/%s", project, name);
    int file = open(from, O_RDONLY | O_CLOEXEC);
    need(file >= 0 && read(file, text, sizeof text - 1) > 0 && close(file) == 0, from);
    write_file(in_stage("/dvr/%s", name), text);
    need(chmod(in_stage("/dvr/%s", name), 0755) == 0, from);
}

static void make_mount_point(const char *directory) {
    for (const char *end = directory; (end = strchr(end + 1, '/')) != NULL;)
        mkdir(in_stage("%.*s", (int)(end - directory), directory), 0755);
    mkdir(in_stage("%s", directory), 0755);
}

// The project and the working directory, wherever they are: below /tmp, say.
static void keep_within_reach(const char *directory) {
    if (is_directory(in_stage("%s", directory)))
        return;
    make_mount_point(directory);
    bind_read_only(directory, in_stage("%s", directory));
}

static void make_writable(const char *directory) {
    make_mount_point(directory);
    bind_mount(directory, in_stage("%s", directory));
}

static void make_files(const struct Request *request) {
    mount_memory(STAGE, "mode=755");
    take_over_the_machine(request);
    make_directory(in_stage("/dvrfile"), 0755);
    make_directory(in_stage("/dvr"), 0755);
    make_directory(in_stage("/tmpfile"), 0755);
    make_directory(in_stage("/tmp"), 01777);
    make_directory(in_stage("/run"), 0755);
    make_proc();
    make_dev();
    make_etc();
    make_lib(request->libraries);
    make_var_tmp(request->disk);
    copy_script(request->project, "swap_ctrl.sh");
    keep_within_reach(request->project);
    keep_within_reach(request->directory);
    for (size_t i = 0; i < request->writable_count; ++i)
        make_writable(request->writable[i]);
}

// ---- Namespaces ---------------------------------------------------------------------------------------------------

// Joining its own mount namespace again puts a process at that namespace's root: out of a chroot, where neither
// mounts can be made private nor a user namespace be entered.
static void go_to_root_of_mounts(int mounts) { need(setns(mounts, CLONE_NEWNS) == 0, "the root of all mounts"); }

static void enter_files(const struct Request *request) {
    need(unshare(CLONE_NEWNS) == 0, "mounts of its own");
    int mounts = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    int root = open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
    need(mounts >= 0 && root >= 0, "/proc/self/ns/mnt");
    go_to_root_of_mounts(mounts);
    need(mount(NULL, "/", NULL, MS_REC | MS_PRIVATE, NULL) == 0, "mounts that only it sees");
    need(fchdir(root) == 0 && chroot(".") == 0 && close(root) == 0, "/");

    make_files(request);

    int stage = open(STAGE, O_PATH | O_DIRECTORY | O_CLOEXEC);
    need(stage >= 0, STAGE);
    go_to_root_of_mounts(mounts);
    // The former root is laid over the new one and taken away from there: pivot_root(2), "pivot_root(".", ".")".
    need(fchdir(stage) == 0 && syscall(SYS_pivot_root, ".", ".") == 0, "a root of its own");
    need(umount2(".", MNT_DETACH) == 0 && chdir("/") == 0, "the former root");
    close(stage);
    close(mounts);
}

// Everybody who is known to the namespace around it keeps the same number.
static void map_identically(const char *from, const char *to) {
    char text[4096] = "";
    size_t length = 0;
    FILE *outer = fopen(from, "re");
    need(outer != NULL, from);
    unsigned first;
    unsigned parent;
    unsigned count;
    while (length < sizeof text && fscanf(outer, "%u %u %u", &first, &parent, &count) == 3)
        length += (size_t)snprintf(text + length, sizeof text - length, "%u %u %u\n", first, first, count);
    fclose(outer);
    write_file(to, text);
}

// Writes the maps of process 1 from outside its new user namespace, as soon as it is told that there is one.
static void map_users_of_first_process(int told) {
    char byte;
    need(read(told, &byte, 1) == 1, "a user namespace");
    map_identically("/proc/self/uid_map", "/proc/1/uid_map");
    map_identically("/proc/self/gid_map", "/proc/1/gid_map");
    _exit(0);
}

// From here on, what was mounted stays as it is: this is what the kernel locks against the root of a user namespace.
static void enter_user_namespace(void) {
    int ends[2];
    need(pipe2(ends, O_CLOEXEC) == 0, "a pipe");
    pid_t mapper = fork();
    need(mapper >= 0, "fork");
    if (mapper == 0)
        map_users_of_first_process(ends[0]);
    need(unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC) == 0, "a user namespace");
    int status = 0;
    need(write(ends[1], "+", 1) == 1 && waitpid(mapper, &status, 0) == mapper && status == 0, "its users");
    close(ends[0]);
    close(ends[1]);
    need(mount(NULL, "/", NULL, MS_REC | MS_PRIVATE, NULL) == 0, "mounts of its own");
}

static void bring_loopback_up(void) {
    int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq loopback = {.ifr_name = "lo", .ifr_flags = IFF_UP};
    need(any >= 0 && ioctl(any, SIOCSIFFLAGS, &loopback) == 0 && close(any) == 0, "lo");
}

// An ordinary user is root in a first user namespace, to mount at all.
static void take_first_namespaces(void) {
    uid_t user = getuid();
    gid_t group = getgid();
    need(unshare(CLONE_NEWPID | (user == 0 ? 0 : CLONE_NEWUSER)) == 0, "namespaces of its own");
    if (user == 0)
        return;
    char map[64];
    write_file("/proc/self/setgroups", "deny");
    snprintf(map, sizeof map, "0 %u 1", user);
    write_file("/proc/self/uid_map", map);
    snprintf(map, sizeof map, "0 %u 1", group);
    write_file("/proc/self/gid_map", map);
}

// ---- The command --------------------------------------------------------------------------------------------------

// As a shell tells it.
static int exit_status(int status) { return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status); }

static int run(char **command) {
    pid_t child = fork();
    need(child >= 0, "fork");
    if (child == 0) {
        execvp(command[0], command);
        fprintf(stderr, "sandbox: %s: %s\n", command[0], strerror(errno));
        _exit(errno == ENOENT ? 127 : 126);
    }
    // Process 1 collects whatever the command leaves behind, and takes all of it along when it ends.
    for (;;) {
        int status = 0;
        pid_t ended = wait(&status);
        if (ended == child)
            return exit_status(status);
        need(ended >= 0 || errno == EINTR, "wait");
    }
}

// A directory that the caller has open leads back to the machine as it is.
static void close_directories(void) {
    DIR *descriptors = opendir("/proc/self/fd");
    need(descriptors != NULL, "/proc/self/fd");
    for (struct dirent *entry; (entry = readdir(descriptors)) != NULL;) {
        int descriptor = atoi(entry->d_name);
        struct stat status;
        if (is_entry(entry->d_name) && descriptor != dirfd(descriptors) && fstat(descriptor, &status) == 0 &&
            S_ISDIR(status.st_mode))
            close(descriptor);
    }
    closedir(descriptors);
}

// Through a descriptor of the machine's /dev/null its owner and mode can be changed, as some services do that give up
// their rights. The sandbox's own refuses that.
static void take_own_null(void) {
    int own = open("/dev/null", O_RDWR | O_CLOEXEC);
    struct stat null;
    need(own >= 0 && fstat(own, &null) == 0, "/dev/null");
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        struct stat status;
        if (fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == null.st_rdev)
            need(dup2(own, descriptor) == descriptor, "/dev/null");
    }
    if (own > STDERR_FILENO)
        close(own);
}

static int be_first_process(const struct Request *request) {
    umask(022);
    close_directories();
    enter_files(request);
    take_own_null();
    enter_user_namespace();
    need(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "an end with its parent");
    bring_loopback_up();
    need(chdir(request->directory) == 0, request->directory);
    return run(request->command);
}

static int wait_for_first_process(pid_t inside) {
    // A terminal's interruption is for the command; what it makes of it decides.
    signal(SIGINT, SIG_IGN);
    signal(SIGTERM, SIG_IGN);
    int status = 0;
    while (waitpid(inside, &status, 0) < 0)
        need(errno == EINTR, "wait");
    return exit_status(status);
}

// ---- A piece of a real disk ---------------------------------------------------------------------------------------

static int remove_entry(const char *path, const struct stat *status, int type, struct FTW *place) {
    (void)status;
    (void)type;
    (void)place;
    return remove(path);
}

static char *make_disk(const char *below) {
    static char path[PATH_MAX];
    snprintf(path, sizeof path, "%s/diskXXXXXX", below);
    need((mkdir(below, 0755) == 0 || errno == EEXIST) && mkdtemp(path) != NULL && chmod(path, 01777) == 0, below);
    return path;
}

static void remove_disk(const char *path) {
    if (path != NULL)
        nftw(path, remove_entry, 16, FTW_DEPTH | FTW_PHYS | FTW_MOUNT);
}

// ---- Words of the command line ------------------------------------------------------------------------------------

static int usage(void) {
    fputs("usage: sandbox PROJECT [--write DIRECTORY] [--disk DIRECTORY] [--lib DIRECTORY] COMMAND [ARGUMENT...]\n",
          stderr);
    return 2;
}

// An absolute path without links, or NULL: it names the same in the sandbox and outside.
static const char *directory_of(const char *word) {
    const char *path = realpath(word, NULL);
    if (path == NULL || !is_directory(path)) {
        fprintf(stderr, "sandbox: no such directory: %s\n", word);
        exit(125);
    }
    return path;
}

static bool read_words(struct Request *request, char **words) {
    if (words[0] == NULL)
        return false;
    request->project = directory_of(*words++);
    for (; words[0] != NULL && strncmp(words[0], "--", 2) == 0; words += 2) {
        if (words[1] == NULL)
            return false;
        if (strcmp(words[0], "--write") == 0 && request->writable_count < MOST_WRITABLE)
            request->writable[request->writable_count++] = directory_of(words[1]);
        else if (strcmp(words[0], "--disk") == 0)
            request->disk = words[1];
        else if (strcmp(words[0], "--lib") == 0)
            request->libraries = directory_of(words[1]);
        else
            return false;
    }
    request->command = words;
    return words[0] != NULL;
}

int main(int count, char **words) {
    (void)count;
    struct Request request = {0};
    if (!read_words(&request, words + 1))
        return usage();
    char directory[PATH_MAX];
    need(getcwd(directory, sizeof directory) != NULL, "the working directory");
    request.directory = directory;
    need(mkdir(STAGE, 0755) == 0 || errno == EEXIST, STAGE);
    if (request.disk != NULL)
        request.disk = make_disk(request.disk);
    take_first_namespaces();
    pid_t inside = fork();
    need(inside >= 0, "fork");
    if (inside == 0) {
        need(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "an end with its parent");
        return be_first_process(&request);
    }
    int status = wait_for_first_process(inside);
    remove_disk(request.disk);
    return status;
}
