/**
 * @file reply_batch.hpp
 * Replies that leave together.
 */
#ifndef OLV_FASTPATH_REPLY_BATCH_HPP
#define OLV_FASTPATH_REPLY_BATCH_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include <sys/socket.h>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/reply.hpp"
#include "fastpath/udp/control_data.hpp"
#include "fastpath/udp/receive_batch.hpp"

namespace olv_fastpath {

/** What became of a batch of replies. */
struct send_result {
    std::uint32_t sent = 0;
    std::uint32_t failed = 0;
    bool segments_refused = false; ///< The system sends no segmented datagrams from this socket.
};

/**
 * Room for replies to the messages of a receive_batch, taken once. Belongs to one thread.
 *
 * Short replies are written one behind the other, so that they leave as one piece of memory; long ones in place
 * of their request, whose padding then need not be copied. What is queued has to be sent before the
 * receive_batch receives again.
 */
class reply_batch {
  public:
    static constexpr std::size_t capacity = receive_batch::capacity;

    reply_batch() = default;
    reply_batch(const reply_batch &) = delete;
    reply_batch &operator=(const reply_batch &) = delete;

    /** Whether there is no room for another reply before these are sent. */
    [[nodiscard]] bool is_full() const
    {
        return part_count_ == capacity || written_ + longest_copied > memory_.size() || departing_.is_full();
    }
    [[nodiscard]] bool is_empty() const { return departure_count_ == 0; }

    /**
     * Have a reply to a datagram of a message written, and queue it. There is room for the longer of 41 octets
     * and the datagram.
     * @param may_segment  Replies to one sender that follow each other may leave as one segmented datagram: the
     *                     receiver sees no difference, the system passes it on at once.
     * @param write        Is given the room, a std::span<std::uint8_t>, and returns a verdict.
     */
    template <typename Write>
    void answer(const received_message &to, std::size_t datagram, bool may_segment, const Write &write)
    {
        const verdict made = write(room_for(to, datagram));
        if (!made.dropped) {
            add(to, made.reply, may_segment);
        }
    }

    /** Write the time of departure into the replies and send them. Waits for room in the socket, but not for
     *  long. There are none then. The rest is as of departing_replies::stamp(). */
    send_result send(int socket, const processor_clock &clock, std::int32_t tai_ahead = 0,
                     sent_stamps *sent = nullptr);

  private:
    /** Octets of the longest request whose reply is written behind the last one. */
    static constexpr std::size_t longest_copied = 256;

    /** Replies that leave as one datagram. */
    struct departure {
        sockaddr_storage name{};
        socklen_t name_length = 0;
        std::optional<reply_source> source;
        std::uint8_t traffic_class = 0;
        std::size_t plain_control = 0; ///< Octets of control data without the segments' length.
        std::size_t first_part = 0;    ///< Of the pieces of memory.
        std::uint32_t replies = 0;
        std::size_t length = 0; ///< Of each; the last may be shorter.
        std::size_t last_length = 0;
    };

    [[nodiscard]] std::span<std::uint8_t> room_for(const received_message &to, std::size_t datagram);
    void add(const received_message &to, const unstamped_reply &reply, bool may_segment);
    [[nodiscard]] bool may_join(const departure &last, const received_message &to,
                                const unstamped_reply &reply) const;
    void join(departure &last, std::span<std::uint8_t> reply);
    void begin_departure(const received_message &to, const unstamped_reply &reply);
    void clear();
    // Sending one departure, one by one:
    void send_singly(int socket, std::size_t which, send_result &result);
    /** The same for one that is longer than its path takes whole. */
    void send_in_fragments(int socket, std::size_t which, send_result &result);

    std::array<std::uint8_t, capacity * longest_copied> memory_{}; ///< One short reply behind the other.
    std::size_t written_ = 0;                                      ///< Octets of it.
    departing_replies departing_;
    std::array<iovec, capacity> parts_{};
    std::size_t part_count_ = 0;
    std::array<control_buffer, capacity> control_{};
    std::array<departure, capacity> departures_{};
    std::array<mmsghdr, capacity> messages_{}; ///< Of the departures.
    std::size_t departure_count_ = 0;
};

} // namespace olv_fastpath

#endif
