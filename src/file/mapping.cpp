// Physical memory and files as memory of the process.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <velkor/files.h>

static_assert(sizeof(off_t) == 8, "registers and recordings lie above 2 GiB");
static_assert(sizeof(void *) != 4 || sizeof(velkor_mapping) == 20);

velkor_mapping *pMMAPNode = nullptr;

int HI_Open(const char *path, int flags, unsigned mode) { return open(path, flags, mode); }

int HI_Close(int fd) { return close(fd); }

void *HI_MMap(void *addr, size_t length, int prot, int flags, int fd, int64_t offset) {
    return mmap(addr, length, prot, flags, fd, offset);
}

int HI_MUnMap(void *addr, size_t length) { return munmap(addr, length); }

namespace {

// No command of the process inherits what is opened here, and no FIFO in a file's place holds the caller up.
constexpr int OWN_FLAGS = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

}  // namespace

// ---- Physical memory ----------------------------------------------------------------------------------------------

namespace {

constexpr uint64_t PAGE = 4096;
constexpr uint64_t END_OF_MEMORY = uint64_t{1} << 32;
constexpr int DECIMAL_MODE = 777;  // has no meaning without O_CREAT

int memory_descriptor = -1;

// Sums of addresses have 64 bits here: in 32 a range at the end of memory would seem to begin at its start.
bool holds(const velkor_mapping &mapping, uint64_t begin, uint64_t end) {
    return mapping.physical_base <= begin && end <= uint64_t{mapping.physical_base} + mapping.length;
}

velkor_mapping *find_physical(uint64_t begin, uint64_t end) {
    velkor_mapping *mapping = pMMAPNode;
    while (mapping != nullptr && !holds(*mapping, begin, end)) {
        mapping = mapping->next;
    }
    return mapping;
}

// The place of the pointer to the mapping that holds the address, one past its last byte included, or of the null
// pointer at the end of the list.
velkor_mapping **find_virtual(uintptr_t address) {
    velkor_mapping **place = &pMMAPNode;
    while (*place != nullptr &&
           (address < (*place)->virtual_base || address - (*place)->virtual_base > (*place)->length)) {
        place = &(*place)->next;
    }
    return place;
}

bool open_memory_once() {
    if (memory_descriptor < 0) {
        memory_descriptor = HI_Open("/dev/mem", O_RDWR | OWN_FLAGS, DECIMAL_MODE);
    }
    return memory_descriptor >= 0;
}

void append(velkor_mapping *mapping) {
    velkor_mapping **place = &pMMAPNode;
    while (*place != nullptr) {
        place = &(*place)->next;
    }
    *place = mapping;
}

uintptr_t make_mapping(uint32_t physical, uint64_t size) {
    const uint64_t in_page = physical % PAGE;
    const uint64_t base = physical - in_page;
    const uint64_t length = (size + in_page - 1) / PAGE * PAGE + PAGE;
    if (length > UINT32_MAX || !open_memory_once()) {
        return 0;
    }
    void *const address = HI_MMap(nullptr, static_cast<size_t>(length), PROT_READ | PROT_WRITE, MAP_SHARED,
                                  memory_descriptor, static_cast<int64_t>(base));
    if (address == MAP_FAILED) {
        return 0;
    }
    auto *const mapping = static_cast<velkor_mapping *>(malloc(sizeof(velkor_mapping)));
    if (mapping == nullptr) {
        return 0;
    }
    *mapping = {static_cast<uint32_t>(base), reinterpret_cast<uintptr_t>(address), static_cast<uint32_t>(length), 1,
                nullptr};
    append(mapping);
    return mapping->virtual_base + static_cast<uintptr_t>(in_page);
}

}  // namespace

uintptr_t memmap(unsigned physical, unsigned size) {
    const uint64_t end = uint64_t{physical} + size;
    if (size == 0 || end > END_OF_MEMORY) {
        return 0;
    }
    velkor_mapping *const mapping = find_physical(physical, end);
    if (mapping == nullptr) {
        return make_mapping(physical, size);
    }
    ++mapping->users;
    return mapping->virtual_base + (physical - mapping->physical_base);
}

int memunmap(uintptr_t virtual_address) {
    velkor_mapping **const place = find_virtual(virtual_address);
    velkor_mapping *const mapping = *place;
    if (mapping == nullptr) {
        return -1;
    }
    if (--mapping->users != 0) {
        return 0;
    }
    // Without its first mapping the list is empty: later ones stay mapped and are found no more.
    *place = place == &pMMAPNode ? nullptr : mapping->next;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses are numbers in this interface
    HI_MUnMap(reinterpret_cast<void *>(mapping->virtual_base), mapping->length);
    free(mapping);
    return 0;
}

// ---- Files --------------------------------------------------------------------------------------------------------

namespace {

void *map_file(const char *path, size_t length, int flags, int mode, int protection) {
    if (path == nullptr) {
        return nullptr;
    }
    const int descriptor = HI_Open(path, flags | OWN_FLAGS, static_cast<unsigned>(mode));
    if (descriptor < 0) {
        return nullptr;
    }
    void *const address = HI_MMap(nullptr, length, protection, MAP_SHARED, descriptor, 0);
    HI_Close(descriptor);
    return address;
}

}  // namespace

void *mmapfile(const char *path, size_t length) {
    return map_file(path, length, O_RDWR | O_CREAT, 0770, PROT_READ | PROT_WRITE);
}

void *mmapfile_r(const char *path, size_t length) { return map_file(path, length, O_RDONLY, DECIMAL_MODE, PROT_READ); }
