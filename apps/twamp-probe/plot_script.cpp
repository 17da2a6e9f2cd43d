#include "apps/twamp-probe/plot_script.hpp"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstring>

#include "apps/common/formatted.hpp"
#include "apps/common/run_report.hpp"
#include "apps/twamp-probe/histogram.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;
using results = std::vector<const measurement *>;

constexpr std::size_t moments = 5000;
constexpr std::size_t loss_marks = 40; ///< So that their numbers stand beside each other.
constexpr std::size_t histogram_bars = 100;

/** Letters, digits and what addresses and sizes are written with: nothing that ends a text of gnuplot's. */
std::string harmless(std::string text)
{
    std::erase_if(text, [](char letter) {
        return std::strchr(" .:,%[]-_", letter) == nullptr && !(letter >= '0' && letter <= '9') &&
               !(letter >= 'a' && letter <= 'z') && !(letter >= 'A' && letter <= 'Z');
    });
    return text;
}

double seconds(std::int64_t nanoseconds)
{
    return static_cast<double>(nanoseconds) / 1e9;
}

/** Just after the last packet was sent, in nanoseconds. */
std::int64_t end_of(const results &sessions)
{
    std::int64_t end = 1;
    for (const measurement *session : sessions) {
        end = session->records().empty() ? end : std::max(end, session->records().back().sent_at + 1);
    }
    return end;
}

/** In which of so many equal slices of the time a packet was sent. */
std::size_t slice_of(const packet_record &record, std::int64_t end, std::size_t slices)
{
    const double place = static_cast<double>(record.sent_at) / static_cast<double>(end);
    return std::min(slices - 1, static_cast<std::size_t>(place * static_cast<double>(slices)));
}

struct slot {
    const packet_record *shortest = nullptr;
    const packet_record *longest = nullptr;
};

/** Of each slice of time, the shortest and the longest delay. */
std::vector<slot> slots_of(const results &sessions, path which)
{
    const std::int64_t end = end_of(sessions);
    std::vector<slot> slots(moments);
    for (const measurement *session : sessions) {
        for (const packet_record &record : session->records()) {
            if (!record.has(which)) {
                continue;
            }
            slot &own = slots[slice_of(record, end, moments)];
            const bool first = own.shortest == nullptr;
            const std::int64_t delay = record.delay(which);
            own.shortest = first || delay < own.shortest->delay(which) ? &record : own.shortest;
            own.longest = first || delay > own.longest->delay(which) ? &record : own.longest;
        }
    }
    return slots;
}

std::int64_t shortest(const std::vector<slot> &slots, path which)
{
    std::int64_t least = INT64_MAX;
    for (const slot &own : slots) {
        least = own.shortest == nullptr ? least : std::min(least, own.shortest->delay(which));
    }
    return least;
}

/** @param above  What is taken from each. */
void append_points(std::string &script, const char *name, const std::vector<slot> &slots, path which,
                   std::int64_t above)
{
    const auto append_point = [&](const packet_record &of) {
        append(script, "%.6f %.3f\n", seconds(of.sent_at), microseconds(of.delay(which) - above));
    };
    append(script, "$%s << END\n", name);
    for (const slot &own : slots) {
        if (own.shortest != nullptr) {
            append_point(*own.shortest);
        }
        if (own.longest != own.shortest) {
            append_point(*own.longest);
        }
    }
    script += "END\n";
}

/** Packets without a reply, at the middle of their times, and how many they are. @return How many in all. */
std::uint64_t append_losses(std::string &script, const results &sessions)
{
    struct losses {
        double seconds = 0; ///< Of all together.
        std::uint64_t packets = 0;
    };
    std::array<losses, loss_marks> marks{};
    const std::int64_t end = end_of(sessions);
    std::uint64_t lost = 0;
    for (const measurement *session : sessions) {
        for (const packet_record &record : session->records()) {
            if (!record.answered) {
                losses &own = marks[slice_of(record, end, loss_marks)];
                own.seconds += seconds(record.sent_at);
                ++own.packets;
                ++lost;
            }
        }
    }
    script += "$lost << END\n";
    for (const losses &own : marks) {
        if (own.packets != 0) {
            append(script, "%.6f %" PRIu64 "\n", own.seconds / static_cast<double>(own.packets), own.packets);
        }
    }
    script += "END\n";
    return lost;
}

