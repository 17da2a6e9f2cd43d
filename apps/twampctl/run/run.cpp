#include "apps/twampctl/run/run.hpp"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <list>

#include "apps/common/errors.hpp"
#include "apps/common/formatted.hpp"
#include "apps/common/signal_watch.hpp"
#include "apps/twampctl/console/document_output.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/console/trace_output.hpp"
#include "apps/twampctl/console/watch.hpp"
#include "apps/twampctl/figures/figures_formats.hpp"
#include "apps/twampctl/figures/figures_output.hpp"
#include "apps/twampctl/figures/metrics_server.hpp"
#include "apps/twampctl/program_name.hpp"
#include "apps/twampctl/site/site.hpp"

namespace twampctl {
namespace {

using olv_apps::append;

site_options options_for(const run_options &options)
{
    return {.name = "main",
            .program = olv_sim::classifier_program::twamp(options.capacity),
            .fast_path = options.fast_path};
}

void print_listener(const std::string &address, const olv_fastpath::listener_statistics &counted)
{
    std::string lines;
    for (const drop_figure &drop : drops_of(counted)) {
        if (drop.packets != 0) {
            append(lines, "Packets dropped due to %s: %" PRIu64 "\n", drop.text, drop.packets);
        }
    }
    if (counted.failed_replies != 0) {
        append(lines, "Replies that could not be sent: %" PRIu64 "\n", counted.failed_replies);
    }
    if (!lines.empty()) {
        std::printf("\nStatistics of listener %s (Non-zero only):\n%s", address.c_str(), lines.c_str());
    }
}

/** Says that new senders are refused, at most once a minute. */
class refusal_notice {
  public:
    /** @param refused  Packets so far; their number goes round. */
    void look(std::uint32_t refused)
    {
        const clock::time_point now = clock::now();
        if (refused == told_ || (last_ && now - *last_ < std::chrono::minutes(1))) {
            return;
        }
        say("sessions refused: %" PRIu32 " packets of new senders, as all sessions of the responder are busy "
            "(see --sessions)",
            refused - told_);
        told_ = refused;
        last_ = now;
    }

  private:
    using clock = std::chrono::steady_clock;

    std::uint32_t told_ = 0;
    std::optional<clock::time_point> last_;
};

/** A run, step by step; each step throws what went wrong. */
class course {
  public:
    course(const run_options &options, const document_output &document)
        : options_(options), document_(document), site_(options_for(options))
    {}

    void bring_up();
    void listen();
    /** Print that packets are answered, and where. */
    void announce() const { say("%s", ready_.c_str()); }
    void stop_listening() { site_.stop(); }
    [[nodiscard]] figures collect() { return site_.collect(); }
    [[nodiscard]] std::string reason_against_answering() const { return site_.reason_against_answering(); }
    void tell_refusals() { refusals_.look(site_.refused_packets()); }
    void report();
    /** @return Whether all of it worked. */
    bool take_down() { return site_.tear_down(); }
    [[nodiscard]] platform_usage usage() const { return site_.usage(); }

  private:
    void bind();
    void print_statistics();
    void print_imc();

