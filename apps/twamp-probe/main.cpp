#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "apps/common/errors.hpp"
#include "apps/common/json_report.hpp"
#include "apps/common/signal_watch.hpp"
#include "apps/common/text_report.hpp"
#include "apps/common/text_summary.hpp"
#include "apps/twamp-probe/csv_report.hpp"
#include "apps/twamp-probe/histogram.hpp"
#include "apps/twamp-probe/plot.hpp"
#include "apps/twamp-probe/probe_options.hpp"
#include "apps/twamp-probe/progress_line.hpp"
#include "probe/probe.hpp"

namespace {

using namespace olv_probe;
using olv_apps::report_error;

/** How a run ended. */
struct ending {
    bool complete = false;
    std::string error; ///< Why the system ended it, if it did.
};

/** A line for each interval, at once. */
void show_intervals(const probe_options &options, probe &measuring)
{
    if (options.report_interval) {
        measuring.on_interval(*options.report_interval, [&](const interval_figures &figures) {
            const std::string line = options.format == output_format::json
                                         ? interval_json(figures, measuring.started())
                                         : interval_text(figures);
            (void)std::fputs(line.c_str(), stdout); // an error shows when the output is ended
            (void)std::fflush(stdout);              // as above
        });
    }
}

/** SIGUSR1 shows the figures so far where they disturb no other output. */
void show_when_asked(const probe_options &options, probe &measuring, const olv_apps::signal_watch &asked)
{
    measuring.on_readable(asked.descriptor(), [&] {
        (void)asked.take(); // once is enough
        const std::string text = text_summary(report_of(measuring, options.session, true));
        (void)std::fprintf(stderr, "\n%s", text.c_str()); // whoever asked asks again
    });
}

/** A signal ends what has no end of its own: the replies to the last packets are waited for, unless another
 *  signal comes. */
void end_when_told(probe &measuring, const olv_apps::signal_watch &signals)
{
    measuring.on_readable(signals.descriptor(), [&, ending = false]() mutable {
        (void)signals.take(); // which one does not matter
        if (std::exchange(ending, true)) {
            measuring.stop();
        } else {
            measuring.end_sending();
        }
    });
}

/** @throw std::exception  The system refuses before anything was sent. */
ending measure(const probe_options &options, probe &measuring, const olv_apps::signal_watch &signals,
               const olv_apps::signal_watch &asked)
{
    std::optional<progress_line> line;
    if (options.report_interval) {
        show_intervals(options, measuring);
    } else {
        line.emplace(options.session, measuring);
    }
    show_when_asked(options, measuring, asked);
    if (options.session.forever) {
        end_when_told(measuring, signals);
    }
    try {
        return {.complete = measuring.run(options.session.forever ? -1 : signals.descriptor()), .error = ""};
    } catch (const std::exception &error) {
        if (measuring.progress().sent == 0) {
            throw;
        }
        return {.complete = false, .error = error.what()};
    }
}

void print_csv(const probe &measuring)
{
    std::vector<sender_packets> packets;
    for (std::size_t session = 0; session < measuring.session_count(); ++session) {
        packets.push_back({.address = measuring.local_address(session), .result = &measuring.result(session)});
    }
    write_csv(stdout, packets, measuring.started());
}

/** Empty when nothing was measured. */
std::string histogram_of_round_trips(const probe &measuring)
{
    std::vector<std::int64_t> samples;
    for (const measurement *result : measuring.results()) {
        result->append_delays(path::round_trip, {}, samples);
    }
    if (samples.empty()) {
        return "";
    }
    constexpr std::size_t bars = 20;
    return "\nround trips in microseconds, packets\n" + histogram_text(histogram_of(std::move(samples), bars));
}

void print(const probe_options &options, const run_report &report, const probe &measuring)
{
    switch (options.format) {
    case output_format::json:
        (void)std::fputs(json_report(report, options.report_interval.has_value()).c_str(),
                         stdout); // an error shows when the output is ended
        break;
    case output_format::csv:
        print_csv(measuring);
        break;
    default:
        (void)std::fputs(
            text_report(report, options.histogram ? histogram_of_round_trips(measuring) : "").c_str(),
            stdout); // as above
    }
}

/** @return Whether the picture is there, if one was asked for. */
bool draw(const probe_options &options, const probe &measuring)
{
    if (options.plot.empty()) {
        return true;
    }
    try {
        draw_plot(options.plot, measuring.results(), announcement(options.session));
        return true;
    } catch (const std::exception &error) {
        report_error(program_name, "%s", error.what());
        return false;
    }
}

/** @return Whether all output got where it was to go. */
bool end_output()
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    report_error(program_name, "cannot write the figures: %s", std::strerror(errno));
    return false;
}

void report_ending(const probe &measuring, const session_options &options, const ending &end)
{
    const std::string reflector = options.reflector.text();
    if (const int refusal = measuring.refusal(); refusal != 0) {
        const char *reason = refusal == ECONNREFUSED ? "connection refused" : std::strerror(refusal);
        report_error(program_name, "%s: %s", reflector.c_str(), reason);
    }
    if (!end.error.empty()) {
        report_error(program_name, "%s", end.error.c_str());
    } else if (!end.complete) {
        report_error(program_name, "interrupted");
    } else if (measuring.progress().sent == 0) {
        report_error(program_name, "nothing was sent");
    }
}

int measure_and_report(probe_options &options)
{
    if (!options.plot.empty()) {
        require_plot(options.plot); // before, and not after hours
    }
    const olv_apps::signal_watch signals{SIGINT, SIGTERM, SIGHUP};
    const olv_apps::signal_watch asked{SIGUSR1};
    options.session.reflector = resolve(options.reflector, options.family);
    probe measuring{options.session};
    if (options.format == output_format::text) {
        (void)std::fputs(announcement(options.session).c_str(), stdout); // as above
    }
    const ending end = measure(options, measuring, signals, asked);
    const run_report report = report_of(measuring, options.session, end.complete);
    print(options, report, measuring);
    const bool written = end_output();
    report_ending(measuring, options.session, end);
    const bool drawn = draw(options, measuring);
    const packet_counts &counts = report.total.counts;
    if (end.complete && counts.sent == 0) {
        return olv_apps::exit_usage;
    }
    // Sending less than asked for is a failure, too: the system took no more packets.
    const bool all_sent = options.session.duration || options.session.forever ||
                          counts.sent == std::uint64_t{options.session.count} * options.session.senders;
    const bool good = end.complete && all_sent && is_complete(report);
    return good && written && drawn ? olv_apps::exit_good : olv_apps::exit_failed;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        probe_options options;
        if (const std::optional<int> status = read_options({argv + 1, argv + argc}, options)) {
            return *status;
        }
        return measure_and_report(options);
    } catch (const std::exception &error) {
        report_error(program_name, "%s", olv_apps::text_of(error).c_str());
        return olv_apps::exit_usage;
    }
}
