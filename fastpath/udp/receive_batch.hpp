/**
 * @file receive_batch.hpp
 * Datagrams received together, with what the system tells of them.
 */
#ifndef OLV_FASTPATH_RECEIVE_BATCH_HPP
#define OLV_FASTPATH_RECEIVE_BATCH_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <sys/socket.h>

#include "fastpath/core/packet.hpp"
#include "fastpath/udp/control_data.hpp"
#include "net/ip_address.hpp"

namespace olv_fastpath {

/** A message of a receive_batch: a datagram, or several of one sender, one behind the other, that the system
 * has received as one. A view: good until the batch receives again. */
class received_message {
  public:
    [[nodiscard]] const olv_net::ip_endpoint &sender() const { return *sender_; }
    /** The sender as the system names it. */
    [[nodiscard]] std::span<const std::uint8_t> sender_name() const { return sender_name_; }
    /** The address that replies leave from; nothing: the system chooses. */
    [[nodiscard]] const std::optional<reply_source> &source() const { return source_; }
    /** Whether it was sent to an address of this host, not to a group or to all hosts. */
    [[nodiscard]] bool is_to_this_host() const { return to_this_host_; }
    /** Nanoseconds since 1970 at which the system received it; nothing: it did not tell. */
    [[nodiscard]] const std::optional<std::uint64_t> &stamp() const { return stamp_; }
    /** Whether it was longer than there was room for. */
    [[nodiscard]] bool is_truncated() const { return is_truncated_; }

    [[nodiscard]] std::size_t datagrams() const
    {
        return octets_.size() <= each_ ? 1 : (octets_.size() + each_ - 1) / each_;
    }
    /** A datagram of the message, as far as there was room. A reply may be written in its place, beginning 27
     *  octets before it: there is room before a message, or a datagram that has been dealt with. */
    [[nodiscard]] std::span<std::uint8_t> datagram(std::size_t number) const
    {
        const std::span<std::uint8_t> rest = octets_.subspan(number * each_);
        return rest.size() <= each_ ? rest : rest.first(each_);
    }
    /** The same as a packet, without its arrival time. */
    [[nodiscard]] received_packet packet(std::size_t number) const
    {
        received_packet packet;
        packet.payload = datagram(number);
        packet.ttl = ttl_;
        packet.traffic_class = traffic_class_;
        packet.sender = *sender_;
        return packet;
    }

  private:
    friend class receive_batch;

    void take(const control_record &record);

    std::span<std::uint8_t> octets_;
    std::size_t each_ = 0; ///< Octets of all datagrams but the last.
    const olv_net::ip_endpoint *sender_ = nullptr;
    std::span<const std::uint8_t> sender_name_;
    std::optional<reply_source> source_;
    std::optional<std::uint64_t> stamp_;
    std::uint8_t ttl_ = 0;
    std::uint8_t traffic_class_ = 0;
    bool to_this_host_ = true;
    bool is_truncated_ = false;
};

/** Room for the messages of one call, taken once. Belongs to one thread. */
class receive_batch {
  public:
    static constexpr std::size_t capacity = 32;

    /** @param longest  Octets that there is room for in a message; 44 at least. */
    explicit receive_batch(std::size_t longest);
    receive_batch(const receive_batch &) = delete;
    receive_batch &operator=(const receive_batch &) = delete;

    /** Receive what waits in a socket, in place of what was received before. @return Messages, 0 when there are
     *  none. */
    std::size_t receive(int socket);
    /** Who sent them, in their order. */
    [[nodiscard]] std::span<const olv_net::ip_endpoint> senders() const { return {senders_.data(), received_}; }
    [[nodiscard]] received_message message(std::size_t index);

  private:
    static constexpr std::size_t cache_line = 64;
    struct alignas(cache_line) memory_line {
        std::array<std::uint8_t, cache_line> bytes;
    };

    [[nodiscard]] std::uint8_t *octets_of(std::size_t index);

    std::size_t longest_;
    std::size_t distance_;           ///< From a message to the next one, in lines.
    std::vector<memory_line> lines_; ///< Each message has a line of its own before it.
    std::array<sockaddr_storage, capacity> names_{};
    std::array<olv_net::ip_endpoint, capacity> senders_{};
    std::array<iovec, capacity> parts_{};
    std::array<control_buffer, capacity> control_{};
    std::array<mmsghdr, capacity> messages_{};
    std::size_t received_ = capacity; ///< Whose headers the system has written to.
};

} // namespace olv_fastpath

#endif
