#include "fastpath/core/session_keeper.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "fastpath/core/state_entry.hpp"

namespace olv_fastpath {

namespace {

/** Slots looked at for sessions of responders that are gone, with each session that begins. */
constexpr std::uint32_t slots_each_session = 4;

/** Responders whose sessions are looked at for one that may give way to a session of another. */
constexpr int responders_each_packet = 16;

/** How often other reflectors are asked for a place. */
constexpr std::uint64_t requests_each_second = 1000;

/** Senders' addresses that are told apart where there are no sessions; a power of two. */
constexpr std::size_t address_hashes = 4096;

/** Tables of so few sessions stay in the processor's caches. */
constexpr std::uint32_t sessions_in_cache = 4096;

/** Senders whose sessions are fetched at the same time. */
constexpr std::size_t most_expected = 64;

/** As a difference of readings; 1 at least. */
std::int64_t ticks_of(std::uint64_t seconds, std::uint64_t ticks_per_second)
{
    const std::uint64_t most = INT64_MAX / ticks_per_second;
    return static_cast<std::int64_t>(
        std::max<std::uint64_t>(seconds > most ? INT64_MAX : seconds * ticks_per_second, 1));
}

std::uint32_t most_sessions_of(olv_sim::state_words responder)
{
    return responder[responder_word::maximum_sessions].load(std::memory_order_relaxed); // host order as written
}

} // namespace

session_keeper::session_keeper(const olv_sim::processor &processor, const fast_path_options &options,
                               std::shared_ptr<reflector_peers> peers)
    : processor_(&processor),
      ticks_per_second_(processor_clock{processor}.ticks_per_second()),
      refwait_ticks_(ticks_of(options.refwait_seconds, ticks_per_second_)),
      grace_ticks_(ticks_of(options.session_grace_seconds, ticks_per_second_)),
      unstamped_(options.unstamped_packets_per_second, ticks_per_second_),
      peers_(peers != nullptr ? std::move(peers) : std::make_shared<reflector_peers>()),
      table_(options.mode == stamp_mode::stateless ? 0 : options.session_capacity),
      paid_by_address_(address_hashes)
{}

entered_session session_keeper::begin(const session_key &key, const received_packet &packet,
                                      const responder_view &responder, std::uint64_t instant)
{
    if (const auto reason = reason_against(packet, instant)) {
        return {.refused = *reason};
    }
    forget_stale(slots_each_session);
    if (!take_place(responder, packet.arrival_ticks)) {
        return {.refused = drop_reason::max_sessions};
    }
    if (!make_room(responder.id, packet.arrival_ticks)) {
        count_down(responder.words, responder_word::active_sessions);
        return {.refused = drop_reason::hash_error};
    }
    session *begun = table_.insert(key, responder.creation, packet.arrival_ticks); // there is room
    begun->may_be_answers = peers_->stamps.look_at(packet.payload) == stamp_origin::either;
    begun->last_number = olv_net::load_32(&packet.payload[olv_net::sender_packet::sequence_number]);
    unstamped_sender &sender = table_.unstamped(*begun);
    sender = {.stamp = sender_stamp{packet.payload}.value(), .paid = packet.arrival_ticks};
    (void)unstamped_.take(sender.paid, packet.arrival_ticks); // its first
    return {.entry = begun};
}

bool session_keeper::take_place(const responder_view &responder, std::uint64_t now)
{
    const std::uint32_t most = most_sessions_of(responder.words);
    end_idle_of(responder.id, now, idle_each_batch);
    while (!count_below(responder.words, responder_word::active_sessions, most)) {
        session *leaving = most == 0 ? nullptr : dispensable(responder.id, now);
        if (leaving == nullptr) {
            ask_for_place(responder.id, now);
            return false;
        }
        give_way(*leaving); // once, unless the maximum was lowered, or another reflector takes the place
    }
    return true;
}

void session_keeper::ask_for_place(std::uint32_t responder_id, std::uint64_t now)
{
    // Not with each packet of a flood that there is no place for anywhere.
    if (now - asked_at_ >= ticks_per_second_ / requests_each_second) {
        asked_at_ = now;
        peers_->places.ask(responder_id, looks_);
    }
}

bool session_keeper::make_room(std::uint32_t responder_id, std::uint64_t now)
{
    if (table_.size() < table_.capacity()) {
        return true;
    }
    session *leaving = table_.oldest_newcomer();
    if (leaving == nullptr) {
        leaving = dispensable(responder_id, now);
    }
    if (leaving == nullptr) {
        leaving = dispensable_elsewhere(now);
    }
    if (leaving == nullptr) {
        return false;
    }
    give_way(*leaving);
    return true;
}

session *session_keeper::dispensable(std::uint32_t responder_id, std::uint64_t now)
{
    session *newcomer = table_.oldest_newcomer(responder_id);
    if (newcomer != nullptr) {
        return newcomer;
    }
    session *established = table_.oldest_established(responder_id);
    return established != nullptr && is_idle_for(*established, grace_ticks_, now) ? established : nullptr;
}

session *session_keeper::dispensable_elsewhere(std::uint64_t now)
{
    session *longest_idle = nullptr;
    for (int count = 0; count < responders_each_packet; ++count) {
        session *visited = table_.oldest_of_next_responder();
        if (visited != nullptr && is_idle_for(*visited, grace_ticks_, now) &&
            (longest_idle == nullptr || now - visited->last_arrival > now - longest_idle->last_arrival)) {
            longest_idle = visited;
        }
    }
    return longest_idle;
}

void session_keeper::give_way(session &leaving)
{
    gave_way_ += is_current(leaving) ? 1 : 0;
    end(leaving);
}

void session_keeper::give_place(std::uint64_t now)
{
    const auto has_one = [&](std::uint32_t responder_id) { return dispensable(responder_id, now) != nullptr; };
    if (const auto responder_id = peers_->places.look(looks_, has_one)) {
        give_way(*dispensable(*responder_id, now));
    }
}

std::optional<drop_reason> session_keeper::reason_against(const received_packet &packet, std::uint64_t instant)
{
    const stamp_origin found = peers_->stamps.look_through(packet.payload);
    if (found == stamp_origin::reply) {
        return drop_reason::answer_to_reply;
    }
    const bool is_plausible = found == stamp_origin::sender && sender_stamp{packet.payload}.is_near(instant);
    return is_plausible || may_pass(packet.sender.address, packet.arrival_ticks)
               ? std::nullopt
               : std::optional{drop_reason::unstamped_rate};
}

bool session_keeper::may_pass(session &entry, const received_packet &packet)
{
    const sender_stamp stamp{packet.payload};
    unstamped_sender &sender = table_.unstamped(entry);
    const std::uint64_t now = packet.arrival_ticks;
    const std::uint64_t idle = is_idle_for(entry, 0, now) ? now - entry.last_arrival : 0;
    const bool rises = stamp.follows(sender.stamp, idle / ticks_per_second_);
    sender.stamp = stamp.value();
    return rises || unstamped_.take(sender.paid, now);
}

bool session_keeper::may_pass(const olv_net::ip_address &sender, std::uint64_t now)
{
    return unstamped_.take(
        paid_by_address_[table_.hash_of({.responder_id = 0, .sender = {sender, 0}}) % address_hashes], now);
}

bool session_keeper::is_current(const session &entry) const
{
    const olv_sim::state_words responder = processor_->state(entry.responder_id);
    return responder.size() >= responder_words && creation_of(responder) == entry.creation;
}

void session_keeper::end(session &entry)
{
    if (is_current(entry)) {
        count_down(processor_->state(entry.responder_id), responder_word::active_sessions);
    }
    table_.remove(entry);
}

void session_keeper::end_idle_of(std::uint32_t responder_id, std::uint64_t now, std::uint32_t limit)
{
    for (; limit > 0; --limit) {
        session *oldest = table_.oldest(responder_id);
        if (oldest == nullptr || !is_idle(*oldest, now)) {
            return;
        }
        end(*oldest);
    }
}

void session_keeper::end_all_idle(std::uint64_t now)
{
    for (std::uint32_t count = table_.responders(); count > 0; --count) {
        session *visited = table_.oldest_of_next_responder();
        if (visited != nullptr) {
            end_idle_of(visited->responder_id, now, table_.size());
        }
    }
}

std::uint32_t session_keeper::end_all(std::optional<std::uint32_t> responder_id)
{
    std::uint32_t ended = 0;
    for (std::uint32_t slots = table_.capacity(); slots > 0; --slots) {
        session *visited = table_.next_slot();
        if (visited != nullptr && visited->responder_id == responder_id.value_or(visited->responder_id)) {
            ended += is_current(*visited) ? 1 : 0;
            end(*visited);
        }
    }
    return ended;
}

void session_keeper::forget_stale(std::uint32_t slots)
{
    for (; slots > 0; --slots) {
        session *visited = table_.next_slot();
        if (visited != nullptr && !is_current(*visited)) {
            table_.remove(*visited);
        }
    }
}

void session_keeper::expect(std::span<const olv_net::ip_endpoint> senders, std::uint32_t responder_id) const
{
    if (table_.size() < sessions_in_cache) {
        return;
    }
    std::array<std::uint32_t, most_expected> buckets;
    const std::size_t count = std::min(senders.size(), buckets.size());
    for (std::size_t index = 0; index < count; ++index) {
        buckets[index] =
            table_.fetch_bucket({.responder_id = responder_id & id_mask, .sender = senders[index]});
    }
    for (std::size_t index = 0; index < count; ++index) {
        table_.fetch_slot(buckets[index]);
    }
}

std::vector<session_summary> session_keeper::sessions_at(std::uint64_t now) const
{
    std::vector<session_summary> live;
    for (const session &each : table_.all()) {
        if (!is_idle(each, now) && is_current(each)) {
            const std::uint64_t idle = now > each.last_arrival ? now - each.last_arrival : 0;
            live.push_back(
                {.responder_id = each.responder_id,
                 .sender = each.sender,
                 .replies = each.next_sequence_number,
                 .idle_seconds = static_cast<double>(idle) / static_cast<double>(ticks_per_second_)});
        }
    }
    std::stable_sort(live.begin(), live.end(), is_idle_longer);
    return live;
}

} // namespace olv_fastpath
