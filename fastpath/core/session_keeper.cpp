#include "fastpath/core/session_keeper.hpp"

#include <algorithm>
#include <array>

#include "fastpath/core/state_entry.hpp"

namespace olv_fastpath {

namespace {

/** Slots looked at for sessions of responders that are gone, with each session that begins. */
constexpr std::uint32_t slots_each_session = 4;

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

/** Count another active session, unless the responder has as many as it may have. */
bool count_session(olv_sim::state_words responder)
{
    const std::uint32_t maximum =
        responder[responder_word::maximum_sessions].load(std::memory_order_relaxed); // host order as written
    return count_below(responder, responder_word::active_sessions, maximum);
}

} // namespace

session_keeper::session_keeper(const olv_sim::processor &processor, const fast_path_options &options)
    : processor_(&processor),
      ticks_per_second_(processor_clock{processor}.ticks_per_second()),
      refwait_ticks_(ticks_of(options.refwait_seconds, ticks_per_second_)),
      table_(options.session_capacity)
{}

entered_session session_keeper::begin(const session_key &key, std::uint64_t arrival,
                                      const responder_view &responder)
{
    forget_stale(slots_each_session);
    if (!count_session(responder.words)) {
        end_all_idle(arrival);
        if (!count_session(responder.words)) {
            return {.refused = drop_reason::max_sessions};
        }
    }
    // The packet has ended idle ones if there were any.
    session *begun = table_.insert(key, responder.creation, arrival);
    if (begun == nullptr) {
        count_down(responder.words, responder_word::active_sessions);
        return {.refused = drop_reason::hash_error};
    }
    return {.entry = begun};
}

bool session_keeper::is_current(const session &entry) const
{
    const olv_sim::state_words responder = processor_->state(entry.key.responder_id);
    return responder.size() >= responder_words && creation_of(responder) == entry.creation;
}

void session_keeper::end(session &entry)
{
    if (is_current(entry)) {
        count_down(processor_->state(entry.key.responder_id), responder_word::active_sessions);
    }
    table_.remove(entry);
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
                {.responder_id = each.key.responder_id,
                 .sender = each.key.sender,
                 .replies = each.next_sequence_number,
                 .idle_seconds = static_cast<double>(idle) / static_cast<double>(ticks_per_second_)});
        }
    }
    return live;
}

} // namespace olv_fastpath
