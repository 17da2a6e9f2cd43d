#include "apps/twampctl/console/watch.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <utility>
#include <vector>

#include <sys/ioctl.h>
#include <unistd.h>

#include "apps/common/formatted.hpp"
#include "apps/twampctl/figures/figures_formats.hpp"
#include "apps/twampctl/figures/figures_output.hpp"

namespace twampctl {
namespace {

using olv_apps::formatted;

constexpr std::size_t usual_rows = 24;
constexpr std::size_t fixed_rows = 10; ///< Lines around those of the responders and the sessions.

/** Counters are 32 bits wide and go round; so does their difference. */
double rate(std::uint32_t before, std::uint32_t now, double seconds)
{
    return seconds > 0 ? static_cast<double>(static_cast<std::uint32_t>(now - before)) / seconds : 0;
}

/** As the counters do, their sum goes round. */
template <typename Record> std::uint32_t drops(const Record &counters)
{
    return static_cast<std::uint32_t>(olv_fastpath::drops_in(counters).sum());
}

std::string round_trip_text(const std::optional<double> &seconds)
{
    return seconds ? formatted("%9.1f us", *seconds * 1e6) : "          - ";
}

/** "no_responder 3, hash_error 1", without those that are 0. */
std::string reasons_text(const std::vector<drop_figure> &drops)
{
    std::string text;
    for (const drop_figure &drop : drops) {
        if (drop.packets != 0) {
            text += formatted("%s%s %" PRIu64, text.empty() ? "" : ", ", drop.name, drop.packets);
        }
    }
    return text.empty() ? "none" : shortened(text, 71);
}

/** By the module, and before it saw the packet by all listeners together. */
std::string drop_lines(const figures &now)
{
    olv_fastpath::listener_statistics before;
    for (const listener_figures &each : now.listeners) {
        before += each.counters;
    }
    return formatted("drops    %s\n  before %s\n",
                     reasons_text(drops_of(now.module.value_or(olv_twamp_global_stats{}))).c_str(),
                     reasons_text(drops_of(before)).c_str());
}

const responder_figures *same_responder(const figures &in, const responder_figures &as)
{
    const auto found = std::find_if(in.responders.begin(), in.responders.end(),
                                    [&](const responder_figures &each) { return each.id == as.id; });
    return found == in.responders.end() ? nullptr : &*found;
}

std::string responder_line(const figures &before, const responder_figures &now, double seconds)
{
    if (!now.counters) {
        return formatted("%-22s cannot be read\n", shortened(now.name, 22).c_str());
    }
    const responder_figures *then = same_responder(before, now);
    const std::uint32_t received = then != nullptr && then->counters ? then->counters->received : 0;
    return formatted("%-22s %11u %11u %11u %8u %11.1f\n", shortened(now.name, 22).c_str(),
                     now.counters->received, now.counters->transmitted, drops(*now.counters),
                     now.counters->active_sessions, rate(received, now.counters->received, seconds));
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

std::size_t rows_of_terminal()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : usual_rows;
}

/** Draw over the screen before, which has so many lines. */
void redraw(const std::string &screen, std::size_t lines)
{
    if (lines > 0) {
        std::printf("\033[%zuA\033[J", lines);
    }
    (void)std::fputs(screen.c_str(), stdout); // an error shows at exit
    (void)std::fflush(stdout);
}

} // namespace

std::string watch_line(const figures &before, const figures &now)
{
    const double seconds = now.taken_at - before.taken_at;
    const olv_twamp_global_stats then = before.module.value_or(olv_twamp_global_stats{});
    const olv_twamp_global_stats counted = now.module.value_or(then);
    return formatted("received %.1f/s  sent %.1f/s  dropped %.1f/s  sessions %zu\n",
                     rate(then.total_rx, counted.total_rx, seconds),
                     rate(then.total_tx, counted.total_tx, seconds), rate(drops(then), drops(counted), seconds),
                     now.sessions.size());
}

std::string watch_screen(const figures &before, const figures &now, std::size_t rows)
{
    const double seconds = now.taken_at - before.taken_at;
    const std::size_t room = rows > fixed_rows + 2 ? rows - fixed_rows : 2;
    const olv_twamp_global_stats counters = now.module.value_or(olv_twamp_global_stats{});
    std::string screen =
        formatted("processor %s, module %s, every %.1f s, Ctrl-C ends\n", shortened(now.processor, 20).c_str(),
                  now.module_up ? "up" : "down", seconds);
    screen += "now      " + watch_line(before, now);
    screen += formatted("total    received %u  sent %u  dropped %u\n", counters.total_rx, counters.total_tx,
                        drops(counters));
    screen += drop_lines(now);
    screen += formatted("\n%-22s %11s %11s %11s %8s %11s\n", "RESPONDER", "RECEIVED", "SENT", "DROPPED",
                        "SESSIONS", "RECEIVED/S");
    screen += lines_of(now.responders, room / 2,
                       [&](const responder_figures &each) { return responder_line(before, each, seconds); });
    screen +=
        formatted("\n%-28s %-14s %9s %10s %12s\n", "SENDER", "RESPONDER", "REPLIES", "IDLE", "ROUND TRIP");
    const std::vector<session_figures> youngest_first{now.sessions.rbegin(), now.sessions.rend()};
    return screen + lines_of(youngest_first, room - room / 2, session_line);
}

bool watch(const std::function<figures()> &collect, const olv_apps::signal_watch &signals,
           const watch_options &options)
{
    using clock = std::chrono::steady_clock;
    const clock::time_point start = clock::now();
    const bool in_place = isatty(STDOUT_FILENO) != 0;
    std::size_t drawn = 0;
    figures before = collect();
    for (std::uint32_t turn = 0; turn < options.count.value_or(UINT32_MAX); ++turn) {
        std::chrono::nanoseconds pause = options.interval;
        if (options.duration) {
            pause = std::min(pause, *options.duration - std::chrono::nanoseconds(clock::now() - start));
        }
        if (signals.wait(pause)) {
            return true;
        }
        figures now = collect();
        if (options.format != output_format::text) {
            std::printf("%s", format(now, options.format).c_str());
        } else if (in_place) {
            const std::string screen = watch_screen(before, now, rows_of_terminal());
            redraw(screen, drawn);
            drawn = static_cast<std::size_t>(std::count(screen.begin(), screen.end(), '\n'));
        } else {
            std::printf("%s", watch_line(before, now).c_str());
        }
        before = std::move(now);
        if (options.duration && clock::now() - start >= *options.duration) {
            return false;
        }
    }
    return false;
}

} // namespace twampctl
