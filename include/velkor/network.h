/**
 * @file network.h
 * The network as a recorder needs it: is this text an address, what address belongs to this name, what has this
 * interface, does somebody else hold this address, does that host answer.
 *
 * - @ref IsValidIP "Addresses": checks and conversions of IPv4, IPv6 and MAC text.
 * - @ref decimal2binary "Bit arrays": numbers as one word a bit.
 * - @ref GetIPbyDNSV2 "Names": resolution that keeps nobody waiting for long.
 * - @ref get_local_address "Interfaces and routes": address, mask, MAC, default gateway, IPv6 address, a port.
 * - @ref CheckIp "Conflicts": who else holds an address, or a MAC, by ARP.
 * - @ref CheckNetDelay "Reachability": ICMP echo.
 *
 * An interface is named by text. Of a longer name the first 15 characters count, which is what the kernel keeps of one.
 * Every function closes what it opened, whatever happens.
 */
#ifndef VELKOR_NETWORK_H
#define VELKOR_NETWORK_H

#include <netdb.h>
#include <pthread.h>
#include <stdint.h>

#include <velkor/allocation.h>
#include <velkor/api.h>

VELKOR_BEGIN_C

/** @name Addresses
 * All are reentrant. IPv4 text is four decimal numbers between dots; MAC text is groups of characters between colons. A
 * number that does not fit into 32 bits counts as the nearest that does.
 *
 * **ipstring2u32() and IPAddressU32ToChar() are not inverses of each other:** the first puts the first number into the
 * most significant byte, the second takes it from the least significant one. @{ */

/**
 * What kind of IPv4 address @p text is. Blanks and a sign before a number are accepted, and what follows the fourth
 * number is ignored unless it is a fifth one: "1.2.3.4abc" is an address, "1.2.3.4.5" is none. No range is refused for
 * what it is used for, neither 127.0.0.1 nor 255.255.255.255.
 *
 * @retval 1   unicast: the first number is 1 to 255, the others are 0 to 255
 * @retval 2   the same with a first number of 224 to 239: multicast
 * @retval 3   0.0.0.0
 * @retval -1  anything else, and NULL
 */
VELKOR_API int IsValidIP(const char *text);

/**
 * Whether the IPv6 address @p text, in any form that inet_pton() takes, may be given to this recorder. The result is
 * logged.
 *
 * @retval 0   it may
 * @retval -1  no IPv6 address, or NULL
 * @retval -2  multicast (ff00::/8)
 * @retval -3  link-local (fe80::/10)
 * @retval -4  loopback (::1)
 * @retval -5  unspecified (::)
 */
VELKOR_API int IsValidIPv6(const char *text);

/**
 * Whether the IPv6 address @p text may be this recorder's gateway. **Its codes are not those of IsValidIPv6():** a
 * gateway may be link-local. The result is logged.
 *
 * @retval 0    it may
 * @retval 255  the text is empty: no gateway
 * @retval -1   no IPv6 address, or NULL
 * @retval -2   multicast (ff00::/8)
 * @retval -3   loopback (::1)
 * @retval -4   unspecified (::)
 */
VELKOR_API int IsValidIpv6Gw(const char *text);

/**
 * The family of the address @p text, as inet_pton() reads it.
 *
 * @retval 0   IPv4
 * @retval 1   IPv6
 * @retval -1  neither
 * @retval -2  NULL
 */
VELKOR_API int detect_ip_type(const char *text);

/**
 * The value of the IPv4 text @p text, its first number in the most significant byte. Nothing is checked: the four terms
 * are added, so that a number above 255 spills into the next byte, and a missing number counts as 0. Ask IsValidIP()
 * first.
 *
 * @return the value; 0 for NULL
 */
VELKOR_API uint32_t ipstring2u32(const char *text);

/**
 * The text of a socket address on the recorder (little-endian): the first number comes from the least significant byte.
 * **0 gives an empty text.**
 *
 * @param value  the address
 * @param out    16 bytes, all of which are written; NULL: nothing happens
 * @return always 0
 */
