// Name resolution that keeps nobody waiting for long: a worker resolves, the caller looks now and then.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

#include <velkor/allocation.h>
#include <velkor/concurrency.h>
#include <velkor/firmware.h>
#include <velkor/network.h>

#include "support/lock_guard.h"
#include "support/log.h"
#include "support/pause.h"
#include "support/platform.h"

namespace {

constexpr int64_t LOOK_PAUSE_US = 980000;
constexpr int USUAL_TIMEOUT_S = 6;

// ---- The status: written by the worker when the result is there, read by the caller meanwhile ----

int32_t load_status(const velkor_lookup &lookup) { return __atomic_load_n(&lookup.status, __ATOMIC_ACQUIRE); }
void store_status(velkor_lookup &lookup, int32_t status) { __atomic_store_n(&lookup.status, status, __ATOMIC_RELEASE); }

// ---- The caller's side ----

velkor_lookup *make_lookup(const char *host) {
    auto *const lookup = static_cast<velkor_lookup *>(dvrMalloc(sizeof(velkor_lookup), "src/common_fun", 442));
    if (lookup == nullptr) {
        return nullptr;
    }
    memset(lookup, 0, sizeof *lookup);
    snprintf(lookup->name, sizeof lookup->name, "%s", host);
    lookup->hints.ai_family = AF_UNSPEC;
    lookup->hints.ai_socktype = SOCK_STREAM;
    lookup->status = VELKOR_LOOKUP_PENDING;
    pthread_mutex_init(&lookup->lock, nullptr);
    return lookup;
}

// Looks until there is a final status or the time is over. Answers the time of the last look, which is read before the
// pause: that is what makes a lookup that hangs cost one to two seconds more than its time-out.
int64_t wait_for_status(const velkor_lookup &lookup, int64_t start, int timeout) {
    for (;;) {
        int64_t now = 0;
        vkt_get_uptime(&now);
        velkor::pause_for_us(LOOK_PAUSE_US);
        if (now - start > timeout || load_status(lookup) != VELKOR_LOOKUP_PENDING) {
            return now;
        }
    }
}

// ---- The worker's side ----

// A fork waits until no worker is in the middle of letting go: a child may hold the lookup, but has no worker who would
// unlock it.
pthread_mutex_t letting_go_lock = PTHREAD_MUTEX_INITIALIZER;

__attribute__((constructor)) void survive_fork() { velkor::hold_over_fork<letting_go_lock>(); }

// Answers whether the other side has let go already, so that the lookup is the caller's alone.
bool finish(velkor_lookup &lookup) {
    const velkor::LockGuard guard_of_fork(letting_go_lock);
    const velkor::LockGuard guard(lookup.lock);
    const bool is_last = lookup.finished == 1;
    lookup.finished = 1;
    return is_last;
}

// As velkor_lookup_let_go(), but frees nothing under a lock that a fork takes.
void let_go_as_worker(velkor_lookup *lookup) {
    if (!finish(*lookup)) {
        return;
    }
    if (lookup->result != nullptr) {
        freeaddrinfo(lookup->result);
    }
    dvrFree(lookup);
}

// ---- The addresses of a result ----

struct AddressTexts {
    char ipv4[INET_ADDRSTRLEN] = "";
    char ipv6[INET6_ADDRSTRLEN] = "";
};

template <typename SocketAddress>
const SocketAddress *address_of(const struct addrinfo &entry) {
    const bool is_whole = entry.ai_addr != nullptr && entry.ai_addrlen >= sizeof(SocketAddress);
    return is_whole ? reinterpret_cast<const SocketAddress *>(entry.ai_addr) : nullptr;
}

void keep_first_ipv6(AddressTexts &texts, const struct addrinfo &entry) {
    const auto *const address = address_of<struct sockaddr_in6>(entry);
    if (texts.ipv6[0] == '\0' && address != nullptr) {
        inet_ntop(AF_INET6, &address->sin6_addr, texts.ipv6, sizeof texts.ipv6);
        VK_LOG("%s(%d):cIPv6=%s\n", "GetIPbyDNSV2", 513, texts.ipv6);
    }
}

void keep_first_ipv4(AddressTexts &texts, const struct addrinfo &entry) {
    const auto *const address = address_of<struct sockaddr_in>(entry);
    if (texts.ipv4[0] == '\0' && address != nullptr) {
        inet_ntop(AF_INET, &address->sin_addr, texts.ipv4, sizeof texts.ipv4);
        VK_LOG("%s(%d):cIPv4=%s\n", "GetIPbyDNSV2", 519, texts.ipv4);
    }
}

// The first address of each family.
AddressTexts first_addresses(const struct addrinfo *entry) {
    AddressTexts texts;
    for (; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family == AF_INET6) {
            keep_first_ipv6(texts, *entry);
        } else {
            keep_first_ipv4(texts, *entry);
        }
    }
    return texts;
}