    const run_options &options_;
    const document_output &document_;
    site site_;
    std::string ready_;
    refusal_notice refusals_;
};

void course::bring_up()
{
    (void)site_.initialise(); // never up before
    if (options_.log_level) {
        site_.set_log_level(*options_.log_level);
        say("log level %u", *options_.log_level);
    }
    for (std::uint32_t index = 0; index < options_.responders; ++index) {
        // The two parameters of a responder mean nothing to this fast path.
        (void)site_.create_responder({.name = {}, .info = {}, .sessions = options_.sessions});
    }
    bind();
}

/** To the IPv4 and the IPv6 module, as far as the addresses need them. */
void course::bind()
{
    for (const output to : {output::ipv4, output::ipv6}) {
        const auto needs = [to](const auto &place) { return output_for(place.address.family()) == to; };
        if (std::any_of(options_.places.begin(), options_.places.end(), needs)) {
            bind_request request;
            request.to = to;
            site_.bind(request);
        }
    }
}

void course::listen()
{
    ready_ = "ready";
    const std::vector<named_responder> &responders = site_.responders();
    for (const listen_place &each : options_.places) {
        const named_responder &answers = responders[each.listener % responders.size()];
        ready_ +=
            " " + site_.listen(each.address, {.responder_id = answers.handle->responder_id,
                                              .bind_key = usual_bind_key(output_for(each.address.family()))});
    }
    site_.start();
}

void course::report()
{
    if (options_.format == output_format::text) {
        print_statistics();
    } else {
        document_.write(format(collect(), options_.format));
    }
    if (options_.tables) {
        std::printf("Tables:");
        site_.require(olv_twamp_tables_dump(site_.module(), OLV_TWAMP_TABLE_GROUP_ALL), "print the tables");
        std::printf("\n");
    }
    if (options_.imc) {
        print_imc();
    }
}

void course::print_statistics()
{
    for (const named_responder &each : site_.responders()) {
        std::printf("\nStatistics of responder %s, ID 0x%X:", each.name.c_str(), each.handle->responder_id);
        (void)olv_twamp_responder_stats_print(site_.module(), each.handle); // always 0
    }
    std::printf("\nStatistics of the module:");
    (void)olv_twamp_global_stats_print(site_.module()); // always 0
    for (const std::string &address : site_.listeners()) {
        print_listener(address, site_.counters_of(address));
    }
    if (site_.sessions_that_gave_way() != 0) {
        std::printf("\nSessions that gave way: %" PRIu64 "\n", site_.sessions_that_gave_way());
    }
    std::printf("\n");
}

void course::print_imc()
{
    for (const output to : {output::ipv4, output::ipv6}) {
        bind_request request;
        request.to = to;
        std::printf("call to the %s module: tree function 0x%X\n", name_of(to), site_.imc(request));
    }
}

/** Serve the figures, if they are wanted, as long as @p metrics lives. */
void serve_metrics(std::list<metrics_server> &metrics, course &on, const run_options &options)
{
    for (const olv_net::socket_address &each : options.metrics) {
        metrics.emplace_back(
            each, [&on] { return on.collect(); }, [&on] { return on.reason_against_answering(); });
        say("metrics %s", metrics.back().url().c_str());
    }
}

/** @return Whether it was a signal that ended it. */
bool wait_telling_refusals(course &on, const run_options &options, const olv_apps::signal_watch &signals)
{
    using clock = std::chrono::steady_clock;
    const clock::time_point start = clock::now();
    for (;;) {
        std::chrono::nanoseconds pause = std::chrono::seconds(1);
        if (options.duration) {
            pause = std::clamp<std::chrono::nanoseconds>(*options.duration - (clock::now() - start),
                                                         std::chrono::nanoseconds::zero(), pause);
        }
        const bool is_over = signals.wait(pause);
        on.tell_refusals();
        if (is_over || (options.duration && clock::now() - start >= *options.duration)) {
            return is_over;
        }
    }
}

/** @return Whether it was a signal that ended it. */
bool wait_for_end(course &on, const run_options &options, const olv_apps::signal_watch &signals)
{
    if (!options.watch) {
        return wait_telling_refusals(on, options, signals);
    }
    return watch([&on] { return on.collect(); }, signals,
                 {.interval = std::chrono::seconds(1),
                  .count = {},
                  .duration = options.duration,
                  .format = output_format::text});
}

/** @return Whether no step failed before a signal or the end of the duration. */
bool serve(course &on, const run_options &options, const olv_apps::signal_watch &signals)
{
    try {
        std::list<metrics_server> metrics; // ends before anything that it reads is taken down
        on.bring_up();
        on.listen();
        serve_metrics(metrics, on, options);
        on.announce();
        say(wait_for_end(on, options, signals) ? "stopped by a signal" : "end of the duration");
        on.stop_listening();
        on.report();
        return true;
    } catch (const std::exception &error) {
        olv_apps::report_error(program_name, "%s", olv_apps::text_of(error).c_str());
        return false;
    }
}

/** @return Whether nothing is left. */
bool tell_left_behind(const platform_usage &usage)
{
    say("left behind: %s", text_of(usage).c_str());
    if (!usage.is_empty()) {
        olv_apps::report_error(program_name, "something was left behind");
    }
    return usage.is_empty();
}

} // namespace

int run(const run_options &options)
{
    // Before anything else opens a descriptor: it would take the place of a standard output that is closed.
    const document_output document{options.format != output_format::text};
    const olv_apps::signal_watch signals; // before any thread
    const trace_output trace{options.trace_file};
    course on{options, document};
    const bool served = serve(on, options, signals);
    const bool taken_down = on.take_down();
    const bool clean = tell_left_behind(on.usage());
    return served && taken_down && clean ? olv_apps::exit_good : olv_apps::exit_failed;
}

} // namespace twampctl
