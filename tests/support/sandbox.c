// The recorder's place: see sandbox.sh, which compiles this and runs it as
//
//     sandbox PROJECT COMMAND [ARGUMENT...]
//
// A program, because each of some thousand tests begins with it: a script of the same steps took longer than most
// tests.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#define STAGE "/tmp/.velkor-sandbox"  // only a place to mount on; each run mounts its own file system there

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
    need(mkdir(path, mode) == 0 && chmod(path, mode) == 0, path);
}

static void bind_mount(const char *from, const char *to) {
    need(mount(from, to, NULL, MS_BIND | MS_REC, NULL) == 0, from);
}

static void take_namespaces(void) {
    uid_t user = getuid();
    gid_t group = getgid();
    int namespaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWPID;
    need(unshare(namespaces | (user == 0 ? 0 : CLONE_NEWUSER)) == 0, "namespaces of its own");
    if (user == 0)
        return;
    char map[64];
    write_file("/proc/self/setgroups", "deny");
    snprintf(map, sizeof map, "0 %u 1", user);
    write_file("/proc/self/uid_map", map);
    snprintf(map, sizeof map, "0 %u 1", group);
    write_file("/proc/self/gid_map", map);
}

// The recorder's own paths, /tmp, and /etc are not the machine's; what is no directory or link in / is not needed.
static bool is_taken_over(const char *name) {
    static const char *const OWN[] = {".", "..", "tmp", "etc", "dvrfile", "dvr", "tmpfile"};
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
        bind_mount(outside, in_stage("/%s", name));
    }
}

static void take_over_the_machine(void) {
    DIR *root = opendir("/");
    need(root != NULL, "/");
    for (struct dirent *entry; (entry = readdir(root)) != NULL;)
        if (is_taken_over(entry->d_name))
            take_over(entry->d_name, entry->d_type);
    closedir(root);
}

// /etc must take new files: links to the machine's own, and room beside them.
static void make_etc(void) {
    make_directory(in_stage("/.etc"), 0755);
    bind_mount("/etc", in_stage("/.etc"));
    make_directory(in_stage("/etc"), 0755);
    DIR *etc = opendir("/etc");
    need(etc != NULL, "/etc");
    for (struct dirent *entry; (entry = readdir(etc)) != NULL;) {
        const char *name = entry->d_name;
        if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || strcmp(name, "TZ") == 0)
            continue;
        char target[PATH_MAX];
        snprintf(target, sizeof target, "/.etc/%s", name);
        need(symlink(target, in_stage("/etc/%s", name)) == 0, target);
    }
    closedir(etc);
    write_file(in_stage("/etc/TZ"), "UTC0\n");
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

// A project that was unpacked below /tmp stays within reach.
static void keep_within_reach(const char *directory) {
    if (strncmp(directory, "/tmp/", 5) != 0)
        return;
    for (const char *end = directory + 1; (end = strchr(end + 1, '/')) != NULL;)
        mkdir(in_stage("%.*s", (int)(end - directory), directory), 0755);
    mkdir(in_stage("%s", directory), 0755);
    bind_mount(directory, in_stage("%s", directory));
}

static void bring_loopback_up(void) {
    int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq loopback = {.ifr_name = "lo", .ifr_flags = IFF_UP};
    need(any >= 0 && ioctl(any, SIOCSIFFLAGS, &loopback) == 0 && close(any) == 0, "lo");
}

static void enter_place(const char *project, const char *directory) {
    // Below a chroot the root is no mount point, and can only be taken as it is.
    need(mount(NULL, "/", NULL, MS_REC | MS_PRIVATE, NULL) == 0 || errno == EINVAL, "mounts of its own");
    need(mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, NULL) == 0, "/proc");
    need(mount("velkor", STAGE, "tmpfs", 0, "mode=755") == 0, STAGE);
    take_over_the_machine();
    make_directory(in_stage("/dvrfile"), 0755);
    make_directory(in_stage("/dvr"), 0755);
    make_directory(in_stage("/tmpfile"), 0755);
    make_directory(in_stage("/tmp"), 01777);
    make_etc();
    copy_script(project, "swap_ctrl.sh");
    keep_within_reach(project);
    keep_within_reach(directory);
    bring_loopback_up();
    need(chroot(STAGE) == 0 && chdir(directory) == 0, directory);
}

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

int main(int count, char **arguments) {
    if (count < 3) {
        fputs("usage: sandbox PROJECT COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    char directory[PATH_MAX];
    need(getcwd(directory, sizeof directory) != NULL, "the working directory");
    need(mkdir(STAGE, 0755) == 0 || errno == EEXIST, STAGE);
    take_namespaces();
    pid_t inside = fork();
    need(inside >= 0, "fork");
    if (inside == 0) {
        need(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "an end with its parent");
        umask(022);
        enter_place(arguments[1], directory);
        return run(arguments + 2);
    }
    // A terminal's interruption is for the command; what it makes of it decides.
    signal(SIGINT, SIG_IGN);
    signal(SIGTERM, SIG_IGN);
    int status = 0;
    while (waitpid(inside, &status, 0) < 0)
        need(errno == EINTR, "wait");
    return exit_status(status);
}
