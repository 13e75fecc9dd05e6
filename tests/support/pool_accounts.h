// What the library took of the memory service on behalf of one source file, and how to keep it from taking more.
#pragma once

#include <gtest/gtest.h>
#include <velkor/allocation.h>
#include <velkor_host.h>

#include <string>

// The file gets a pool of its own, of at most `limit` KiB (0 = no limit). To be made before the file's first
// allocation.
class PoolAccounts {
public:
    explicit PoolAccounts(std::string file, unsigned limit = 0) : name_(std::move(file)) {
        EXPECT_EQ(dvrRegMem(name_.c_str(), limit), 0);
    }

    // All zeros as long as nothing was asked for.
    velkor_host_pool now() const {
        velkor_host_pool pool = {};
        for (unsigned i = 0; velkor_host_pool_get(i, &pool) == 0; ++i) {
            if (name_ == pool.name) {
                return pool;
            }
        }
        return {};
    }

private:
    std::string name_;
};