VELKOR_API int IPAddressU32ToChar(uint32_t value, char *out);

/**
 * Rewrite an IPv4 text in place without leading zeros: "010.001.000.005" becomes "10.1.0.5". Numbers are not checked
 * for their range; a fifth piece, and what stands behind the digits of a piece, is dropped. The text never becomes
 * longer.
 *
 * @retval 1  rewritten
 * @retval 0  one of the first four pieces does not begin with a digit, a piece is longer than 15 characters and not the
 *            fourth, or @p text is NULL; the text is as it was
 */
VELKOR_API int ChangeIpAddr(char *text);

/**
 * Whether a MAC may be this recorder's. The bytes are logged, last first. **Bit 0 of byte 4 is looked at,** which is
 * the low bit of the second octet, since callers keep a MAC last byte first. The group bit, in the first octet, is not
 * looked at: a multicast address may pass.
 *
 * @retval 0   it may
 * @retval -1  bit 0 of byte 4 is set, all bytes are 0 (both are logged), or @p mac is NULL
 */
VELKOR_API int Check_Mac_Rationality(const unsigned char mac[6]);

/**
 * Reverse the order of the groups of a MAC text in place. Always six groups are written, empty ones too: "aa:bb"
 * becomes
 * "::::bb:aa". Of a group the first 16 characters count, of a text the first six groups.
 *
 * @param text  the text
 * @param size  bytes that its buffer holds; what does not fit is cut off
 * @return the length of the text that is, or without the cut would be, in the buffer
 * @retval -1  @p text is NULL or @p size is below 1
 *
 * The text is left alone when it fills the buffer (its length is returned), when it holds no colon (its length), and
 * when nothing stands before its last colon but colons (0).
 */
VELKOR_API int ReverseMAC(char *text, int size);

/**
 * Make "a" to "z" upper-case in exactly the first 17 bytes of @p text, **wherever the text ends**.
 *
 * @return the byte behind them; NULL for NULL
 */
VELKOR_API char *ConverseMAC(char *text);

/** Make "A" to "Z" lower-case. Otherwise as ConverseMAC(). */
VELKOR_API char *ConverseLowMAC(char *text);
/** @} */

/** @name Bit arrays
 * A bit array has one 32-bit word, 0 or 1, for each bit, bit 0 first. Bit k of word number w of a longer value is
 * element w * 32 + k. The number of words that a number of bits takes is that number divided by 32 and rounded up; a
 * negative number of bits counts as none. All are reentrant. @{ */

/**
 * The bits of a 64-bit value. Nothing is written beyond the highest bit that is set.
 *
 * @param low   the lower 32 bits
 * @param high  the upper 32 bits
 * @param bits  up to 64 elements
 * @return how many elements were written; 0 for a value of 0
 * @retval -2  @p bits is NULL
 */
VELKOR_API int decimal2binary(int32_t low, uint32_t high, uint32_t *bits);

/**
 * The sum of all @p count elements, each shifted left by its index, cut to 32 bits and taken as a signed number. So
 * element 31 counts minus 2147483648, and the elements from 32 on count nothing.
 *
 * @retval -1  also when @p bits is NULL
 */
VELKOR_API int64_t binary2decimal(int count, const uint32_t *bits);

/**
 * The bits of several words. The zeros above the highest bit of each word are not written: clear @p bits before.
 *
 * @param words  as many words as @p count bits take
 * @param bits   32 elements for each of them
 * @param count  number of bits
 * @return the number of words converted
 * @retval -2  @p bits or @p words is NULL
 * @retval -3  more than 16 words
 */
VELKOR_API int decimal2binaryEx(const uint32_t words[16], uint32_t *bits, int count);

/**
 * **A transposition, not the inverse of decimal2binaryEx():** bit w of each of the first 32 elements is added to word
 * w, from element 0 at bit 0 up.
 *
 * @param count  number of bits: says how many words there are
 * @param bits   32 elements
 * @param words  added to: clear them before
 * @retval 0   done
 * @retval -1  more than 5 words, or @p bits or @p words is NULL
 */
