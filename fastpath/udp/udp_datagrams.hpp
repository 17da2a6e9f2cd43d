/**
 * @file udp_datagrams.hpp
 * Datagrams received and sent in batches, with what the IP header says beside them.
 */
#ifndef OLV_FASTPATH_UDP_DATAGRAMS_HPP
#define OLV_FASTPATH_UDP_DATAGRAMS_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

#include "fastpath/core/reflector.hpp"

namespace olv_fastpath {

/** What became of a batch of replies. */
struct send_result {
    std::uint32_t sent = 0;
    std::uint32_t failed = 0;
    bool segments_refused = false; ///< The system sends no segmented datagrams from this socket.
};

/** Buffers for one batch in either direction, taken once. Belongs to one thread. */
class datagram_batch {
  public:
    static constexpr std::size_t capacity = 32;

    /** @param longest  Octets that there is room for in either direction; 44 at least. */
    explicit datagram_batch(std::size_t longest);
    datagram_batch(const datagram_batch &) = delete;
    datagram_batch &operator=(const datagram_batch &) = delete;

    /** Receive what waits in a socket. @return Messages received, 0 when there are none. Each is a datagram, or
     *  several of one sender, one behind the other, that the system has received as one. */
    std::size_t receive(int socket);
    /** Who sent the messages received, in their order. */
    [[nodiscard]] std::span<const olv_net::ip_endpoint> senders() const
    {
        return {senders_.data(), used_requests_};
    }
    /** Whether a message was longer than the buffers. */
    [[nodiscard]] bool is_truncated(std::size_t index) const;

    /** Turn to the message at @p index; the calls below are about it. @return Datagrams in it. */
    std::size_t open(std::size_t index);
    /** A datagram of the message, as far as there was room, without its arrival time. */
    [[nodiscard]] received_packet packet(std::size_t datagram);
    /** Nanoseconds since 1970 at which the system received the message; nothing: it did not tell. */
    [[nodiscard]] const std::optional<std::uint64_t> &stamp() const { return message_.stamp; }
    /** Whether the queued replies have to be sent before another one is added. */
    [[nodiscard]] bool is_full() const;
    /** Room for the reply to a datagram of the message: behind the last reply, where short ones leave as one
     * piece of memory, or in place of the request, whose padding then need not be copied. In a message of
     * several the replies of datagrams of 41 octets and more follow each other like these. */
    [[nodiscard]] std::span<std::uint8_t> reply_buffer(std::size_t datagram);
    /** Queue what was written to the reply buffer, for the sender of the message.
     *  @param may_segment  Replies to one sender that follow each other may leave as one segmented datagram:
     *                      the receiver sees no difference, the system passes it on at once. */
    void add_reply(std::size_t datagram, const verdict &made, bool may_segment = false);
    /** Send the queued replies. Waits for room in the socket, but not for long. */
    send_result send(int socket);

  private:
    static constexpr std::size_t cache_line = 64;
    /** Octets of the longest request whose reply is written behind the last one. */
    static constexpr std::size_t longest_copied = 256;

    struct alignas(cache_line) memory_line {
        std::array<std::uint8_t, cache_line> bytes;
    };
    struct control_buffer {
        alignas(cmsghdr) std::array<std::uint8_t, 256> bytes;
    };
    /** The address that a reply leaves from, where the socket has several. */
    struct reply_source {
        olv_net::ip_address address{};
        unsigned interface = 0;

        friend bool operator==(const reply_source &, const reply_source &) = default;
    };
    /** What the system tells of a message. */
    struct message_facts {
        std::size_t index = 0;
        std::size_t datagram_length = 0; ///< Of all but the last of several.
        std::uint8_t ttl = 0;
        std::uint8_t traffic_class = 0;
        std::optional<std::uint64_t> stamp;
        std::optional<reply_source> source; ///< Nothing: the system chooses.
    };
    /** Replies that leave together. */
    struct departure {
        std::size_t sender = 0;     ///< Index of the request.
        std::size_t first_part = 0; ///< Of the pieces of memory.
        std::uint32_t replies = 0;
        std::size_t length = 0; ///< Of each; the last may be shorter.
        std::size_t last_length = 0;
        std::size_t plain_control = 0; ///< Octets of control data without the segments' length.
        std::uint8_t traffic_class = 0;
        std::optional<reply_source> source;
    };
    using message_list = std::array<mmsghdr, capacity>;

    [[nodiscard]] static reply_source reply_source_of(const in_pktinfo &destination);
    [[nodiscard]] static std::optional<reply_source> reply_source_of(const in6_pktinfo &destination);
    void read_control();
    std::size_t write_control(int family, std::uint8_t traffic_class, std::span<std::uint8_t> buffer) const;
    [[nodiscard]] std::uint8_t *request(std::size_t index);
    [[nodiscard]] std::span<std::uint8_t> datagram(std::size_t number);
    [[nodiscard]] bool is_copied(std::size_t length) const;
    [[nodiscard]] bool may_join(const departure &last, const verdict &made) const;
    void join(departure &last, std::span<std::uint8_t> reply);
    void begin_departure(const verdict &made, std::span<std::uint8_t> reply);
    /** Send the replies of a departure one by one. */
    void send_singly(int socket, std::size_t which, send_result &result);
    /** The same for one that is longer than its path takes whole. */
    void send_in_fragments(int socket, std::size_t which, send_result &result);

    std::size_t buffer_length_;
    std::size_t buffer_distance_;            ///< From a request's buffer to the next one's, in lines.
    std::vector<memory_line> request_bytes_; ///< Each request has room for its reply's header before it.
    std::array<std::uint8_t, capacity * longest_copied> reply_bytes_{}; ///< One short reply behind the other.
    std::size_t reply_end_ = 0;
    std::array<sockaddr_storage, capacity> sender_names_{};
    std::array<olv_net::ip_endpoint, capacity> senders_{};
    std::array<iovec, capacity> request_parts_{};
    std::array<iovec, capacity> reply_parts_{};
    std::array<control_buffer, capacity> request_control_{};
    std::array<control_buffer, capacity> reply_control_{};
    message_list requests_{};
    std::size_t used_requests_ = capacity; ///< Whose headers the system has written to.
    message_facts message_;
    message_list replies_{};
    std::array<departure, capacity> departures_{};
    std::size_t departure_count_ = 0;
    std::size_t part_count_ = 0;
};

} // namespace olv_fastpath

#endif
