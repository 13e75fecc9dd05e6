/**
 * @file system_info.h
 * What the system is and does: the links of its Ethernet ports.
 */
#ifndef VELKOR_SYSTEM_INFO_H
#define VELKOR_SYSTEM_INFO_H

#include <velkor/api.h>

VELKOR_BEGIN_C

/** @name Ethernet links
 * Whether there is a link: asked of the driver first, then of the transceiver's status register. Thread-safe but for
 * the closing described at detect_mii(). @{ */

/** What the detectors answer. */
enum velkor_link {
    VELKOR_LINK_UP = 0,
    VELKOR_LINK_DOWN = 1,
    VELKOR_LINK_UNKNOWN = 2 /**< cannot be told in this way */
};

/**
 * The link of port ethN.
 *
 * **When the transceiver cannot be asked either, the socket is closed twice.** A descriptor of the same number that
 * another thread opens between the two is closed instead.
 *
 * @param number  N, at most 8; a negative one makes a name such as "eth-1"
 * @return ::velkor_link
 * @retval -1  @p number is above 8, or there is no socket
 */
VELKOR_API int DetectEth0(int number);

/**
 * The link as the driver knows it (ETHTOOL_GLINK).
 *
 * @param socket     any socket; stays open
 * @param interface  the interface's name, of which the first 15 characters count
 * @return ::velkor_link
 */
VELKOR_API int detect_ethtool(int socket, const char *interface);

/**
 * The link as the transceiver's basic status register has it (IEEE 802.3, 22.2.4.2): up when it reports a link and
 * neither jabber nor a remote fault.
 *
 * **Closes the socket when the driver does not tell the transceiver's address.** Every failure is told on standard
 * error.
 *
 * @param socket     any socket
 * @param interface  the interface's name, of which the first 16 characters count
 * @return ::velkor_link
 */
VELKOR_API int detect_mii(int socket, const char *interface);

/**
 * Send the first driver-private request to "eth0"; what it does is the driver's business.
 *
 * @retval 0   the driver took it
 * @retval -1  it did not, or there is no socket
 */
VELKOR_API int DetectEth0Ex(void);
/** @} */

VELKOR_END_C

#endif