VELKOR_API int binary2decimalEx(int count, const uint32_t *bits, uint32_t *words);

/**
 * The inverse of decimal2binaryEx(), for any number of words.
 *
 * @param count  number of bits
 * @param bits   32 elements for each word that they take; of each the lowest bit counts
 * @param words  added to: clear them before
 * @retval 0   done
 * @retval -1  @p bits or @p words is NULL
 */
VELKOR_API int Netbinary2decimalEx(int count, const uint32_t *bits, uint32_t *words);
/** @} */

/** @name Names
 * The system's resolver can take minutes. So it runs on a thread of the pool (CreateThreadInPool(), concurrency.h), and
 * the caller looks once a second whether it has an answer, up to a time-out. A lookup that was given up frees itself
 * when the resolver returns at last.
 *
 * All are thread-safe, and log how they fare. @{ */

/** Size of a name in a lookup, its terminator included. Longer names are cut. */
#define VELKOR_LOOKUP_NAME_SIZE 129

/** What a lookup's status can be. */
enum velkor_lookup_status {
    VELKOR_LOOKUP_FAILED = -1,
    VELKOR_LOOKUP_RESOLVED = 0,
    VELKOR_LOOKUP_PENDING = 255 /**< the resolver has not answered */
};

/** One lookup, shared by the worker that resolves and the caller that waits. */
typedef struct velkor_lookup velkor_lookup;

#ifdef AI_PASSIVE /* strict ISO C hides what a lookup is made of; a pointer to one can still be handed on */
struct velkor_lookup {
    pthread_t thread;                   /**< what CreateThreadInPool() said of the worker */
    char name[VELKOR_LOOKUP_NAME_SIZE]; /**< what is looked up */
    struct addrinfo hints;              /**< any family, SOCK_STREAM */
    struct addrinfo *result;            /**< the addresses; NULL until then. Only to be read after a final status */
    int32_t status;                     /**< ::velkor_lookup_status; written after the result, read as an atomic */
    int32_t finished;                   /**< 1 once one of the two sides has let go */
    pthread_mutex_t lock;               /**< guards the member above */
};

/** Let go of a lookup, as everyone must who got one from GetIpByNameAsync(): who does so last frees it. */
static inline void velkor_lookup_let_go(velkor_lookup *lookup) {
    int is_last;
    pthread_mutex_lock(&lookup->lock);
    is_last = lookup->finished == 1;
    lookup->finished = 1;
    if (is_last && lookup->result) {
        freeaddrinfo(lookup->result);
    }
    pthread_mutex_unlock(&lookup->lock);
    if (is_last) {
        dvrFree(lookup);
    }
}
#endif

/**
 * Resolve a name on another thread, and wait for it. Looks for an answer every 0.98 seconds, the first time after that
 * long. Gives up one to three seconds after the time-out: the uptime of a look has whole seconds, must be beyond the
 * time-out, and is read before the pause.
 *
 * @param host     the name; of a longer one the first 128 characters count
 * @param timeout  seconds, by the firmware's uptime
 * @param out      where the lookup goes; it is there whenever this is not NULL afterwards, **also after a failure**,
 * and must be let go of by velkor_lookup_let_go()
 * @retval 0   resolved
 * @retval -1  not resolved in time, or not at all; no thread (a lookup is stored); @p host is NULL, @p timeout is not
 *             positive, or there is no memory (NULL is stored); @p out is NULL
 */
VELKOR_API int GetIpByNameAsync(const char *host, int timeout, velkor_lookup **out);

/** The worker's side of a lookup: resolves, stores the status, lets go. @param record  a velkor_lookup. @return NULL */
VELKOR_API void *_Thr_GetIpTask(void *record);

