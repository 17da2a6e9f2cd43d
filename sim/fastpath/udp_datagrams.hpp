/**
 * @file udp_datagrams.hpp
 * Datagrams received and sent in batches, with what the IP header says beside them.
 */
#ifndef OLV_FASTPATH_UDP_DATAGRAMS_HPP
#define OLV_FASTPATH_UDP_DATAGRAMS_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

#include "fastpath/reflector.hpp"

namespace olv_fastpath {

/** What became of a batch of replies. */
struct send_result {
    std::uint32_t sent = 0;
    std::uint32_t failed = 0;
};

/** Buffers for one batch in either direction, taken once. Belongs to one thread. */
class datagram_batch {
  public:
    static constexpr std::size_t capacity = 32;

    /** @param longest  Octets that there is room for in either direction; 44 at least. */
    explicit datagram_batch(std::size_t longest);
    datagram_batch(const datagram_batch &) = delete;
    datagram_batch &operator=(const datagram_batch &) = delete;

    /** Receive what waits in a socket. @return Datagrams received, 0 when there are none. */
    std::size_t receive(int socket);
    /** Who sent the datagram received at @p index. */
    [[nodiscard]] ip_endpoint sender(std::size_t index) const { return endpoint_of(senders_[index]); }
    /** Whether it was longer than the buffers. */
    [[nodiscard]] bool is_truncated(std::size_t index) const;
    /** The datagram itself, as far as there was room, without its arrival time.
     *  @param sender  As sender() returned it. */
    [[nodiscard]] received_packet packet(std::size_t index, const ip_endpoint &sender) const;

    /** Room for the next reply. */
    [[nodiscard]] std::span<std::uint8_t> reply_buffer();
    /** Queue what was written to the reply buffer, for the sender of the datagram at @p index. */
    void add_reply(std::size_t index, const verdict &made);
    /** Send the queued replies. Waits for room in the socket, but not for long. */
    send_result send(int socket);

  private:
    struct control_buffer {
        alignas(cmsghdr) std::array<std::uint8_t, 256> bytes;
    };
    using message_list = std::array<mmsghdr, capacity>;

    std::size_t buffer_length_;
    std::vector<std::uint8_t> request_bytes_;
    std::vector<std::uint8_t> reply_bytes_;
    std::array<sockaddr_storage, capacity> senders_{};
    std::array<iovec, capacity> request_parts_{};
    std::array<iovec, capacity> reply_parts_{};
    std::array<control_buffer, capacity> request_control_{};
    std::array<control_buffer, capacity> reply_control_{};
    message_list requests_{};
    message_list replies_{};
    std::size_t reply_count_ = 0;
};

/** Ask for the IP header's fields and the address that a datagram was sent to; hop limit 255 for replies.
 *  @return false with errno set. */
[[nodiscard]] bool prepare_socket(int socket, int family);

} // namespace olv_fastpath

#endif
