#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <numeric>

#include "apps/common/formatted.hpp"
#include "apps/twampctl/figures/figures_formats.hpp"

namespace twampctl {
namespace {

using olv_apps::append;

constexpr std::size_t line_width = 80;
constexpr std::size_t name_width = 14; ///< In tables.

void add_count(std::string &text, const char *label, std::uint64_t count)
{
    append(text, "  %-33s %19" PRIu64 "\n", label, count);
}

void add_drops(std::string &text, const std::vector<drop_figure> &drops)
{
    for (const drop_figure &drop : drops) {
        add_count(text, (std::string("dropped: ") + drop.text).c_str(), drop.packets);
    }
}

std::string column(const std::string &name)
{
    return shortened(name, name_width);
}

std::string hexadecimal(std::uint32_t number)
{
    return olv_apps::formatted("0x%X", number);
}

/** "2025-01-31 12:00:00 UTC". */
std::string date(double seconds)
{
    const auto whole = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[64] = "(no date)";
    if (gmtime_r(&whole, &parts) != nullptr) {
        (void)std::strftime(text, sizeof text, "%F %T UTC", &parts); // fits
    }
    return text;
}

/** Of a reason in the responders' table. */
int width_of(const char *name)
{
    return static_cast<int>(std::max<std::size_t>(std::strlen(name), 10));
}

std::string responders_heading()
{
    std::string text = "ID         received transmitted";
    for (const drop_figure &drop : drops_of(olv_twamp_responder_stats{})) {
        append(text, " %*s", width_of(drop.name), drop.name);
    }
    return text + " sessions  RESPONDER\n";
}

void add_row(std::string &text, const responder_figures &responder)
{
    const std::string id = hexadecimal(responder.id);
    const olv_twamp_responder_stats counted = responder.counters.value_or(olv_twamp_responder_stats{});
    const auto shown = [&](std::uint64_t count) { return responder.counters ? std::to_string(count) : "-"; };
    std::string row = olv_apps::formatted("%-8s %10s %11s", id.c_str(), shown(counted.received).c_str(),
                                          shown(counted.transmitted).c_str());
    for (const drop_figure &drop : drops_of(counted)) {
        append(row, " %*s", width_of(drop.name), shown(drop.packets).c_str());
    }
    append(row, " %8s  ", shown(counted.active_sessions).c_str());
    text += row + shortened(responder.name, line_width - row.size()) + "\n";
}

void add_row(std::string &text, const session_figures &session)
{
    append(text, "%10u %8.1f ", session.replies, session.idle_seconds);
    if (session.round_trip_seconds) {
        append(text, "%10.3f  ", *session.round_trip_seconds * 1e3);
    } else {
        append(text, "%10s  ", "-");
    }
    text += session.sender + "\n";
}

std::string section_of(const std::optional<olv_twamp_global_stats> &module)
{
    std::string text = "Module\n";
    if (!module) {
        return text + "  its counters cannot be read\n";
    }
    add_count(text, "received packets", module->total_rx);
    add_count(text, "transmitted packets", module->total_tx);
    add_drops(text, drops_of(*module));
    return text;
}

std::string section_of(const responder_figures &responder)
{
    std::string text = "Responder " + printable(responder.name);
    append(text, "\n  %-32s %20s\n", "ID", hexadecimal(responder.id).c_str());
    if (!responder.counters) {
        return text + "  its counters cannot be read\n";
    }
    add_count(text, "received packets", responder.counters->received);
    add_count(text, "transmitted packets", responder.counters->transmitted);
    add_drops(text, drops_of(*responder.counters));
    add_count(text, "active sessions", responder.counters->active_sessions);
    if (responder.session_limit) {
        add_count(text, "session limit", *responder.session_limit);
    }
    return text;
}

std::string section_of(const std::vector<responder_figures> &responders)
{
    if (responders.empty()) {
        return "No responders\n";
    }
    std::string text = responders_heading();
    for (const responder_figures &responder : responders) {
        add_row(text, responder);
    }
    return text;
}

std::string section_of(const std::vector<listener_figures> &listeners)
{
    std::string text;
    for (const listener_figures &listener : listeners) {
        text += "Listener " + listener.address + "\n";
        append(text, "  %-32s %20s\n", "responder", column(listener.responder).c_str());
        add_count(text, "bind key", listener.bind_key);
        add_count(text, "received packets", listener.counters.received_packets);
        add_drops(text, drops_of(listener.counters));
        add_count(text, "sent replies", listener.counters.sent_replies);
        add_count(text, "replies that could not be sent", listener.counters.failed_replies);
    }
    return text.empty() ? "No listeners\n" : text;
}

std::string section_of(const std::vector<session_figures> &sessions)
{
    // A table for each responder; the one with the oldest session comes first.
    std::map<std::string, std::size_t> places;
    std::vector<std::string> tables;
    for (const session_figures &session : sessions) {
        const auto [place, is_new] = places.try_emplace(session.responder, tables.size());
        if (is_new) {
            tables.push_back("Sessions of " + column(session.responder) +
                             "\n   replies   idle s    trip ms  SENDER\n");
        }
        add_row(tables[place->second], session);
    }
    return tables.empty() ? "No sessions\n" : std::accumulate(tables.begin(), tables.end(), std::string{});
}

std::string section_of(const platform_usage &usage)
{
    std::string text = "Platform\n";
    for (const usage_item &item : items_of(usage)) {
        add_count(text, item.title, item.count);
    }
    add_count(text, "violations", usage.violations);
    return text;
}

std::string section_of(const figures &all)
{
    std::string text = "Processor " + column(all.processor) + ", module " + (all.module_up ? "up" : "down") +
                       ", " + date(all.taken_at) + "\n\n";
    text += section_of(all.module) + "\n";
    text += section_of(all.responders) + "\n";
    text += section_of(all.listeners) + "\n";
    text += section_of(all.sessions);
    add_count(text, "sessions that gave way", all.gave_way_sessions);
    text += "\n";
    return text + section_of(all.usage);
}

} // namespace

std::string as_text(const figures_part &part)
{
    return std::visit([](const auto &each) { return section_of(each); }, part);
}

} // namespace twampctl
