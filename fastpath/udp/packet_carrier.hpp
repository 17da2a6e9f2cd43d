/**
 * @file packet_carrier.hpp
 * Takes packets from sockets to a reflector, and its replies back.
 */
#ifndef OLV_FASTPATH_PACKET_CARRIER_HPP
#define OLV_FASTPATH_PACKET_CARRIER_HPP

#include <cstddef>
#include <memory>
#include <optional>

#include "fastpath/core/admission.hpp"
#include "fastpath/core/options.hpp"
#include "fastpath/core/reflector.hpp"
#include "fastpath/core/statistics.hpp"
#include "fastpath/udp/arrival_clock.hpp"
#include "fastpath/udp/clock_reader.hpp"
#include "fastpath/udp/idle_wait.hpp"
#include "fastpath/udp/listening_socket.hpp"
#include "fastpath/udp/receive_batch.hpp"
#include "fastpath/udp/reply_batch.hpp"

namespace olv_fastpath {

/** A socket that is served. One that was removed is not open, and keeps its counters. */
struct udp_listener {
    listening_socket socket;
    limited_path to;
    listener_statistics counters; ///< Without what only the socket knows.
    bool segments = false;        ///< Replies may leave in segments.
    idle_wait wait;

    [[nodiscard]] bool is_open() const { return socket.is_open(); }
    [[nodiscard]] listener_statistics statistics() const
    {
        listener_statistics all = counters;
        all.dropped_packets[drop_reason::socket_full] += is_open() ? socket.dropped() : 0;
        return all;
    }
};

/**
 * A reply leaves by the socket, and with the address, that the request was sent to; its TTL or hop limit is
 * 255, its DSCP the reflector's. Packets are received in batches, and counted by the module before the replies
 * of the batch leave. The arrival time of a packet is when the system received it, in ticks of the processor's
 * timer, so that packets that waited in the socket together have their own; where the system does not tell, or
 * the timer has been set by hand, it is the timer read right after the call that received the batch.
 *
 * Belongs to one thread at a time; the reflector has to outlive it.
 */
class packet_carrier {
  public:
    /** @param limits  That it shares with others; NULL: its own, by the options. */
    packet_carrier(reflector &reflecting, const fast_path_options &options,
                   std::shared_ptr<responder_limits> limits);

    /** Which packets get to the reflector. */
    [[nodiscard]] admission &admitting() { return admission_; }

    struct served {
        std::size_t messages = 0;
        bool is_busy = false; ///< Look at the listener again soon.
    };
    /** Serve a listener that is open: until nothing waits there, but not for long, so that a flood at one holds
     *  up neither the others nor calls of the control side. */
    served serve(udp_listener &from);

  private:
    std::size_t serve_batches(udp_listener &from);
    /** Hand the datagrams of a message to the reflector, or drop them. */
    void take(udp_listener &from, const received_message &message, const arrival_clock &clock,
              reflector::batch &batch);
    void take_datagram(udp_listener &from, const received_message &message, std::size_t datagram,
                       const arrival_clock &clock, reflector::batch &batch);
    /** Count what the reflector has been given, and may not have taken. */
    static void count(udp_listener &from, const std::optional<drop_reason> &dropped);
    /** Send what is queued, once it is counted. */
    void send(udp_listener &from, reflector::batch &batch);

    reflector &reflector_;
    admission admission_;
    clock_reader clocks_;
    receive_batch requests_;
    reply_batch replies_;
};

} // namespace olv_fastpath

#endif
