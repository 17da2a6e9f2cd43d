#include <nlohmann/json.hpp>

#include "apps/twampctl/figures/figures_formats.hpp"

namespace twampctl {
namespace {

using json = nlohmann::ordered_json;

constexpr auto replace_invalid = json::error_handler_t::replace;

json dropped(const std::vector<drop_figure> &drops)
{
    json object = json::object();
    for (const drop_figure &drop : drops) {
        object[drop.name] = drop.packets;
    }
    return object;
}

template <typename Value> json value_or_null(const std::optional<Value> &value)
{
    return value ? json(*value) : json(nullptr);
}

json tree_of(const std::optional<olv_twamp_global_stats> &module)
{
    if (!module) {
        return nullptr;
    }
    return {{"received_packets", module->total_rx},
            {"transmitted_packets", module->total_tx},
            {"dropped_packets", dropped(drops_of(*module))}};
}

json tree_of(const std::optional<olv_twamp_responder_stats> &counters)
{
    if (!counters) {
        return nullptr;
    }
    return {{"received_packets", counters->received},
            {"transmitted_packets", counters->transmitted},
            {"dropped_packets", dropped(drops_of(*counters))},
            {"active_sessions", counters->active_sessions}};
}

json tree_of(const responder_figures &responder)
{
    return {{"name", responder.name},
            {"id", responder.id},
            {"counters", tree_of(responder.counters)},
            {"session_limit", value_or_null(responder.session_limit)}};
}

json tree_of(const listener_figures &listener)
{
    return {{"address", listener.address},
            {"responder", listener.responder},
            {"bind_key", listener.bind_key},
            {"received_packets", listener.counters.received_packets},
            {"dropped_packets", dropped(drops_of(listener.counters))},
            {"sent_replies", listener.counters.sent_replies},
            {"failed_replies", listener.counters.failed_replies}};
}

json tree_of(const session_figures &session)
{
    return {{"responder", session.responder},
            {"sender", session.sender},
            {"replies", session.replies},
            {"idle_seconds", session.idle_seconds},
            {"round_trip_seconds", value_or_null(session.round_trip_seconds)}};
}

json tree_of(const platform_usage &usage)
{
    json object = json::object();
    for (const usage_item &item : items_of(usage)) {
        object[item.name] = item.count;
    }
    object["violations"] = usage.violations;
    return object;
}

template <typename Element> json tree_of(const std::vector<Element> &elements)
{
    json array = json::array();
    for (const Element &element : elements) {
        array.push_back(tree_of(element));
    }
    return array;
}

json tree_of(const figures &all)
{
    return {{"taken_at", all.taken_at},
            {"processor", all.processor},
            {"module_up", all.module_up},
            {"module", tree_of(all.module)},
            {"responders", tree_of(all.responders)},
            {"listeners", tree_of(all.listeners)},
            {"sessions", tree_of(all.sessions)},
            {"gave_way_sessions", all.gave_way_sessions},
            {"platform", tree_of(all.usage)}};
}

} // namespace

std::string valid_utf8(const std::string &text)
{
    return json::parse(json(text).dump(-1, ' ', false, replace_invalid)).get<std::string>();
}

std::string printable(const std::string &text)
{
    const std::string quoted = json(text).dump(-1, ' ', true, replace_invalid);
    return quoted.substr(1, quoted.size() - 2);
}

std::string as_json(const figures_part &part)
{
    const json tree = std::visit([](const auto &each) { return tree_of(each); }, part);
    return tree.dump(2, ' ', false, replace_invalid) + "\n";
}

} // namespace twampctl