void append_bars(std::string &script, const histogram &figures)
{
    script += "$bars << END\n";
    for (std::size_t index = 0; index < figures.bars.size(); ++index) {
        const auto width = static_cast<double>(figures.width);
        const double middle = static_cast<double>(figures.start) + width * (static_cast<double>(index) + 0.5);
        append(script, "%.3f %llu\n", middle / 1e3, static_cast<unsigned long long>(figures.bars[index]));
    }
    script += "END\n";
}

constexpr const char *dots = "with points pointtype 7 pointsize 0.3";

/** Marks stand at the lower edge, whatever the delays are. */
void plot_round_trips(std::string &script, std::uint64_t lost)
{
    append(script, "set ylabel 'round trip (us)'\nset y2range [0:1]\nplot $round_trip using 1:2 %s notitle",
           dots);
    if (lost != 0) {
        append(script,
               ", $lost using 1:(0.03) axes x1y2 with points pointtype 2 linecolor 'red' title 'lost %" PRIu64
               "', $lost using 1:(0.03):2 axes x1y2 with labels offset 0,0.8 textcolor 'red' notitle",
               lost);
    }
    script += "\n";
}

void plot_one_way(std::string &script, std::int64_t shortest_forward, std::int64_t shortest_backward)
{
    append(script,
           "set ylabel 'one way, above the shortest (us)'\n"
           "plot $forward using 1:2 %s title 'forward, shortest %.3f us', "
           "$backward using 1:2 %s title 'backward, shortest %.3f us'\n",
           dots, microseconds(shortest_forward), dots, microseconds(shortest_backward));
}

void plot_bars(std::string &script, const histogram &figures)
{
    script += figures.has_above ? "set xlabel 'round trip (us), the last bar and above'\n"
                                : "set xlabel 'round trip (us)'\n";
    append(script,
           "set ylabel 'packets'\nset xrange [*:*]\nset yrange [0:*]\nset boxwidth %.3f\n"
           "set style fill solid 0.6\nplot $bars using 1:2 with boxes notitle\n",
           static_cast<double>(figures.width) / 1e3);
}

} // namespace

std::string plot_script(const results &sessions, const std::string &title, bool png)
{
    std::vector<std::int64_t> samples;
    for (const measurement *session : sessions) {
        session->append_delays(path::round_trip, {}, samples);
    }
    const histogram figures = histogram_of(std::move(samples), histogram_bars);
    const std::vector<slot> forward = slots_of(sessions, path::forward);
    const std::vector<slot> backward = slots_of(sessions, path::backward);
    const std::int64_t shortest_forward = shortest(forward, path::forward);
    const std::int64_t shortest_backward = shortest(backward, path::backward);
    std::string script = png ? "set terminal pngcairo noenhanced size 1000,1100\n"
                             : "set terminal svg noenhanced size 1000,1100 background rgb 'white'\n";
    append_points(script, "round_trip", slots_of(sessions, path::round_trip), path::round_trip, 0);
    append_points(script, "forward", forward, path::forward, shortest_forward);
    append_points(script, "backward", backward, path::backward, shortest_backward);
    const std::uint64_t lost = append_losses(script, sessions);
    append_bars(script, figures);
    script += "set multiplot layout 3,1 title '" + harmless(title) + "'\nset grid\nset key above\n";
    append(script, "set xlabel 'sent after (s)'\nset xrange [0:%.6f]\n", seconds(end_of(sessions)));
    plot_round_trips(script, lost);
    plot_one_way(script, shortest_forward, shortest_backward);
    plot_bars(script, figures);
    return script + "unset multiplot\n";
}

} // namespace olv_probe
