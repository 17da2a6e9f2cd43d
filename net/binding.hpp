/**
 * @file binding.hpp
 * Sockets at an address, and why there is none.
 */
#ifndef OLV_NET_BINDING_HPP
#define OLV_NET_BINDING_HPP

#include <string>

#include "net/descriptor.hpp"
#include "net/socket_address.hpp"

namespace olv_net {

/** @param type  SOCK_DGRAM or SOCK_STREAM. @return A socket at the address, of IPv6 alone if it is of IPv6;
 * none, with errno set: the system refuses. */
[[nodiscard]] descriptor bound_socket(const socket_address &address, int type);

/** Why the system refuses, and what would help: the limit of descriptors, or the right to a low port.
 *  @param error  errno. */
[[nodiscard]] std::string reason_against_socket(const socket_address &address, int error);

/** Why the system opens no more descriptors, or whatever else @p error says. */
[[nodiscard]] std::string reason_against_descriptor(int error);

} // namespace olv_net

#endif
