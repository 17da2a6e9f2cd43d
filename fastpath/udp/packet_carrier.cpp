#include "fastpath/udp/packet_carrier.hpp"

#include <algorithm>
#include <cassert>
#include <utility>

namespace olv_fastpath {

namespace {

/** Batches taken from one listener before the others get their turn. */
constexpr int batches_each_turn = 4;
/** Of so many requests that were received together, the replies may leave as segments. Of fewer it would save
 * little, and captures on this machine, which show segments as one long datagram, would be wrong of a few
 * probes. */
constexpr std::size_t fewest_in_segments = 8;

} // namespace

packet_carrier::packet_carrier(reflector &reflecting, const fast_path_options &options,
                               std::shared_ptr<responder_limits> limits)
    : reflector_(reflecting),
      admission_(reflecting.processor(), options, std::move(limits)),
      clocks_(reflecting.clock(), options),
      requests_(options.longest_datagram)
{}

packet_carrier::served packet_carrier::serve(udp_listener &from)
{
    if (!from.wait.ever_looks()) {
        return {.messages = serve_batches(from)};
    }
    const idle_wait::clock::time_point looked = idle_wait::clock::now();
    const std::size_t messages = serve_batches(from);
    if (messages > 0) {
        from.wait.note_packets(looked, idle_wait::clock::now());
    }
    return {.messages = messages, .is_busy = from.wait.may_look(looked)};
}

std::size_t packet_carrier::serve_batches(udp_listener &from)
{
    std::size_t all = 0;
    for (int turn = 0; turn < batches_each_turn; ++turn) {
        assert(replies_.is_empty()); // some are written in the requests' memory
        const std::size_t received = requests_.receive(from.socket.number());
        if (received == 0) {
            break;
        }
        all += received;
        const clock_reader::batch_time now = clocks_.read();
        reflector::batch batch{reflector_, now.replies};
        reflector_.expect(requests_.senders(), from.to.path);
        for (std::size_t index = 0; index < received; ++index) {
            take(from, requests_.message(index), now.arrivals, batch);
        }
        send(from, batch);
        if (received < receive_batch::capacity) {
            break;
        }
    }
    return all;
}

void packet_carrier::take(udp_listener &from, const received_message &message, const arrival_clock &clock,
                          reflector::batch &batch)
{
    if (!message.is_to_this_host() && !from.socket.takes_groups()) {
        return; // another socket has it as well
    }
    const std::size_t datagrams = message.datagrams();
    auto reason = admission_.reason_against(message.sender(), clock.timer());
    if (!reason) {
        reason = admission_.reason_against_address(message.is_to_this_host());
    }
    if (reason) {
        from.counters.dropped_packets[*reason] += datagrams;
        return;
    }
    if (message.is_truncated()) {
        ++from.counters.dropped_packets[drop_reason::too_long];
        return;
    }
    for (std::size_t datagram = 0; datagram < datagrams; ++datagram) {
        take_datagram(from, message, datagram, clock, batch);
    }
}

void packet_carrier::take_datagram(udp_listener &from, const received_message &message, std::size_t datagram,
                                   const arrival_clock &clock, reflector::batch &batch)
{
    if (const auto reason = admission::reason_against(from.to, clock.timer())) {
        ++from.counters.dropped_packets[*reason];
        return;
    }
    received_packet packet = message.packet(datagram);
    if (replies_.is_full()) {
        send(from, batch);
    }
    packet.arrival_ticks = clock.arrival(message.stamp());
    const bool many = std::max(requests_.senders().size(), message.datagrams()) >= fewest_in_segments;
    replies_.answer(message, datagram, many && from.segments, [&](std::span<std::uint8_t> room) {
        const verdict made = batch.reflect(packet, from.to.path, room);
        count(from, made.dropped);
        return made;
    });
}

void packet_carrier::count(udp_listener &from, const std::optional<drop_reason> &dropped)
{
    const bool is_ours = dropped && entry_of(*dropped).is_counted_by(drop_counter::listener);
    ++(is_ours ? from.counters.dropped_packets[*dropped] : from.counters.received_packets);
}

void packet_carrier::send(udp_listener &from, reflector::batch &batch)
{
    batch.count();
    const send_result result = replies_.send(from.socket.number(), reflector_.clock(), batch.tai_ahead(),
                                             reflector_.noted_departures());
    from.counters.sent_replies += result.sent;
    from.counters.failed_replies += result.failed;
    from.segments = from.segments && !result.segments_refused;
}

} // namespace olv_fastpath
