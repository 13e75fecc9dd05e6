#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <velkor/files.h>
#include <velkor/firmware.h>

#include "support/export_table.h"
#include "support/place.h"

namespace {

// A disk that takes nothing once: the copy pauses, and tries again.
thread_local bool is_busy_disk = false;

}  // namespace

extern "C" int vfs_Write(int fd, const void *buffer, int length) {
    if (is_busy_disk) {
        is_busy_disk = false;
        return 0;
    }
    return static_cast<int>(write(fd, buffer, static_cast<size_t>(length)));
}

namespace exports {
namespace {

constexpr const char *SOURCE = "/tmp/source";
constexpr unsigned REGISTERS = 0x12340000;
constexpr int PAUSE_BEFORE_RETRY_MS = 90;

// 4 GiB of physical memory, of which hardly a byte takes any.
std::shared_ptr<void> prepare() {
    place::write_file(SOURCE, std::string(10000, 'x'));
    place::write_file("/dev/mem", "");
    truncate("/dev/mem", off_t{1} << 32);
    mkdir("/tmp/tree", 0755);
    mkdir("/tmp/tree/empty", 0755);
    place::write_file("/tmp/tree/file", "text");
    return nullptr;
}

// A path that no other thread has.
std::string own_path(const char *name) { return std::string("/tmp/") + name + std::to_string(syscall(SYS_gettid)); }

std::string copied(int (*copy)(const char *destination)) {
    const std::string path = own_path("copy");
    const int result = copy(path.c_str());
    struct stat status = {};
    stat(path.c_str(), &status);
    unlink(path.c_str());
    return text_of(result, status.st_size, status.st_mode);
}

int copy_all(const char *path) { return copy_file(SOURCE, path, nullptr, -1, 0); }

int copy_to_busy_disk(const char *path) {
    is_busy_disk = true;
    return copy_all(path);
}

std::string remembered() {
    const int result = Set_Dir("/mnt/disk0");
    return text_of(result, filled([](char *out) { return Get_Dir(out); }));
}

std::string read_whole() {
    const int file = open(SOURCE, O_RDONLY | O_CLOEXEC);
    const std::string text = filled([=](char *out) { return safe_read(file, out, 100); });
    close(file);
    return text;
}

std::string written() {
    const std::string path = own_path("written");
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const int result = safe_write(file, "text", 4);
    close(file);
    unlink(path.c_str());
    return text_of(result);
}

std::string removed_tree() {
    const std::string path = own_path("removed");
    mkdir(path.c_str(), 0755);
    close(open((path + "/file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const int result = remove_file(path.c_str());
    return text_of(result, place::exists(path));
}

std::string made_directory() {
    const std::string path = own_path("made");
    const int result = make_dir(path.c_str());
    const int removed = rmdir(path.c_str());
    return text_of(result, removed);
}

std::string joined(char *path) {
    const std::string text = one_text(path);
    vkmem_GlobalFree(path);
    return text;
}

std::string opened() {
    const int file = HI_Open(SOURCE, O_RDONLY | O_CLOEXEC, 0);
    void *const memory = HI_MMap(nullptr, 4, PROT_READ, MAP_SHARED, file, 0);
    const std::string text(static_cast<char *>(memory), 4);
    const int unmapped = HI_MUnMap(memory, 4);
    return text_of(file >= 0, text, unmapped, HI_Close(file));
}

std::string mapped_file(void *memory) {
    const std::string text(static_cast<char *>(memory), 4);
    return text_of(text, HI_MUnMap(memory, 4));
}

std::string mapped_registers() {
    const uintptr_t address = memmap(REGISTERS + 0x10, 4);
    return text_of(address != 0, memunmap(address));
}

constexpr Row ROWS[] = {
    {"copy_file", [] { return copied(copy_all); }},
    {"copy_file (to a busy disk)", [] { return copied(copy_to_busy_disk); }, lasting(PAUSE_BEFORE_RETRY_MS)},
    {"GetCopyCtrlStatus", [] { return text_of(GetCopyCtrlStatus()); }, PLAIN},
    {"SetCopyCtrlStatus", [] { return SetCopyCtrlStatus(0), text_of(GetCopyCtrlStatus()); }, PLAIN},
    {"Set_Dir Get_Dir", remembered, sharing("the one destination can be read once")},
    {"safe_read", read_whole},
    {"safe_write", written},
    {"SetDeletelFileSize", [] { return text_of(SetDeletelFileSize(64)); }, PLAIN},

    {"remove_file", removed_tree},
    {"du", [] { return text_of(du("/tmp/tree", 1)); }},
    {"make_dir", made_directory},
    {"is_dir", [] { return text_of(is_dir("/tmp/tree"), is_dir(SOURCE)); }},
    {"is_empty_dir", [] { return text_of(is_empty_dir("/tmp/tree"), is_empty_dir("/tmp/tree/empty")); }},

    {"extract_file_name", [] { return changed("/mnt/disk0/file", extract_file_name); }, PLAIN},
    {"extract_file_path", [] { return changed("/mnt/disk0/file", extract_file_path); }},
    {"concat_path_file", [] { return joined(concat_path_file("/mnt/disk0", "/file")); }},
    {"concat_subpath_file", [] { return joined(concat_subpath_file("/mnt/disk0", "file")); }},
    {"last_char_is", [] { return text_of(last_char_is("/mnt/", '/')); }, PLAIN},

    {"HI_Open HI_Close HI_MMap HI_MUnMap", opened},
    {"memmap memunmap", mapped_registers, in_turns("for one thread of a process, or callers that take turns")},
    {"mmapfile", [] { return mapped_file(mmapfile(SOURCE, 4)); }},
    {"mmapfile_r", [] { return mapped_file(mmapfile_r(SOURCE, 4)); }},
};

}  // namespace

const Group FILES = {ROWS, prepare};

}  // namespace exports
