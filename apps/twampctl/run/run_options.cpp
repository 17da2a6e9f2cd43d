#include "apps/twampctl/run/run_options.hpp"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "apps/common/command_line.hpp"
#include "apps/common/errors.hpp"
#include "apps/twampctl/run/check_run.hpp"
#include "apps/twampctl/run/config_options.hpp"
#include "apps/twampctl/site/log_words.hpp"
#include "apps/twampctl/site/traffic_options.hpp"
#include "net/listen_addresses.hpp"

namespace twampctl {
namespace {

using olv_apps::exit_usage;
using olv_apps::report_error;

constexpr const char *description =
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

/** A run's options as written. */
struct run_input {
    std::vector<std::string> addresses;
    std::optional<double> duration_seconds;
    traffic_options traffic;
    std::optional<std::string> metrics;
    std::string format = "text";
    std::optional<std::string> config;
    bool check = false;
    run_options rest; ///< What needs no conversion.
};

void add_options(olv_apps::command to, run_input &input)
{
    run_options &rest = input.rest;
    to.add_option("--listen", input.addresses,
                  "ADDRESS:PORT to answer packets at; a name for ADDRESS: all that it has here; * or nothing: "
                  "all; port 0: "
                  "any (repeatable)")
        .repeatable();
    to.add_option("--responders", rest.responders, "Responders to create (one for each --listen)")
        .whole_number_between(1, 1'000'000);
    to.add_option("--capacity", rest.capacity, "Responder IDs that the processor has (65536)")
        .whole_number_between(1, largest_capacity);
    to.add_option("--duration", input.duration_seconds, "Seconds to run; default: until a signal comes")
        .number_between(0, 1e9);
    to.add_flag("--tables", rest.tables, "Print the classifier tables before taking down");
    to.add_flag("--imc", rest.imc, "Print the tree functions that call the IPv4 and the IPv6 module");
    take_log_levels(to.add_option("--log-level", rest.log_level, "Log level of the module: 0, 1, 3, 7 or 15"));
    to.add_option("--trace", rest.trace_file, "File for a text trace; -: standard error; lttng: LTTng-UST")
        .called("FILE");
    to.add_option("--metrics", input.metrics, "ADDRESS:PORT to serve metrics at, for Prometheus; port 0: any");
    to.add_option("--format", input.format,
                  "Format of the figures at the end (text); other than text: they alone go to standard output, "
                  "everything else to standard error")
        .one_of({"json", "prometheus", "text"});
    const olv_apps::option config =
        to.add_option("--config", input.config,
                      "JSON file with options by their names; those of the command line win")
            .called("FILE");
    to.add_flag("--check", input.check, "Check the configuration, run nothing").needs(config);
    add_traffic_options(to, input.traffic);
    to.add_option("--sessions", rest.sessions, "Sessions that each responder has at most (32)")
        .whole_number_between(1, olv_fastpath::fast_path_options::most_sessions);
    to.add_flag("--watch", rest.watch, "Show rates, drops and sessions every second while it runs");
    to.end_help_with(examples);
}

/** A command line, and the places that it fills. */
struct run_line {
    run_line() { add_options(line.options(), input); }

