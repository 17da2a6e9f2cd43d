#include "run_options.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>

#include "command_line.hpp"

namespace twampctl {
namespace {

using olv_apps::exit_usage;
using olv_apps::report_error;

constexpr const char *description = "Drives the TWAMP module on the software platform.";

constexpr const char *run_description =
    "Brings the module up, answers test packets until SIGINT, SIGTERM or the end of --duration, prints the\n"
    "module's statistics and takes everything down again. Exit status: 0 when nothing was left behind, 1 when\n"
    "something was or a step failed, 2 when it could not begin.";

constexpr std::uint32_t usual_sessions = 32; ///< What the module writes into each responder's state.

constexpr const char *examples = "Examples:\n"
                                 "  twampctl run --listen 127.0.0.1:8620\n"
                                 "  twampctl run --listen 127.0.0.1:0 --listen '[::1]:0' --tables --imc\n"
                                 "  twampctl run --listen '[::]:8620' --stamp-mode stateless --duration 60\n"
                                 "  twampctl run --listen 127.0.0.1:8620 --verbose-step unbind --trace -\n"
                                 "  twampctl run --listen 0.0.0.0:862 --allow 192.0.2.0/24 --min-request 41 "
                                 "--rate 1000";

const std::map<std::string, step> steps = {
    {"bind", step::bind},     {"create", step::create},    {"statistics", step::statistics},
    {"tables", step::tables}, {"imc", step::imc},          {"unbind", step::unbind},
    {"delete", step::remove}, {"shutdown", step::shutdown}};

const std::map<std::string, olv_fastpath::stamp_mode> stamp_modes = {
    {"stateful", olv_fastpath::stamp_mode::stateful}, {"stateless", olv_fastpath::stamp_mode::stateless}};

/** The command line as written. */
struct raw_options {
    std::vector<std::string> addresses;
    std::vector<std::string> prefixes;
    std::uint32_t responders = 0;
    std::uint32_t capacity = 65536;
    double duration_seconds = -1;
    std::optional<std::uint32_t> log_level;
    std::string step;
    std::string stamp_mode = "stateful";
};

template <typename Value> std::vector<std::string> names_of(const std::map<std::string, Value> &map)
{
    std::vector<std::string> names;
    names.reserve(map.size());
    for (const auto &entry : map) {
        names.push_back(entry.first);
    }
    return names;
}

void add_options(CLI::App &run, raw_options &raw, run_options &options)
{
    run.add_option("--listen", raw.addresses, "ADDRESS:PORT to answer packets at; port 0: any (repeatable)")
        ->allow_extra_args(false);
    run.add_option("--responders", raw.responders, "Responders to create (one for each --listen)")
        ->check(CLI::Range(1u, 1'000'000u));
    run.add_option("--capacity", raw.capacity, "Responder IDs that the processor has (65536)")
        ->check(CLI::Range(1u, (1u << 24) - 2));
    run.add_option("--duration", raw.duration_seconds, "Seconds to run; default: until a signal comes")
        ->check(olv_apps::number_between(0.0, 1e9));
    run.add_flag("--tables", options.tables, "Print the classifier tables before taking down");
    run.add_flag("--imc", options.imc, "Print the tree functions that call the IPv4 and the IPv6 module");
    run.add_option("--log-level", raw.log_level, "Log level of the module")
        ->check(CLI::IsMember(std::vector<std::uint32_t>{0, 1, 3, 7, 15}));
    run.add_option("--verbose-step", raw.step, "Log everything during one step")
        ->check(CLI::IsMember(names_of(steps)));
    run.add_option("--trace", options.trace_file, "File for a text trace; -: standard error; lttng: LTTng-UST");
    run.add_option("--stamp-mode", raw.stamp_mode, "Sequence numbers of STAMP replies (stateful)")
        ->check(CLI::IsMember(names_of(stamp_modes)));
    run.add_option("--refwait", options.reflector.refwait_seconds, "Seconds until an idle session ends (900)")
        ->check(CLI::Range(1u, 1'000'000u));
    run.footer(examples);
}

/** What a hostile network is kept off with. */
void add_limits(CLI::App &run, raw_options &raw, run_options &options)
{
    using olv_fastpath::session_table;
    using olv_fastpath::sender_packet::header_length;
    run.add_option("--allow", raw.prefixes,
                   "Answer no other senders than those in PREFIX, as 192.0.2.0/24 or an address (repeatable)")
        ->allow_extra_args(false);
    run.add_option("--min-source-port", options.server.lowest_source_port,
                   "Answer no lower source ports; 1024: no well-known service, nor a reflector at 862 (1)")
        ->check(CLI::Range(1u, 65535u));
    run.add_option("--min-request", options.reflector.minimum_request,
                   "Octets that a request has at least; 41: no reply is longer than its request (14)")
        ->check(CLI::Range(header_length, olv_fastpath::maximum_payload_ipv4));
    run.add_option("--rate", options.server.packets_per_second,
                   "Packets that each responder takes in a second; default: no limit")
        ->check(CLI::Range(1u, 1'000'000'000u));
    run.add_option("--sessions", options.sessions, "Sessions that each responder has at most (32)")
        ->check(CLI::Range(1u, session_table::maximum_capacity));
}

/** Give the session table room for every responder's sessions, so that none of them takes another's.
 *  @return Whether there can be as much. */
bool make_room_for_sessions(run_options &options)
{
    const std::uint64_t reached = std::min<std::uint64_t>(options.responders, options.addresses.size());
    const std::uint32_t each = options.sessions.value_or(usual_sessions);
    if (reached * each > olv_fastpath::session_table::maximum_capacity) {
        report_error(program_name, "%llu responders have no room for %u sessions each, but for %u together",
                     static_cast<unsigned long long>(reached), each,
                     olv_fastpath::session_table::maximum_capacity);
        return false;
    }
    std::uint32_t &capacity = options.reflector.session_capacity;
    capacity = std::max(capacity, static_cast<std::uint32_t>(reached * each));
    return true;
}

/** @return Whether there is something to listen on, all of it is an address, and all prefixes are prefixes. */
bool take_addresses(const raw_options &raw, run_options &options)
{
    if (raw.addresses.empty()) {
        report_error(program_name, "no address to listen on; give one such as --listen 127.0.0.1:8620");
        return false;
    }
    try {
        for (const std::string &text : raw.addresses) {
            options.addresses.push_back(olv_fastpath::parse_listen_address(text));
        }
        for (const std::string &text : raw.prefixes) {
            options.server.allowed_sources.add(olv_fastpath::parse_address_prefix(text));
        }
        return true;
    } catch (const std::exception &error) {
        report_error(program_name, "%s", error.what());
        return false;
    }
}

} // namespace

std::optional<int> read_options(int argc, char **argv, run_options &options)
{
    CLI::App app{description, program_name};
    raw_options raw;
    CLI::App *run = app.add_subcommand("run", run_description);
    app.footer(examples);
    add_options(*run, raw, options);
    add_limits(*run, raw, options);
    if (const std::optional<int> status = olv_apps::parse_command_line(app, program_name, argc, argv)) {
        return status;
    }
    if (!run->parsed()) {
        (void)std::fputs(app.help().c_str(), stdout); // an error shows at exit
        return exit_usage;
    }
    if (!take_addresses(raw, options)) {
        return exit_usage;
    }
    options.responders =
        raw.responders != 0 ? raw.responders : static_cast<std::uint32_t>(options.addresses.size());
    if (!make_room_for_sessions(options)) {
        return exit_usage;
    }
    options.capacity = raw.capacity;
    options.log_level = raw.log_level;
    if (raw.duration_seconds >= 0) {
        options.duration = std::chrono::nanoseconds(static_cast<std::int64_t>(raw.duration_seconds * 1e9));
    }
    if (!raw.step.empty()) {
        options.verbose_step = steps.at(raw.step);
    }
    options.reflector.mode = stamp_modes.at(raw.stamp_mode);
    return std::nullopt;
}

} // namespace twampctl