// Answers 0 for IPv4, which is preferred, 1 for IPv6, -1 when there is neither.
int choose_address(const AddressTexts &texts, char *address) {
    const bool is_ipv4 = texts.ipv4[0] != '\0';
    const char *const text = is_ipv4 ? texts.ipv4 : texts.ipv6;
    if (*text == '\0') {
        return -1;
    }
    memcpy(address, text, strlen(text) + 1);
    return is_ipv4 ? 0 : 1;
}

}  // namespace

int GetIpByNameAsync(const char *host, int timeout, velkor_lookup **out) {
    int64_t start = 0;
    vkt_get_uptime(&start);
    if (out == nullptr) {
        return -1;
    }
    *out = nullptr;
    if (host == nullptr || timeout <= 0) {
        return -1;
    }
    velkor_lookup *const lookup = make_lookup(host);
    if (lookup == nullptr) {
        VK_LOG("%s %d, error NULL \n", "GetIpByNameAsync", 446);
        return -1;
    }
    *out = lookup;
    if (CreateThreadInPool(&lookup->thread, _Thr_GetIpTask, lookup) != 0) {
        lookup->finished = 1;  // nobody else will let go
        return -1;
    }
    const int64_t now = wait_for_status(*lookup, start, timeout);
    const int32_t status = load_status(*lookup);
    VK_LOG("%s %d, iRet = %d, timeNew = %lld, timeStart = %lld _iTimeOut = %d\n", "GetIpByNameAsync", 469, status,
           static_cast<long long>(now), static_cast<long long>(start), timeout);
    return status == VELKOR_LOOKUP_RESOLVED ? 0 : -1;
}

void *_Thr_GetIpTask(void *record) {
    auto *const lookup = static_cast<velkor_lookup *>(record);
    if (lookup == nullptr) {
        return nullptr;
    }
    struct addrinfo *result = nullptr;
    const bool is_resolved = getaddrinfo(lookup->name, nullptr, &lookup->hints, &result) == 0;
    if (is_resolved) {
        lookup->result = result;
        VK_LOG("%s(%d)>>>>>>>>>> getaddrinfo success\n", "_Thr_GetIpTask", 405);
    } else {
        VK_LOG("%s(%d)>>>>>>>>>> getaddrinfo faild \n", "_Thr_GetIpTask", 400);
    }
    store_status(*lookup, is_resolved ? VELKOR_LOOKUP_RESOLVED : VELKOR_LOOKUP_FAILED);
    let_go_as_worker(lookup);
    return nullptr;
}

int GetIPbyDNSV2(const char *host, char *address, int *family) {
    if (host == nullptr || address == nullptr || *host == '\0') {
        return -1;
    }
    *address = '\0';
    velkor_lookup *lookup = nullptr;
    if (GetIpByNameAsync(host, USUAL_TIMEOUT_S, &lookup) != 0 || lookup == nullptr) {
        VK_LOG("%s(%d)>>>>>>>>>> GetIpByNameAsync faild \n", "GetIPbyDNSV2", 503);
        if (lookup != nullptr) {
            velkor_lookup_let_go(lookup);
        }
        return -1;
    }
    const int found = choose_address(first_addresses(lookup->result), address);
    velkor_lookup_let_go(lookup);
    if (found < 0) {
        return -1;
    }
    if (family != nullptr) {
        *family = found;
    }
    return 0;
}