    run_input input;
    olv_apps::command_line line{std::string(program_name) + " run", description};
};

std::uint32_t listeners_in(const run_options &options)
{
    return options.places.empty() ? 0 : options.places.back().listener + 1;
}

/** Give the session table room for every responder's sessions, so that none of them takes another's.
 *  @throw std::runtime_error  There cannot be as much. */
void make_room_for_sessions(run_options &options)
{
    const std::uint64_t reached = std::min<std::uint64_t>(options.responders, listeners_in(options));
    const std::uint32_t each = options.sessions.value_or(usual_sessions);
    const std::uint32_t most = olv_fastpath::fast_path_options::most_sessions;
    if (reached * each > most) {
        throw std::runtime_error(std::to_string(reached) + " responders have no room for " +
                                 std::to_string(each) + " sessions each, but for " + std::to_string(most) +
                                 " together");
    }
    // The system may hand all senders to one of the workers.
    std::uint32_t &capacity = options.fast_path.session_capacity;
    capacity = std::max(capacity, static_cast<std::uint32_t>(reached * each) * options.fast_path.workers);
}

void take_places(const std::vector<std::string> &texts, run_options &options)
{
    std::vector<olv_net::socket_address> all;
    for (std::uint32_t listener = 0; listener < texts.size(); ++listener) {
        for (const olv_net::socket_address &each : olv_net::listen_addresses(texts[listener])) {
            options.places.push_back({each, listener});
            all.push_back(each);
        }
    }
    if (const auto pair = olv_net::overlapping(all)) {
        throw std::runtime_error(pair->first.text() == pair->second.text()
                                     ? pair->first.text() + " is listened on twice"
                                     : pair->first.text() + " is all addresses, " + pair->second.text() +
                                           " is one of them");
    }
}

/** @throw std::runtime_error  One line: a text that is no address, one that is there twice, or no prefix. */
void take_addresses(const run_input &input, run_options &options)
{
    take_places(input.addresses, options);
    input.traffic.apply(options.fast_path);
    if (input.metrics) {
        options.metrics = olv_net::listen_addresses(*input.metrics);
    }
}

/** @throw std::runtime_error  One line: why it cannot be run with. */
run_options options_of(const run_input &input)
{
    if (input.addresses.empty()) {
        throw std::runtime_error("no address to listen on; give one such as --listen 127.0.0.1:8620");
    }
    run_options options = input.rest;
    take_addresses(input, options);
    if (options.responders == 0) {
        options.responders = listeners_in(options);
    }
    if (options.responders > options.capacity) {
        throw std::runtime_error(std::to_string(options.responders) + " responders do not fit a capacity of " +
                                 std::to_string(options.capacity) + " responder IDs");
    }
    make_room_for_sessions(options);
    if (input.duration_seconds) {
        options.duration = std::chrono::nanoseconds(static_cast<std::int64_t>(*input.duration_seconds * 1e9));
    }
    options.format = output_formats.at(input.format);
    return options;
}

/** @return Why a run with these options alone would not be taken; empty: it would. */
std::string reason_against_running_with(const std::vector<std::string> &words)
{
    run_line alone;
    try {
        alone.line.read(words);
        take_addresses(alone.input, alone.input.rest);
        return {};
    } catch (const std::exception &error) {
        return error.what();
    }
}

/** Put the file's options behind those of the command line, but for what the latter says itself.
 *  @return Whether all of the file is good; otherwise it is said what is not. */
bool add_config(const run_line &given, std::vector<std::string> &words)
{
    const std::string &name = *given.input.config;
    const config_options file = read_run_config(read_config_file(name));
    for (const config_error &error : file.errors) {
        report_error(program_name, "%s:%zu: %s", name.c_str(), error.line, error.reason.c_str());
    }
    for (const config_option &option : file.options) {
        if (!given.line.options().was_given(option.key)) {
            words.insert(words.end(), option.words.begin(), option.words.end());
        }
    }
    return file.errors.empty();
}

} // namespace

std::shared_ptr<void> describe_run(olv_apps::command to)
{
    const auto places = std::make_shared<run_input>();
    add_options(to, *places);
    return places;
}

std::vector<std::string> run_config_keys()
{
    const run_line described;
    return config_keys(described.line.options());
}

config_options read_run_config(std::string_view text)
{
    const run_line described;
    return options_of(parse_config(text), described.line.options(), reason_against_running_with);
}

std::optional<int> read_options(const std::vector<std::string> &words, run_options &options)
{
    run_line given;
    if (const std::optional<int> status = given.line.read_or_report(program_name, words)) {
        return status;
    }
    try {
        std::vector<std::string> all = words;
        if (given.input.config && !add_config(given, all)) {
            return exit_usage;
        }
        run_line whole;
        if (const std::optional<int> status = whole.line.read_or_report(program_name, all)) {
            return status;
        }
        options = options_of(whole.input);
        if (whole.input.check) {
            check_run(options);
            std::printf("%s: good\n", whole.input.config->c_str());
            return olv_apps::exit_good;
        }
        return std::nullopt;
    } catch (const std::exception &error) {
        report_error(program_name, "%s", error.what());
        return exit_usage;
    }
}

} // namespace twampctl
