#include "apps/twampctl/figures/watch_text.hpp"

#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <unordered_map>
#include <vector>

#include "apps/common/formatted.hpp"
#include "apps/twampctl/figures/figures_formats.hpp"

namespace twampctl {
namespace {

using olv_apps::formatted;

using olv_fastpath::drop_counts;
using olv_fastpath::drop_reason;
using olv_fastpath::drop_reason_entry;
using olv_fastpath::drop_reasons;

constexpr std::size_t columns = 79;
constexpr std::size_t drops_indent = 9; ///< Of the reasons.

double rate(std::uint64_t packets, double seconds)
{
    return seconds > 0 ? static_cast<double>(packets) / seconds : 0;
}

/** Counters are 32 bits wide and go round; so does their difference. */
std::uint32_t difference(std::uint32_t before, std::uint32_t now)
{
    return now - before;
}

/** As the counters do, their sum goes round. */
std::uint32_t drops(const olv_twamp_responder_stats &counters)
{
    return static_cast<std::uint32_t>(olv_fastpath::drops_in(counters).sum());
}

std::string round_trip_text(const std::optional<double> &seconds)
{
    return seconds ? formatted("%9.1f us", *seconds * 1e6) : "          - ";
}

/** What was there before, by what tells one from the others: there may be very many. */
template <typename Item, typename Key> class earlier {
  public:
    earlier(const std::vector<Item> &items, Key Item::*key) : key_(key)
    {
        for (const Item &each : items) {
            by_key_.emplace(each.*key, &each);
        }
    }
    /** NULL: there was none. */
    [[nodiscard]] const Item *same_as(const Item &now) const
    {
        const auto found = by_key_.find(now.*key_);
        return found == by_key_.end() ? nullptr : found->second;
    }

  private:
    Key Item::*key_;
    std::unordered_map<Key, const Item *> by_key_;
};

std::uint32_t full_sessions(const responder_figures *responder)
{
    return responder != nullptr && responder->counters ? responder->counters->drop_max_sessions : 0;
}

/** What is dropped because a responder's sessions are full, the module counts as hash errors. */
void take_out_full_sessions(drop_counts &drops, std::uint64_t full)
{
    drops[drop_reason::hash_error] -= std::min(drops[drop_reason::hash_error], full);
    drops[drop_reason::max_sessions] = full;
}

/** By the listeners, before the module saw the packet, and by the module. */
drop_counts drops_until(const figures &now)
{
    drop_counts all = olv_fastpath::drops_in(now.module.value_or(olv_twamp_global_stats{}));
    for (const listener_figures &each : now.listeners) {
        all += each.counters.dropped_packets;
    }
    std::uint64_t full = 0;
    for (const responder_figures &each : now.responders) {
        full += full_sessions(&each);
    }
    take_out_full_sessions(all, full);
    return all;
}

drop_counts drops_between(const figures &before, const figures &now)
{
    drop_counts all;
    const olv_twamp_global_stats module = before.module.value_or(olv_twamp_global_stats{});
    const drop_counts module_before = olv_fastpath::drops_in(module);
    const drop_counts module_now = olv_fastpath::drops_in(now.module.value_or(module));
    for (const drop_reason_entry &each : drop_reasons) {
        all[each.reason] = difference(static_cast<std::uint32_t>(module_before[each.reason]),
                                      static_cast<std::uint32_t>(module_now[each.reason]));
    }
    const earlier listeners_before{before.listeners, &listener_figures::address};
    for (const listener_figures &each : now.listeners) {
        const listener_figures *then = listeners_before.same_as(each);
        for (const drop_reason_entry &entry : drop_reasons) {
            const std::uint64_t count = each.counters.dropped_packets[entry.reason];
            const std::uint64_t had = then == nullptr ? 0 : then->counters.dropped_packets[entry.reason];
            all[entry.reason] += count < had ? count : count - had; // less: another one at the same address
        }
    }
    const earlier responders_before{before.responders, &responder_figures::id};
    std::uint64_t full = 0;
    for (const responder_figures &each : now.responders) {
        full += difference(full_sessions(responders_before.same_as(each)), full_sessions(&each));
    }
    take_out_full_sessions(all, full);
    return all;
}

/** "max_sessions 14 (7.0/s)", for each reason that has dropped something. */
std::vector<std::string> reasons(const drop_counts &total, const drop_counts &lately, double seconds)
{
    std::vector<std::string> texts;
    for (const drop_reason_entry &each : drop_reasons) {
        if (total[each.reason] != 0) {
            texts.push_back(formatted("%s %" PRIu64 " (%.1f/s)", each.name, total[each.reason],
                                      rate(lately[each.reason], seconds)));
        }
    }
    return texts;
}

/** As many to a line as it holds. */
std::string drop_lines(const std::vector<std::string> &texts)
{
    std::string lines = "drops  ";
    std::size_t column = lines.size();
    for (const std::string &each : texts) {
        if (column > drops_indent && column + 2 + each.size() > columns) {
            lines += "\n       ";
            column = drops_indent - 2;
        }
        lines += "  " + each;
        column += 2 + each.size();
    }
    return lines + (texts.empty() ? "  none\n" : "\n");
}

/** In UTC. @param format  Of strftime(). */
std::string time_text(double seconds, const char *format)
{
    const auto whole = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[32] = "(no time)";
    if (gmtime_r(&whole, &parts) != nullptr) {
        (void)std::strftime(text, sizeof text, format, &parts); // fits
    }
    return text;
}

/** "received 1000.0/s  sent 999.0/s  dropped 1.0/s  sessions 3". */
std::string rates_text(const figures &before, const figures &now, const drop_counts &dropped)
{
    const double seconds = now.taken_at - before.taken_at;
    const olv_twamp_global_stats then = before.module.value_or(olv_twamp_global_stats{});
    const olv_twamp_global_stats counted = now.module.value_or(then);
    return formatted("received %.1f/s  sent %.1f/s  dropped %.1f/s  sessions %zu",
                     rate(difference(then.total_rx, counted.total_rx), seconds),
                     rate(difference(then.total_tx, counted.total_tx), seconds), rate(dropped.sum(), seconds),
                     now.sessions.size());
}

using earlier_responders = earlier<responder_figures, std::uint32_t>;

std::string responder_line(const earlier_responders &before, const responder_figures &now, double seconds)
{
    if (!now.counters) {
        return formatted("%-22s cannot be read\n", shortened(now.name, 22).c_str());
    }
    const responder_figures *then = before.same_as(now);
    const std::uint32_t received = then != nullptr && then->counters ? then->counters->received : 0;
    return formatted("%-22s %11u %11u %11u %8u %11.1f\n", shortened(now.name, 22).c_str(),
                     now.counters->received, now.counters->transmitted, drops(*now.counters),
                     now.counters->active_sessions,
                     rate(difference(received, now.counters->received), seconds));
}

std::string session_line(const session_figures &now)
{
    return formatted("%-28s %-14s %9u %8.1f s %s\n", shortened(now.sender, 28).c_str(),
                     shortened(now.responder, 14).c_str(), now.replies, now.idle_seconds,
                     round_trip_text(now.round_trip_seconds).c_str());
}

/** As many lines as there is room for, and how many there are more. */
template <typename Items, typename LineOf>
std::string lines_of(const Items &items, std::size_t room, const LineOf &line_of)
{
    const std::size_t shown = items.size() <= room ? items.size() : std::max<std::size_t>(room, 1) - 1;
    std::string lines;
    for (std::size_t index = 0; index < shown; ++index) {
        lines += line_of(items[index]);
    }
    if (shown < items.size()) {
        lines += formatted("and %zu more\n", items.size() - shown);
    }
    return lines;
}

} // namespace

std::string watch_line(const figures &before, const figures &now)
{
    const double seconds = now.taken_at - before.taken_at;
    const drop_counts dropped = drops_between(before, now);
    std::string line = time_text(now.taken_at, "%FT%TZ") + "  " + rates_text(before, now, dropped);
    for (const std::string &each : reasons(drops_until(now), dropped, seconds)) {
        line += "  " + each;
    }
    return line + "\n";
}

std::string watch_screen(const figures &before, const figures &now, std::size_t rows)
{
    const double seconds = now.taken_at - before.taken_at;
    const drop_counts dropped = drops_between(before, now);
    const drop_counts total = drops_until(now);
    const olv_twamp_global_stats counters = now.module.value_or(olv_twamp_global_stats{});
    std::string screen = formatted("processor %s, module %s, %s, every %.1f s, Ctrl-C ends\n",
                                   shortened(now.processor, 20).c_str(), now.module_up ? "up" : "down",
                                   time_text(now.taken_at, "%T UTC").c_str(), seconds);
    screen += "now      " + rates_text(before, now, dropped) + "\n";
    screen += formatted("total    received %u  sent %u  dropped %" PRIu64 "\n", counters.total_rx,
                        counters.total_tx, total.sum());
    screen += drop_lines(reasons(total, dropped, seconds));
    screen += formatted("\n%-22s %11s %11s %11s %8s %11s\n", "RESPONDER", "RECEIVED", "SENT", "DROPPED",
                        "SESSIONS", "RECEIVED/S");
    // Two lines more come below the responders, and the cursor stands in one.
    const std::size_t used = static_cast<std::size_t>(std::count(screen.begin(), screen.end(), '\n')) + 3;
    const std::size_t room = std::max<std::size_t>(rows, used + 2) - used;
    const earlier_responders responders_before{before.responders, &responder_figures::id};
    screen += lines_of(now.responders, room / 2, [&](const responder_figures &each) {
        return responder_line(responders_before, each, seconds);
    });
    screen +=
        formatted("\n%-28s %-14s %9s %10s %12s\n", "SENDER", "RESPONDER", "REPLIES", "IDLE", "ROUND TRIP");
    const std::vector<session_figures> youngest_first{now.sessions.rbegin(), now.sessions.rend()};
    return screen + lines_of(youngest_first, room - room / 2, session_line);
}

} // namespace twampctl
