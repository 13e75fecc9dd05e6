// The default gateway behind an interface: get_gateway() beside libnl-route, as a program would use it, and beside the
// command that a script would run. And what the listening for ARP answers costs while nobody answers.
//
// Run it in ./dev sandbox: it makes interfaces and routes.
#include <benchmark/benchmark.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/nexthop.h>
#include <netlink/route/route.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <velkor/network.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

void run(const std::string &command) {
    if (system(command.c_str()) != 0) {
        fprintf(stderr, "failed, run it in ./dev sandbox: %s\n", command.c_str());
        exit(1);
    }
}

// A machine with an interface, a default route, and some more.
void make_routes(int64_t count) {
    run("ip link del eth0 2>/dev/null; ip link add eth0 type veth peer name far && ip link set far up && "
        "ip addr add 10.7.0.1/24 dev eth0 && ip link set eth0 up && ip route add default via 10.7.0.2");
    std::ofstream batch("/tmp/batch");
    for (int64_t i = 0; i < count; ++i) {
        batch << "route add 172.16." << i / 250 << "." << i % 250 << "/32 via 10.7.0.5\n";
    }
    batch.close();
    run("ip -batch /tmp/batch");
}

// A few routes, and as many as the buffer of 16384 bytes holds.
constexpr int64_t FEW = 2;
constexpr int64_t MANY = 240;

void Gateway_Velkor(benchmark::State &state) {
    make_routes(state.range(0));
    for (auto _ : state) {
        char gateway[16] = "";
        if (get_gateway(gateway, "eth0") != 0 || strcmp(gateway, "10.7.0.2") != 0) {
            state.SkipWithError("no gateway");
        }
    }
}
BENCHMARK(Gateway_Velkor)->Arg(FEW)->Arg(MANY);

// A socket of its own for each question, as the function above has; the kernel's answer in libnl's objects.
void Gateway_Libnl(benchmark::State &state) {
    make_routes(state.range(0));
    for (auto _ : state) {
        struct nl_sock *const socket = nl_socket_alloc();
        struct nl_cache *routes = nullptr;
        if (nl_connect(socket, NETLINK_ROUTE) < 0 || rtnl_route_alloc_cache(socket, AF_INET, 0, &routes) < 0) {
            state.SkipWithError("no routes");
            break;
        }
        const int interface = static_cast<int>(if_nametoindex("eth0"));
        char gateway[64] = "";
        for (struct nl_object *object = nl_cache_get_first(routes); object != nullptr;
             object = nl_cache_get_next(object)) {
            auto *const route = reinterpret_cast<struct rtnl_route *>(object);
            struct rtnl_nexthop *const hop = rtnl_route_nexthop_n(route, 0);
            if (rtnl_route_get_table(route) == RT_TABLE_MAIN && nl_addr_get_prefixlen(rtnl_route_get_dst(route)) == 0 &&
                hop != nullptr && rtnl_route_nh_get_ifindex(hop) == interface) {
                nl_addr2str(rtnl_route_nh_get_gateway(hop), gateway, sizeof gateway);
            }
        }
        nl_cache_free(routes);
        nl_socket_free(socket);
        if (strcmp(gateway, "10.7.0.2") != 0) {
            state.SkipWithError("no gateway");
        }
    }
}
BENCHMARK(Gateway_Libnl)->Arg(FEW)->Arg(MANY);

void Gateway_IpRouteShow(benchmark::State &state) {
    make_routes(state.range(0));
    for (auto _ : state) {
        FILE *const stream = popen("ip route show default dev eth0", "r");
        char line[256] = "";
        const char *const text = fgets(line, sizeof line, stream);
        benchmark::DoNotOptimize(text);
        pclose(stream);
    }
}
BENCHMARK(Gateway_IpRouteShow)->Arg(FEW)->Arg(MANY)->UseRealTime();

double processor_seconds() {
    struct rusage usage;
    getrusage(RUSAGE_THREAD, &usage);
    const auto seconds = [](const struct timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// One whole listening: about a thousand looks a second.
void Listening_CheckIp(benchmark::State &state) {
    make_routes(0);
    double used = 0;
    for (auto _ : state) {
        const double before = processor_seconds();
        if (CheckIp(0, "10.7.0.9", nullptr, 3, 1) != 0) {
            state.SkipWithError("somebody answered");
        }
        used += processor_seconds() - before;
    }
    state.counters["cpu_ms"] = used * 1000 / static_cast<double>(state.iterations());
}
BENCHMARK(Listening_CheckIp)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

// ---- Answers: the whole call, which bounds the time from the answer's arrival to the return ----

// A second host at 10.7.0.2 behind "eth0", for as long as this process lives.
void make_second_host() {
    static bool is_made = false;
    if (is_made) {
        return;
    }
    is_made = true;
    run("unshare --net --kill-child sh -c 'echo $$ >/tmp/second; exec sleep 1000' & sleep 0.5");
    run("ip link del eth0 2>/dev/null; second=$(cat /tmp/second); "
        "ip link add eth0 type veth peer name eth0 netns $second && ip addr add 10.7.0.1/24 dev eth0 && "
        "ip link set eth0 up && nsenter --net=/proc/$second/ns/net sh -c "
        "'ip addr add 10.7.0.2/24 dev eth0; ip link set eth0 up' && sleep 1.5");  // the kernel lets the link settle
}

// How long the calls took, in microseconds.
template <typename Call>
void measure_calls(benchmark::State &state, Call call) {
    make_second_host();
    std::vector<double> times;
    for (auto _ : state) {
        const auto begin = std::chrono::steady_clock::now();
        if (!call()) {
            state.SkipWithError("no answer");
            break;
        }
        times.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
    }
    std::sort(times.begin(), times.end());
    const auto share = [&](double part) {
        return times[static_cast<size_t>(part * static_cast<double>(times.size() - 1))];
    };
    if (!times.empty()) {
        state.counters["us_50%"] = share(0.5);
        state.counters["us_90%"] = share(0.9);
        state.counters["us_99%"] = share(0.99);
        state.counters["us_99.9%"] = share(0.999);
        state.counters["us_most"] = times.back();
    }
}

void Answer_CheckNetDelay(benchmark::State &state) {
    measure_calls(state, [] { return CheckNetDelay(1, "10.7.0.2", nullptr, nullptr, 1, 1) == 0; });
}
BENCHMARK(Answer_CheckNetDelay)->UseRealTime();

void Answer_CheckIp(benchmark::State &state) {
    measure_calls(state, [] { return CheckIp(0, "10.7.0.2", nullptr, 5, 1) == 1; });
}
BENCHMARK(Answer_CheckIp)->UseRealTime();

}  // namespace
