/**
 * @file listening_socket.hpp
 * UDP sockets at an address, one or several, before anyone serves them.
 */
#ifndef OLV_FASTPATH_LISTENING_SOCKET_HPP
#define OLV_FASTPATH_LISTENING_SOCKET_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
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
     * So many sockets at one address, which nobody else can have: an address that any other socket is bound to
     * is refused. The system hands all packets of a sender to one of them, as long as all of them are open.
     * Until let_in() is called for it, a socket gets none.
     * @param count  1 or more; one alone is as the constructor makes it.
     * @throw std::runtime_error  As the constructor does. Nothing is left open.
     */
    [[nodiscard]] static std::vector<listening_socket> open_together(const olv_net::socket_address &address,
                                                                     std::size_t count);

    /** Have the system hand packets to a socket of several; nothing for one alone.
     *  @throw std::runtime_error  As the constructor does. */
    void let_in();

    [[nodiscard]] int number() const { return socket_.number(); }
    [[nodiscard]] bool is_open() const { return socket_.is_open(); }
    /** The address with the port that the socket really has. */
    [[nodiscard]] const olv_net::socket_address &local() const { return local_; }
    [[nodiscard]] const socket_abilities &abilities() const { return abilities_; }
    /** Packets that the system dropped here since it was let in, as there was no room; 0 where it does not
     * tell. Of several sockets at all addresses, all but the first one drop the copies of what is sent to a
     * group, too. */
    [[nodiscard]] std::uint32_t dropped() const;

  private:
    /** Whom it has the address with. */
    enum class joining : std::uint8_t { nobody, later_ones, earlier_ones };

    listening_socket(const olv_net::socket_address &address, joining others);
    // false with errno set:
    [[nodiscard]] bool prepare_for(joining others) const;
    [[nodiscard]] bool keep(kept_packets which) const;

    olv_net::descriptor socket_;
    olv_net::socket_address local_;
    socket_abilities abilities_;
    std::optional<kept_packets> kept_; ///< By a socket of several, once they are let in.
    std::uint32_t dropped_before_ = 0; ///< They are let in.
};

} // namespace olv_fastpath

#endif
