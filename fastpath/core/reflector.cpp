#include "fastpath/core/reflector.hpp"
#include "twamp_program.h"

#include <algorithm>
#include <cstring>

namespace olv_fastpath {

namespace {

constexpr std::uint32_t id_mask = (1u << TWAMP_KEY_BITS) - 1;
constexpr std::uint8_t dscp_mask = 0xFC;

/** Idle sessions ended with each packet: more than one, so that they become fewer under load. */
constexpr std::uint32_t idle_sessions_each_packet = 2;
/** Slots looked at for sessions of responders that are gone, with each session that begins. */
constexpr std::uint32_t slots_each_session = 4;

/** Tables of so few sessions stay in the processor's caches. */
constexpr std::uint32_t sessions_in_cache = 4096;

/** Seconds within which an answer to a reply is known for one. */
constexpr std::uint64_t longest_round_trip = 8;

/** The return value of a responder's entry that is defined; its bit 2 has no meaning here. */
bool says_defined(std::uint32_t return_value)
{
    return (return_value & ~4u) == 0;
}

responder_creation creation_of(olv_sim::state_words responder)
{
    return {read_word(responder, responder_word::creation_count),
            read_double_word(responder, responder_word::ticks_high)};
}

/** A reading from before the creation counts as the creation. */
std::uint64_t ticks_since(const responder_creation &creation, std::uint64_t ticks)
{
    return ticks <= creation.ticks() ? 0 : ticks - creation.ticks();
}

std::uint64_t saturating_product(std::uint64_t left, std::uint64_t right)
{
    return right != 0 && left > UINT64_MAX / right ? UINT64_MAX : left * right;
}

/** Count another active session, unless the responder has as many as it may have. */
bool count_session(olv_sim::state_words responder)
{
    const std::uint32_t maximum =
        responder[responder_word::maximum_sessions].load(std::memory_order_relaxed); // host order as written
    return count_below(responder, responder_word::active_sessions, maximum);
}

/** Copy the request's fields, its TTL and what there is room for of its padding; zero the rest. */
void copy_request(const received_packet &packet, std::span<std::uint8_t> reply)
{
    const std::span<const std::uint8_t> request = packet.payload;
    // In two parts, which overlap, by way of registers: the reply may begin where they are.
    constexpr std::size_t second_part = olv_net::sender_packet::header_length - sizeof(std::uint64_t);
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    std::memcpy(&first, request.data(), sizeof first);
    std::memcpy(&second, &request[second_part], sizeof second);
    std::memcpy(&reply[olv_net::reflector_packet::sender_sequence_number], &first, sizeof first);
    std::memcpy(&reply[olv_net::reflector_packet::sender_sequence_number + second_part], &second,
                sizeof second);
    olv_net::store_16(&reply[olv_net::reflector_packet::zero_14], 0);
    olv_net::store_16(&reply[olv_net::reflector_packet::zero_38], 0);
    reply[olv_net::reflector_packet::sender_ttl] = packet.ttl;
    const std::span<std::uint8_t> rest = reply.subspan(olv_net::reflector_packet::header_length);
    if (request.size() == olv_net::stamp_length) {
        std::fill(rest.begin(), rest.end(), std::uint8_t{0});
    } else if (!rest.empty() && rest.data() != &request[olv_net::sender_packet::padding]) {
        std::memcpy(rest.data(), &request[olv_net::sender_packet::padding], rest.size());
    }
}

} // namespace

reflector::reflector(olv_sim::processor &processor, const reflector_options &options)
    : processor_(processor),
      responders_(processor.tree(TWAMP_RESPONDER_LOOKUP_FUNCTION)),
      binds_(processor.tree(TWAMP_BIND_TO_NEXT_MODULE_FUNCTION)),
      global_(processor.state(GLOBAL_STATS_NS_ID)),
      mode_(options.mode),
      minimum_request_(std::max(options.minimum_request, olv_net::sender_packet::header_length)),
      scale_(std::max<std::uint64_t>(processor.timer_frequency(), 1)),
      refwait_ticks_(saturating_product(options.refwait_seconds, scale_.ticks_per_second())),
      sessions_(options.session_capacity)
{
    if (global_.size() < global_words) {
        global_ = uncounted_;
    }
}

reflector::responder_view reflector::find_responder(std::uint32_t responder_id)
{
    if (responders_ == nullptr) {
        return {};
    }
    olv_sim::tree_action action;
    if (!responders_->find(responder_id, action) || !says_defined(action.word[0])) {
        return {};
    }
    if (last_responder_id_ != responder_id) {
        last_responder_ = processor_.state(responder_id);
        last_responder_id_ = responder_id;
    }
    const olv_sim::state_words words = last_responder_;
    // An entry without a key leads to IDs that nobody created, a deletion clears the state after the tree.
    if (words.size() < responder_words ||
        (read_word(words, responder_word::flags) & TWAMP_STATE_WRITTEN) == 0) {
        return {};
    }
    return {.words = words,
            .creation = creation_of(words),
            .created = read_double_word(words, responder_word::ntp_seconds)};
}

bool reflector::is_bound(std::uint32_t bind_key) const
{
    olv_sim::tree_action action;
    return binds_ != nullptr && binds_->find(bind_key & id_mask, action);
}

verdict reflector::reflect(const received_packet &packet, const packet_path &path,
                           std::span<std::uint8_t> reply)
{
    if (in_batch_) {
        return take(packet, path, reply);
    }
    const batch alone{*this};
    return take(packet, path, reply);
}

verdict reflector::take(const received_packet &packet, const packet_path &path, std::span<std::uint8_t> reply)
{
    ++sums_.total_rx;
    end_idle_sessions(packet.arrival_ticks, idle_sessions_each_packet);

    const std::uint32_t responder_id = path.responder_id & id_mask;
    const responder_view responder = find_responder(responder_id);
    if (!responder.exists()) {
        count(global_, global_word::drop_no_responder);
        return {.result = outcome::drop_no_responder};
    }
    if (!is_bound(path.bind_key)) {
        count(global_, global_word::drop_no_bind);
        return {.result = outcome::drop_no_bind};
    }

    count_received(responder);
    if (packet.payload.size() < minimum_request_ || reply.size() < reply_length(packet.payload.size())) {
        count(responder.words, responder_word::drop_length_check);
        count(global_, global_word::drop_length_check);
        return {.result = outcome::drop_length};
    }

    session *entry = nullptr;
    const outcome entered = enter_session(packet, responder_id, responder, &entry);
    if (entry == nullptr) {
        count(responder.words, responder_word::drop_max_sessions);
        count(global_, global_word::drop_hash_error);
        return {.result = entered};
    }

    const std::size_t length = write_reply(packet, responder, *entry, reply);
    ++sums_.transmitted;
    ++sums_.total_tx;
    return {.result = outcome::reflected,
            .reply_length = length,
            .traffic_class = static_cast<std::uint8_t>(packet.traffic_class & dscp_mask)};
}

inline void reflector::count_received(const responder_view &responder)
{
    const responder_view &counted = sums_.responder;
    if (counted.words.data() != responder.words.data() || counted.creation != responder.creation) {
        if (counted.exists()) {
            finish();
        }
        sums_.responder = responder;
    }
    ++sums_.received;
}

void reflector::finish()
{
    write_departures();
    count(global_, global_word::total_rx, sums_.total_rx);
    count(global_, global_word::total_tx, sums_.total_tx);
    const responder_view &counted = sums_.responder;
    if (counted.exists() && creation_of(counted.words) == counted.creation) {
        count(counted.words, responder_word::received, sums_.received);
        count(counted.words, responder_word::transmitted, sums_.transmitted);
    }
    sums_ = {};
}

void reflector::write_departures()
{
    if (waiting_count_ == 0) {
        return;
    }
    const responder_view &responder = sums_.responder;
    const std::uint64_t until_now = ticks_since(responder.creation, processor_.timer_now());
    const std::uint64_t now = scale_.after(responder.created, until_now);
    for (const waiting_reply &reply : std::span{waiting_}.first(waiting_count_)) {
        // An arrival may be ahead of the timer.
        const std::uint64_t departure =
            reply.until_arrival > until_now ? scale_.after(responder.created, reply.until_arrival) : now;
        olv_net::store(reply.bytes + olv_net::reflector_packet::timestamp, departure);
    }
    waiting_count_ = 0;
}

void reflector::expect(std::span<const olv_net::ip_endpoint> senders, const packet_path &path) const
{
    if (sessions_.size() < sessions_in_cache) {
        return;
    }
    std::array<std::uint32_t, most_expected> buckets;
    const std::size_t count = std::min(senders.size(), buckets.size());
    for (std::size_t index = 0; index < count; ++index) {
        buckets[index] = sessions_.fetch_bucket({.responder_id = path.responder_id & id_mask,
                                                 .sender_address = senders[index].address,
                                                 .sender_port = senders[index].port});
    }
    for (std::size_t index = 0; index < count; ++index) {
        sessions_.fetch_slot(buckets[index]);
    }
}

bool reflector::answers_a_reply(const received_packet &packet, const packet_path &path)
{
    // The error estimate tells apart nearly all other packets without looking anything up.
    if (packet.payload.size() < olv_net::reflector_packet::header_length ||
        olv_net::load_16(&packet.payload[olv_net::reflector_packet::sender_error_estimate]) !=
            own_error_estimate) {
        return false;
    }
    const responder_view responder = find_responder(path.responder_id & id_mask);
    if (!responder.exists()) {
        return false;
    }
    const olv_net::ntp_time replied =
        olv_net::load_ntp(&packet.payload[olv_net::reflector_packet::sender_timestamp]);
    const std::uint64_t arrived =
        scale_.after(responder.created, ticks_since(responder.creation, packet.arrival_ticks));
    return arrived - replied.units() <= longest_round_trip << 32;
}

outcome reflector::enter_session(const received_packet &packet, std::uint32_t responder_id,
                                 const responder_view &responder, session **entry)
{
    const session_key key{.responder_id = responder_id,
                          .sender_address = packet.sender_address,
                          .sender_port = packet.sender_port};
    session *known = sessions_.find(key);
    if (known != nullptr && (known->creation != responder.creation || is_idle(*known, packet.arrival_ticks))) {
        end_session(*known);
        known = nullptr;
    }
    if (known == nullptr) {
        return begin_session(key, packet.arrival_ticks, responder, entry);
    }
    sessions_.touch(*known, packet.arrival_ticks);
    *entry = known;
    return outcome::reflected;
}

outcome reflector::begin_session(const session_key &key, std::uint64_t arrival, const responder_view &responder,
                                 session **entry)
{
    forget_stale_sessions(slots_each_session);
    if (!count_session(responder.words)) {
        end_idle_sessions(arrival, sessions_.capacity());
        if (!count_session(responder.words)) {
            return outcome::drop_max_sessions;
        }
    }
    session *begun = sessions_.insert(key, responder.creation, arrival);
    if (begun == nullptr) {
        end_idle_sessions(arrival, sessions_.capacity());
        begun = sessions_.insert(key, responder.creation, arrival);
    }
    if (begun == nullptr) {
        count_down(responder.words, responder_word::active_sessions);
        return outcome::drop_table_full;
    }
    *entry = begun;
    return outcome::reflected;
}

bool reflector::is_idle(const session &entry, std::uint64_t now) const
{
    return now > entry.last_arrival && now - entry.last_arrival >= refwait_ticks_;
}

bool reflector::is_current(const session &entry) const
{
    const olv_sim::state_words responder = processor_.state(entry.key.responder_id);
    return responder.size() >= responder_words && creation_of(responder) == entry.creation;
}

void reflector::end_session(session &entry)
{
    if (is_current(entry)) {
        count_down(processor_.state(entry.key.responder_id), responder_word::active_sessions);
    }
    sessions_.remove(entry);
}

void reflector::end_idle_sessions(std::uint64_t now, std::uint32_t limit)
{
    for (; limit > 0; --limit) {
        session *oldest = sessions_.oldest();
        if (oldest == nullptr || !is_idle(*oldest, now)) {
            return;
        }
        end_session(*oldest);
    }
}

void reflector::forget_stale_sessions(std::uint32_t slots)
{
    for (; slots > 0; --slots) {
        session *visited = sessions_.next_slot();
        if (visited != nullptr && !is_current(*visited)) {
            sessions_.remove(*visited);
        }
    }
}

std::vector<session> reflector::sessions_at(std::uint64_t now) const
{
    std::vector<session> live = sessions_.all();
    std::erase_if(live, [&](const session &entry) { return is_idle(entry, now) || !is_current(entry); });
    return live;
}

std::size_t reflector::write_reply(const received_packet &packet, const responder_view &responder,
                                   session &entry, std::span<std::uint8_t> reply)
{
    const std::size_t length = reply_length(packet.payload.size());
    copy_request(packet, reply.first(length));
    const std::uint32_t own_sequence_number = entry.next_sequence_number++;
    const bool copies_number = mode_ == stamp_mode::stateless && packet.payload.size() == olv_net::stamp_length;
    olv_net::store_32(&reply[olv_net::reflector_packet::sequence_number],
                      copies_number
                          ? olv_net::load_32(&reply[olv_net::reflector_packet::sender_sequence_number])
                          : own_sequence_number);
    olv_net::store_16(&reply[olv_net::reflector_packet::error_estimate], own_error_estimate);
    const std::uint64_t until_arrival = ticks_since(responder.creation, packet.arrival_ticks);
    olv_net::store(&reply[olv_net::reflector_packet::receive_timestamp],
                   scale_.after(responder.created, until_arrival));
    if (waiting_count_ == waiting_.size()) {
        write_departures();
    }
    waiting_[waiting_count_++] = {.bytes = reply.data(), .until_arrival = until_arrival};
    return length;
}

} // namespace olv_fastpath