/**
 * Resolve a name with a time-out of 6 seconds: a resolver that hangs costs up to nine pauses, which is 8.9 seconds. The
 * first IPv4 address is preferred to the first IPv6 address wherever they stand in the resolver's answer.
 *
 * @param host     the name
 * @param address  gets the text: INET6_ADDRSTRLEN (46) bytes. Emptied first, so empty after a failure
 * @param family   gets 0 for IPv4, 1 for IPv6; unchanged after a failure. May be NULL
 * @retval 0   found
 * @retval -1  not found; @p host or @p address is NULL, or @p host is empty (@p address is unchanged)
 */
VELKOR_API int GetIPbyDNSV2(const char *host, char *address, int *family);
/** @} */

/** @name Interfaces and routes
 * Each call asks the kernel afresh and keeps nothing. All but GetRandomPort() are reentrant. @{ */

/**
 * The IPv4 address and the mask of an interface.
 *
 * @param address    16 bytes for the address; NULL: it is not asked for
 * @param mask       16 bytes for the mask; NULL: it is not asked for
 * @param interface  the interface's name
 * @retval 0   both that were asked for are there; also when none was
 * @retval -1  the address could not be had (nothing is written), or the mask (the address is written)
 */
VELKOR_API int get_local_address(char *address, char *mask, const char *interface);

/**
 * The hardware address of an interface, as **six raw bytes** and a terminator: a byte of 0 ends it for string
 * functions.
 *
 * @param out        7 bytes
 * @param interface  the interface's name
 * @retval 0   written
 * @retval -1  there is no such interface, or @p out is NULL; nothing is written
 */
VELKOR_API int GetNetInterFaceMac(char *out, const char *interface);

/**
 * The IPv4 default gateway behind an interface, from the kernel's main routing table. **Loosely:** a destination whose
 * text contains "0.0.0.0" counts as default, so 10.0.0.0/8 does, too; and of several routes the last in the kernel's
 * order wins.
 *
 * @param gateway    16 bytes. Written only when there is such a route: clear it before. A route without a gateway
 * writes "0.0.0.0"
 * @param interface  the interface's name
 * @retval 0   the routes were read, whether or not there was one
 * @retval -1  they could not be read, or take more than 16384 bytes; an argument is NULL. What the system said is on
 *             standard error
 */
VELKOR_API int get_gateway(char *gateway, const char *interface);

/**
 * The IPv6 address that a device uses: of those of its current configuration method, the one whose text comes first.
 *
 * @param address    64 bytes for the text; may be NULL
 * @param attribute  gets the address's attribute; may be NULL
 * @param device     what the firmware's network device library knows the device by
 * @retval 0   found
 * @retval -1  there is none, or @p device is 0; nothing is written
 */
VELKOR_API int NetDevice_GetIpv6AddressUsed(char *address, uint32_t *attribute, uintptr_t device);

/**
 * A random port number, seeded by process id and second: two calls in one second answer the same. **Every call seeds
 * rand() of the whole process.**
 *
 * @param lower  a number below it has it added, modulo 65536: with a large @p lower the port may be below it
 */
VELKOR_API uint16_t GetRandomPort(uint16_t lower);

/** 257 bytes that the firmware's programs share by this name. The library neither reads nor writes them. */
extern VELKOR_API char g_cIpcConnectCheck[257];
/** @} */

/** @name Conflicts
 * ARP on a packet socket, for which a process needs the capability CAP_NET_RAW. @{ */

/** Most answers that CheckIp() can record. */
#define VELKOR_CHECK_IP_SLOTS 8
/** Bytes of one recorded answer, its terminator included. */
#define VELKOR_CHECK_IP_SLOT_SIZE 32

