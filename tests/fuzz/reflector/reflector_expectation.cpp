#include "reflector_expectation.hpp"

#include <algorithm>

namespace olv_fuzz {
namespace {

using olv_fastpath::drop_reason;

constexpr std::uint32_t id_mask = 0xFFFFFF;
constexpr std::size_t stamp_length = 44;

void store(std::vector<std::uint8_t> &bytes, std::size_t at, std::uint64_t value, std::size_t count)
{
    for (std::size_t index = 0; index < count; ++index) {
        bytes.at(at + index) = static_cast<std::uint8_t>(value >> (8 * (count - 1 - index)));
    }
}

} // namespace

void reflector_expectation::create(std::uint32_t id, const responder &created)
{
    responders_[id] = created;
    std::erase_if(sessions_, [&](const auto &entry) { return entry.first.first == id; });
}

void reflector_expectation::remove(std::uint32_t id)
{
    responders_.erase(id);
}

reflector_expectation::session_key reflector_expectation::key_of(const olv_fastpath::received_packet &packet,
                                                                 const olv_fastpath::packet_path &path)
{
    return {path.responder_id & id_mask, packet.sender};
}

bool reflector_expectation::is_alive(const session &one, std::uint64_t now) const
{
    return now - one.last_arrival < options_.refwait_seconds * frequency_;
}

std::size_t reflector_expectation::alive_sessions(std::uint32_t id, std::uint64_t now) const
{
    return static_cast<std::size_t>(std::count_if(sessions_.begin(), sessions_.end(), [&](const auto &entry) {
        return entry.first.first == id && is_alive(entry.second, now);
    }));
}

reflector_expectation::decision reflector_expectation::decide(const olv_fastpath::received_packet &packet,
                                                              const olv_fastpath::packet_path &path,
                                                              std::size_t room) const
{
    const std::uint32_t id = path.responder_id & id_mask;
    if (!responders_.contains(id)) {
        return {.dropped = drop_reason::no_responder};
    }
    if (!has_default_bind_ && !binds_.contains(path.bind_key & id_mask)) {
        return {.dropped = drop_reason::no_bind};
    }
    const std::size_t shortest = std::max(constants_.shortest_request, options_.minimum_request);
    if (packet.payload.size() < shortest || room < reply_length(packet.payload.size())) {
        return {.dropped = drop_reason::length_check};
    }
    const auto known = sessions_.find(key_of(packet, path));
    const bool goes_on = known != sessions_.end() && is_alive(known->second, packet.arrival_ticks);
    if (!goes_on && alive_sessions(id, packet.arrival_ticks) >= constants_.maximum_sessions) {
        return {.dropped = drop_reason::max_sessions};
    }
    return {.dropped = std::nullopt,
            .sequence_number = goes_on ? known->second.next : constants_.first_sequence_number,
            .needs_new_session = !goes_on};
}

void reflector_expectation::note_reflected(const olv_fastpath::received_packet &packet,
                                           const olv_fastpath::packet_path &path)
{
    session &entry = sessions_[key_of(packet, path)];
    if (entry.next == 0 || !is_alive(entry, packet.arrival_ticks)) {
        entry.next = constants_.first_sequence_number;
        ++sessions_ever_;
    }
    ++entry.next;
    entry.last_arrival = packet.arrival_ticks;
}

std::size_t reflector_expectation::reply_length(std::size_t request_length) const
{
    return std::max(request_length, constants_.shortest_reply);
}

std::uint64_t reflector_expectation::instant(std::uint32_t id, std::uint64_t ticks) const
{
    const responder &from = responders_.at(id & id_mask);
    const std::uint64_t elapsed = ticks <= from.created_ticks ? 0 : ticks - from.created_ticks;
    const std::uint64_t seconds = elapsed / frequency_;
    const std::uint64_t fraction = ((elapsed - seconds * frequency_) << 32) / frequency_;
    return from.created_units + (seconds << 32) + fraction + (std::uint64_t{constants_.seconds_offset} << 32);
}

std::vector<std::uint8_t> reflector_expectation::reply(const olv_fastpath::received_packet &packet,
                                                       const olv_fastpath::packet_path &path,
                                                       std::uint32_t sequence_number,
                                                       std::span<const std::uint8_t> found) const
{
    const std::span<const std::uint8_t> request = packet.payload;
    std::vector<std::uint8_t> bytes(reply_length(request.size()));
    const bool is_stamp = request.size() == stamp_length;
    store(bytes, 0, sequence_number, 4);
    if (is_stamp && options_.mode == olv_fastpath::stamp_mode::stateless) {
        std::copy_n(request.begin(), 4, bytes.begin());
    }
    std::copy_n(found.begin() + 4, 10, bytes.begin() + 4);
    store(bytes, 16, instant(path.responder_id, packet.arrival_ticks), 8);
    std::copy_n(request.begin(), 14, bytes.begin() + 24);
    bytes.at(40) = packet.ttl;
    if (!is_stamp && bytes.size() > 41) {
        std::copy_n(request.begin() + 14, bytes.size() - 41, bytes.begin() + 41);
    }
    return bytes;
}

} // namespace olv_fuzz
