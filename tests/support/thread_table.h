// The threads that are registered with the firmware's thread registry.
#pragma once

#include <velkor_host.h>

#include <string>
#include <vector>

// Those of one name, in the order of their registration.
inline std::vector<velkor_host_thread> registered_threads(const std::string &name) {
    std::vector<velkor_host_thread> threads;
    velkor_host_thread thread;
    for (unsigned index = 0; velkor_host_thread_get(index, &thread) == 0; ++index) {
        if (name == thread.name) {
            threads.push_back(thread);
        }
    }
    return threads;
}
