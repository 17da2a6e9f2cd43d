// What a site counts and knows.
#include <chrono>
#include <cstddef>

#include "apps/twampctl/site/site.hpp"
#include "hyx.h"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "twamp_program.h"

namespace twampctl {
namespace {

std::size_t entries_in(const olv_sim::processor &processor, const char *tree)
{
    const olv_sim::classifier_tree *found = processor.tree(tree); // a program may leave it out
    return found == nullptr ? 0 : found->size();
}

/** Empty where no responder has the ID. */
template <typename Names> std::string name_in(const Names &names, std::uint32_t id)
{
    const auto found = names.find(id);
    return found == names.end() ? "" : found->second;
}

} // namespace

figures site::collect()
{
    using seconds = std::chrono::duration<double>;
    const std::lock_guard lock{mutex_};
    figures now;
    now.taken_at = seconds(std::chrono::system_clock::now().time_since_epoch()).count();
    now.processor = name_;
    now.module_up = is_up();
    if (now.module_up) {
        olv_twamp_global_stats counters{};
        if (olv_twamp_global_stats_get(module_, &counters) == OLV_STATUS_OK) {
            now.module = counters;
        }
    }
    collect_responders(now);
    responder_names names;
    for (const named_responder &each : responders_) {
        names.emplace(each.handle->responder_id, each.name);
    }
    collect_listeners(now, names);
    collect_sessions(now, names);
    now.gave_way_sessions = sessions_that_gave_way();
    now.usage = usage();
    return now;
}

void site::collect_responders(figures &into)
{
    for (const named_responder &each : responders_) {
        const std::uint32_t id = each.handle->responder_id;
        responder_figures one{
            .name = each.name, .id = id, .counters = {}, .session_limit = session_limit_of(id)};
        olv_twamp_responder_stats counters{};
        if (into.module_up && olv_twamp_responder_stats_get(module_, each.handle, &counters) == OLV_STATUS_OK) {
            one.counters = counters;
        }
        into.responders.push_back(one);
    }
}

void site::collect_listeners(figures &into, const responder_names &names) const
{
    for (const auto &[index, address] : listeners_) {
        const olv_fastpath::packet_path path = fast_path_.path(index);
        into.listeners.push_back({.address = address,
                                  .responder = name_in(names, path.responder_id),
                                  .bind_key = path.bind_key,
                                  .counters = fast_path_.statistics(index)});
    }
}

void site::collect_sessions(figures &into, const responder_names &names) const
{
    for (const olv_fastpath::session_summary &each : fast_path_.sessions()) {
        const std::string sender = olv_net::text_of(each.sender);
        into.sessions.push_back({.responder = name_in(names, each.responder_id),
                                 .sender = sender,
                                 .replies = each.replies,
                                 .idle_seconds = each.idle_seconds,
                                 .round_trip_seconds = round_trips_ ? round_trips_(sender) : std::nullopt});
    }
}

std::optional<std::uint32_t> site::session_limit_of(std::uint32_t responder_id) const
{
    const olv_sim::state_words words = processor_.state(responder_id);
    return words.size() * 4 < sizeof(twamp_responder_state)
               ? std::nullopt
               : std::optional{words[offsetof(twamp_responder_state, max_sessions) / 4].load()}; // host order
}

std::uint32_t site::refused_packets() const
{
    const olv_sim::state_words words = processor_.state(GLOBAL_STATS_NS_ID);
    // What responders count as too many sessions, the module counts here as well.
    constexpr std::size_t word = offsetof(olv_twamp_global_stats, drop_hash_error) / 4;
    return words.size() <= word ? 0 : hyx_ntohl(words[word].load());
}

platform_usage site::usage() const
{
    return {.blocks = olv_sim::memory::in_use().live_blocks,
            .responder_ids = processor_.allocated(TWAMP_RESPONDER_NAMESPACE),
            .responder_entries = entries_in(processor_, TWAMP_RESPONDER_LOOKUP_FUNCTION),
            .bind_entries = entries_in(processor_, TWAMP_BIND_TO_NEXT_MODULE_FUNCTION),
            .patterns = olv_sim::patterns::live(),
            .violations = olv_sim::violations::count()};
}

} // namespace twampctl