/**
 * Ask the network once who holds an IPv4 address, as duplicate address detection does (RFC 5227: sender address
 * 0.0.0.0), and listen for answers. Answers from one MAC count once. The recorder's own cards do not count.
 *
 * Listening ends as soon as @p slots stations answered, or when the clock's seconds have advanced by @p timeout: so it
 * lasts up to a second less.
 *
 * Thread-safe; calls in one process run one after the other.
 *
 * @param number   number of the card, from 0: 0 is "eth0". With bonding (firmware.h) "bond0" or "bond1"
 * @param address  the address to ask for, or a name
 * @param buffer   @p slots texts of 32 bytes: the MAC of each station that answered ("2:fc:0:0:0:1", no leading zeros).
 *                 One text more than answers may be written, by an own card. NULL: nothing is recorded
 * @param timeout  seconds; below 1 counts as 1
 * @param slots    after how many answers to stop, at most 8. Below 1 the listening lasts one look
 * @retval 0   nobody answered
 * @retval 1   one station answered
 * @retval 2   more than one, or one although the question could not be sent
 * @retval -1  @p address is NULL or unknown, @p slots is above 8, the interface is missing, down, a loopback or without
 *             ARP, or the process may not open a packet socket
 */
VELKOR_API int CheckIp(int number, const char *address, char *buffer, int timeout, int slots);

/**
 * The same for one answer, one second and no record, without waiting for a CheckIp() that runs.
 *
 * @param number     number of the card, from 0
 * @param arguments  of which the second is the address
 * @return as CheckIp(); -1 when @p arguments or the address is NULL
 */
VELKOR_API int arping_main(int number, char *const arguments[]);

/**
 * Whether another station uses this interface's MAC: one whose ARP packets carry the MAC and an IPv4 address that is
 * neither 0.0.0.0 nor the interface's. Sends the question of CheckIp() to bring such packets about.
 *
 * IfIRecvArp() must have switched the listening on. Not to be called by two threads at a time for one buffer.
 *
 * @param address    the address to ask for, or a name. **While the packets seen are about this very address, nothing
 *                   counts as a conflict**
 * @param interface  the interface's name
 * @param found      16 bytes for the other station's address. Not cleared: clear it before. Written also when the
 * result is 0, by harmless packets. NULL: the address is of no interest
 * @param timeout    seconds, as for CheckIp()
 * @retval 1   another station was seen
 * @retval 0   none
 * @retval -1  as CheckIp(); @p interface is NULL
 * @retval -2  the listening is off; the question was sent
 */
VELKOR_API int CheckMac(const char *address, const char *interface, char *found, int timeout);

/** Switch the listening of CheckMac() on (@p on is not 0) or off; it is off at first. Thread-safe. */
VELKOR_API void IfIRecvArp(int on);
/** @} */

/** @name Reachability
 * ICMP echo on a raw socket, for which a process needs the capability CAP_NET_RAW. @{ */

/**
 * Send echo requests to a host and wait for each answer. Reentrant; but calls at the same moment for one host may take
 * each other's answers.
 *
 * **A call looks for packets four times at most, for all requests together:** for one second the first time, two the
 * second, and so on. So a @p count above 4 never succeeds, and each packet that is no answer costs one look. The first
 * look without a packet ends the call.
 *
 * @param card     number of the card, **from 1**: 1 is "eth0". With bonding (firmware.h) "bond0" or "bond1"
 * @param address  IPv4 text in its shortest form, as answers are told apart by it
 * @param delay    the milliseconds **from the first request** to each answer are added to it; may be NULL
 * @param replies  the number of answers is added to it; may be NULL
 * @param count    requests, one after the other
 * @param timeout  seconds that sending may take; 0 means any time
 * @retval 0   every request was answered; also when @p count is not positive
 * @retval -1  one was not, or could not be sent; @p address is NULL; there is no such interface; the process may not
 * open a raw socket. What was added before stays
 */
VELKOR_API int CheckNetDelay(int card, const char *address, uint32_t *delay, uint32_t *replies, int count,
                             uint32_t timeout);

/**
 * The Internet checksum (RFC 1071) of a buffer. Reentrant.
 *
 * @param data    the bytes; NULL counts as none
 * @param length  their number
 * @return the checksum, to be stored as it is
 */
VELKOR_API uint16_t cal_chksum(const uint16_t *data, int length);
/** @} */

VELKOR_END_C

#endif
