// Every record that a program and the library both know, as it is laid out on the recorder. Where addresses are wider,
// its fields keep their order and their own widths.
#pragma once

#include <pthread.h>
#include <stdio.h>
#include <time.h>

#include <velkor/calendar.h>
#include <velkor/concurrency.h>
#include <velkor/configuration.h>
#include <velkor/diagnostics.h>
#include <velkor/files.h>
#include <velkor/firmware.h>
#include <velkor/network.h>
#include <velkor/system_info.h>
#include <velkor/text.h>

#include "width_of.h"

constexpr bool is_at(size_t offset, size_t on_the_recorder) {
    return widths::IS_FOR_THE_RECORDER ? offset == on_the_recorder : offset >= on_the_recorder;
}

#define NAMED(record) \
    template <>       \
    inline constexpr std::string_view widths::name_of<record> = #record;
#define RECORD(record, size) \
    NAMED(record)            \
    static_assert(!widths::IS_FOR_THE_RECORDER || sizeof(record) == (size), "the size of " #record);
#define FIELD(record, offset, field, width)                                                   \
    static_assert(is_at(offsetof(record, field), offset), "where " #record "." #field " is"); \
    static_assert(widths::Comparison<widths::of<decltype(record::field)>(), widths::here(width)>::is_made);

// The C library's own.
NAMED(FILE)
NAMED(pthread_attr_t)
NAMED(pthread_rwlock_t)
NAMED(tm)
RECORD(pthread_mutex_t, 24)
RECORD(addrinfo, 32)
RECORD(timespec, 8)
FIELD(timespec, 0, tv_sec, "time")
FIELD(timespec, 4, tv_nsec, "address")

RECORD(RtMsgBuf, 65568)
FIELD(RtMsgBuf, 0, lock, "pthread_mutex_t")
FIELD(RtMsgBuf, 24, flags, "32")
FIELD(RtMsgBuf, 28, write_position, "32")
FIELD(RtMsgBuf, 32, text, "8[65536]")

NAMED(SafeQueueEntry)
RECORD(SafeQueue, 32)
FIELD(SafeQueue, 0, lock, "pthread_mutex_t")
FIELD(SafeQueue, 24, first, "*SafeQueueEntry")
FIELD(SafeQueue, 28, last, "*SafeQueueEntry")

RECORD(TimerEntry, 12)
FIELD(TimerEntry, 0, interval, "32")
FIELD(TimerEntry, 4, func, "**void(*void)")
FIELD(TimerEntry, 8, arg, "*void")

RECORD(sList, 36)
FIELD(sList, 0, count, "32")
FIELD(sList, 4, items, "**8")
FIELD(sList, 8, Add, "*32(*sList, *8)")
FIELD(sList, 12, Clear, "*32(*sList)")
FIELD(sList, 16, Insert, "*32(*sList, *8, 32)")
FIELD(sList, 20, Delete, "*32(*sList, 32)")
FIELD(sList, 24, Init, "*32(*sList)")
FIELD(sList, 28, Destroy, "*32(*sList)")
FIELD(sList, 32, IndexOf, "*32(*sList, *8)")

RECORD(velkor_cpu_counters, 80)
FIELD(velkor_cpu_counters, 0, user, "64")
FIELD(velkor_cpu_counters, 8, nice, "64")
FIELD(velkor_cpu_counters, 16, system, "64")
FIELD(velkor_cpu_counters, 24, idle, "64")
FIELD(velkor_cpu_counters, 32, iowait, "64")
FIELD(velkor_cpu_counters, 40, steal, "64")
FIELD(velkor_cpu_counters, 48, irq, "64")
FIELD(velkor_cpu_counters, 56, softirq, "64")
FIELD(velkor_cpu_counters, 64, guest, "64")
FIELD(velkor_cpu_counters, 72, guest_nice, "64")

RECORD(velkor_cpu_timer, 168)
FIELD(velkor_cpu_timer, 0, samples, "velkor_cpu_counters[2]")
FIELD(velkor_cpu_timer, 160, next, "32")
FIELD(velkor_cpu_timer, 164, on, "32")

RECORD(dictionary, 40)
FIELD(dictionary, 0, count, "32")
FIELD(dictionary, 4, size, "32")
FIELD(dictionary, 8, values, "**8")
FIELD(dictionary, 12, keys, "**8")
FIELD(dictionary, 16, hashes, "*32")
FIELD(dictionary, 20, comment_count, "32")
FIELD(dictionary, 24, comment_size, "32")
FIELD(dictionary, 28, comment_texts, "**8")
FIELD(dictionary, 32, comment_anchors, "*32")
FIELD(dictionary, 36, comment_kinds, "*8")

RECORD(velkor_mapping, 20)
FIELD(velkor_mapping, 0, physical_base, "32")
FIELD(velkor_mapping, 4, virtual_base, "address")
FIELD(velkor_mapping, 8, length, "32")
FIELD(velkor_mapping, 12, users, "32")
FIELD(velkor_mapping, 16, next, "*velkor_mapping")

RECORD(velkor_lookup, 204)
FIELD(velkor_lookup, 0, thread, "address")
FIELD(velkor_lookup, 4, name, "8[129]")
FIELD(velkor_lookup, 136, hints, "addrinfo")
FIELD(velkor_lookup, 168, result, "*addrinfo")
FIELD(velkor_lookup, 172, status, "32")
FIELD(velkor_lookup, 176, finished, "32")
FIELD(velkor_lookup, 180, lock, "pthread_mutex_t")

RECORD(velkor_date, 12)
FIELD(velkor_date, 0, year, "32")
FIELD(velkor_date, 4, month, "32")
FIELD(velkor_date, 8, day, "32")

RECORD(velkor_month_week_day, 16)
FIELD(velkor_month_week_day, 0, year, "32")
FIELD(velkor_month_week_day, 4, month, "32")
FIELD(velkor_month_week_day, 8, week, "32")
FIELD(velkor_month_week_day, 12, weekday, "32")

RECORD(velkor_daylight_rule, 28)
FIELD(velkor_daylight_rule, 0, month, "32")
FIELD(velkor_daylight_rule, 4, week, "32")
FIELD(velkor_daylight_rule, 8, weekday, "32")
FIELD(velkor_daylight_rule, 12, hour, "32")
FIELD(velkor_daylight_rule, 16, reserved, "32[3]")

RECORD(DaylightConfig, 68)
FIELD(DaylightConfig, 0, zone, "32")
FIELD(DaylightConfig, 4, enable, "32")
FIELD(DaylightConfig, 8, offset, "32")
FIELD(DaylightConfig, 12, dst_start, "velkor_daylight_rule")
FIELD(DaylightConfig, 40, dst_stop, "velkor_daylight_rule")

RECORD(velkor_packed_daylight, 16)
FIELD(velkor_packed_daylight, 0, enable, "32")
FIELD(velkor_packed_daylight, 4, offset, "32")
FIELD(velkor_packed_daylight, 8, start, "32")
FIELD(velkor_packed_daylight, 12, stop, "32")

RECORD(velkor_daylight_transitions, 12)
FIELD(velkor_daylight_transitions, 0, offset, "32")
FIELD(velkor_daylight_transitions, 4, start, "32")
FIELD(velkor_daylight_transitions, 8, stop, "32")

RECORD(velkor_persian_rule, 20)
FIELD(velkor_persian_rule, 0, year, "32")
FIELD(velkor_persian_rule, 4, month, "32")
FIELD(velkor_persian_rule, 8, week, "32")
FIELD(velkor_persian_rule, 12, weekday, "32")
FIELD(velkor_persian_rule, 16, hour, "32")

RECORD(SHA1Context, 104)
FIELD(SHA1Context, 0, Intermediate_Hash, "32[5]")
FIELD(SHA1Context, 20, Length_Low, "32")
FIELD(SHA1Context, 24, Length_High, "32")
FIELD(SHA1Context, 28, Message_Block_Index, "32")
FIELD(SHA1Context, 32, Message_Block, "8[64]")
FIELD(SHA1Context, 96, Computed, "32")
FIELD(SHA1Context, 100, Corrupted, "32")

// Of the firmware's other libraries.
RECORD(CfgNetConfig, 56)
FIELD(CfgNetConfig, 0, bonding, "32")
FIELD(CfgNetConfig, 4, secondBond, "32")
FIELD(CfgNetConfig, 8, mac, "8[8][6]")

RECORD(CfgMediaDevice, 4)
FIELD(CfgMediaDevice, 0, cardCount, "32")

RECORD(NetIpv6Address, 76)
FIELD(NetIpv6Address, 4, method, "32")
FIELD(NetIpv6Address, 8, address, "8[64]")
FIELD(NetIpv6Address, 72, attribute, "32")

RECORD(NetIpv6AddressList, 1220)
FIELD(NetIpv6AddressList, 0, count, "32")
FIELD(NetIpv6AddressList, 4, entries, "NetIpv6Address[16]")

RECORD(CfgDaylightSaving, 20)
FIELD(CfgDaylightSaving, 0, enable, "32")
FIELD(CfgDaylightSaving, 4, zone, "32")
FIELD(CfgDaylightSaving, 8, start, "32")
FIELD(CfgDaylightSaving, 12, stop, "32")
FIELD(CfgDaylightSaving, 16, offset, "32")

#undef NAMED
#undef RECORD
#undef FIELD
