/**
 * @file listening_socket.hpp
 * UDP sockets at an address, one or several, before anyone serves them.
 */
#ifndef OLV_FASTPATH_LISTENING_SOCKET_HPP
#define OLV_FASTPATH_LISTENING_SOCKET_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fastpath/udp/socket_options.hpp"
#include "net/descriptor.hpp"
#include "net/socket_address.hpp"

namespace olv_fastpath {

/** A socket that is bound to its address. Packets wait in it until they are taken. */
class listening_socket {
  public:
    /** @throw std::runtime_error  One line: the address, and why it cannot be listened on. */
    explicit listening_socket(const olv_net::socket_address &address);

    /**
     * Open several sockets at one address. The system hands all packets of a sender to the same one, as long as
     * all are open; a socket gets no packets before let_in(). An address that somebody else has is refused.
     * Later, a program of the same user could join those that ask for sharing; one socket alone never does.
     * @param count  1 or more; one alone is as the constructor makes it.
     * @throw std::runtime_error  As the constructor does. Nothing is left open.
     */
    [[nodiscard]] static std::vector<listening_socket> open_together(const olv_net::socket_address &address,
                                                                     std::size_t count);

    /** Let packets in to one of several sockets. One alone gets them already.
     *  @throw std::runtime_error  As the constructor does. */
    void let_in();

    [[nodiscard]] int number() const { return socket_.number(); }
    [[nodiscard]] bool is_open() const { return socket_.is_open(); }
    /** The address with the port that the socket really has. */
    [[nodiscard]] const olv_net::socket_address &local() const { return local_; }
    [[nodiscard]] const socket_abilities &abilities() const { return abilities_; }
    /** Whether what was sent to a group, or to all hosts, is for this one of several sockets: each may get a
     *  copy. */
    [[nodiscard]] bool takes_groups() const { return place_ != place::later; }
    /** Packets that found no room here since let_in(); 0 where the system does not tell. */
    [[nodiscard]] std::uint32_t dropped() const;

  private:
    /** Among the sockets at its address. */
    enum class place : std::uint8_t { alone, first, later };

    listening_socket(const olv_net::socket_address &address, place among);
    // False with errno set:
    [[nodiscard]] bool prepare_for_place() const;

    olv_net::descriptor socket_;
    olv_net::socket_address local_;
    socket_abilities abilities_;
    place place_;
    std::uint32_t dropped_before_ = 0; ///< By let_in().
};

} // namespace olv_fastpath

#endif
