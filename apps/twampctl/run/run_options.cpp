#include "apps/twampctl/run/run_options.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>

#include "apps/common/choices.hpp"
#include "apps/common/command_line.hpp"
#include "apps/twampctl/run/config_options.hpp"
#include "apps/twampctl/site/log_words.hpp"
#include "apps/twampctl/site/site.hpp"
#include "apps/twampctl/site/traffic_options.hpp"

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
                                 "  twampctl run --listen 127.0.0.1:8620 --log-level 15 --trace -\n"
                                 "  twampctl run --listen 0.0.0.0:862 --allow 192.0.2.0/24 --min-request 41\n"
                                 "  twampctl run --config twampctl.json --metrics 127.0.0.1:9862 --format json";

/** The command line as written. */
struct raw_options {
    std::vector<std::string> addresses;
    std::uint32_t responders = 0;
    std::uint32_t capacity = usual_capacity;
    double duration_seconds = -1;
    std::optional<std::uint32_t> log_level;
    traffic_options traffic;
    std::optional<std::string> metrics;
    std::string format = "text";
    std::optional<std::string> config;
    bool check = false;
};

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
    add_log_level(run.add_option("--log-level", raw.log_level, "Log level of the module: 0, 1, 3, 7 or 15"));
    run.add_option("--trace", options.trace_file, "File for a text trace; -: standard error; lttng: LTTng-UST")
        ->type_name("FILE");
    run.add_option("--metrics", raw.metrics, "ADDRESS:PORT to serve metrics at, for Prometheus; port 0: any");
    one_of(run.add_option("--format", raw.format,
                          "Format of the figures at the end (text); other than text: they alone go to standard "
                          "output, everything else to standard error"),
           {"json", "prometheus", "text"});
    CLI::Option *config = run.add_option("--config", raw.config,
                                         "JSON file with options by their names; those "
                                         "of the command line win")
                              ->type_name("FILE");
    run.add_flag("--check", raw.check, "Check the configuration, run nothing")->needs(config);
    add_traffic_options(run, raw.traffic);
    run.add_option("--sessions", options.sessions, "Sessions that each responder has at most (32)")
        ->check(CLI::Range(1u, olv_fastpath::session_table::maximum_capacity));
    run.add_flag("--watch", options.watch, "Show rates, drops and sessions every second while it runs");
    run.footer(examples);
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
    // The system may hand all senders to one of the workers.
    std::uint32_t &capacity = options.workers.reflector.session_capacity;
    capacity = std::max(capacity, static_cast<std::uint32_t>(reached * each) * options.workers.count);
    return true;
}

/** @throw std::runtime_error  One line: a text that is no address, or no prefix. */
void take_addresses(const raw_options &raw, run_options &options)
{
    for (const std::string &text : raw.addresses) {
        options.addresses.push_back(olv_net::parse_socket_address(text));
    }
    raw.traffic.apply(options.workers);
    if (raw.metrics) {
        options.metrics = olv_net::parse_socket_address(*raw.metrics);
    }
}

/** The command line's grammar, and the places that it fills. */
struct grammar {
    grammar()
    {
        app.footer(examples);
        add_options(*run, raw, options);
    }

    raw_options raw;
    run_options options;
    CLI::App app{description, program_name};
    CLI::App *run = app.add_subcommand("run", run_description);
};

/** @return Why a run with these options alone would not be taken; empty: it would. */
std::string reason_against_running_with(const std::vector<std::string> &words)
{
    grammar alone;
    std::vector<std::string> reversed{words.rbegin(), words.rend()}; // the parser takes them from the end
    try {
        alone.run->parse(std::move(reversed));
        take_addresses(alone.raw, alone.options);
        return {};
    } catch (const std::exception &error) {
        return error.what();
    }
}

/** Put the file's options behind those of the command line, but for what the latter says itself.
 *  @return Whether all of the file is good; otherwise it is said what is not. */
bool add_config(const grammar &given, std::vector<std::string> &words)
{
    try {
        const config_options file = read_run_config(read_config_file(*given.raw.config));
        for (const config_error &error : file.errors) {
            report_error(program_name, "%s:%zu: %s", given.raw.config->c_str(), error.line,
                         error.reason.c_str());
        }
        for (const config_option &option : file.options) {
            if (given.run->get_option("--" + option.key)->count() == 0) {
                words.insert(words.end(), option.words.begin(), option.words.end());
            }
        }
        return file.errors.empty();
    } catch (const std::exception &error) {
        report_error(program_name, "%s", error.what());
        return false;
    }
}

std::optional<int> parse(grammar &into, std::vector<std::string> &words)
{
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return olv_apps::parse_command_line(into.app, program_name, static_cast<int>(words.size()),
                                        arguments.data());
}

/** Check and convert what was written. @return Whether it can be run with. */
bool convert(const raw_options &raw, run_options &options)
{
    if (raw.addresses.empty()) {
        report_error(program_name, "no address to listen on; give one such as --listen 127.0.0.1:8620");
        return false;
    }
    try {
        take_addresses(raw, options);
    } catch (const std::exception &error) {
        report_error(program_name, "%s", error.what());
        return false;
    }
    options.responders =
        raw.responders != 0 ? raw.responders : static_cast<std::uint32_t>(options.addresses.size());
    if (!make_room_for_sessions(options)) {
        return false;
    }
    options.capacity = raw.capacity;
    options.log_level = raw.log_level;
    if (raw.duration_seconds >= 0) {
        options.duration = std::chrono::nanoseconds(static_cast<std::int64_t>(raw.duration_seconds * 1e9));
    }
    options.format = output_formats.at(raw.format);
    return true;
}

} // namespace

void describe_run(CLI::App &run)
{
    struct places {
        raw_options raw;
        run_options options;
    };
    const auto kept = std::make_shared<places>();
    add_options(run, kept->raw, kept->options);
    run.callback([kept] {}); // as long as the command
}

std::vector<std::string> run_config_keys()
{
    const grammar command;
    return config_keys(*command.run);
}

config_options read_run_config(std::string_view text)
{
    const grammar command;
    return options_of(parse_config(text), *command.run, reason_against_running_with);
}

std::optional<int> read_options(int argc, char **argv, run_options &options)
{
    std::vector<std::string> words{argv, argv + argc};
    grammar given;
    if (const std::optional<int> status = parse(given, words)) {
        return status;
    }
    if (!given.run->parsed()) {
        (void)std::fputs(given.app.help().c_str(), stdout); // an error shows at exit
        return exit_usage;
    }
    if (given.raw.config && !add_config(given, words)) {
        return exit_usage;
    }
    grammar whole;
    if (const std::optional<int> status = parse(whole, words)) {
        return status;
    }
    if (!convert(whole.raw, whole.options)) {
        return exit_usage;
    }
    if (whole.raw.check) {
        std::printf("%s: good\n", whole.raw.config->c_str());
        return olv_apps::exit_good;
    }
    options = std::move(whole.options);
    return std::nullopt;
}

} // namespace twampctl
