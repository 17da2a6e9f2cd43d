#include "apps/twamp-probe/probe_options.hpp"

#include <algorithm>
#include <cstdio>
#include <map>
#include <stdexcept>

#include "apps/common/errors.hpp"
#include "apps/common/session_input.hpp"

namespace olv_probe {
namespace {

constexpr const char *description =
    "Sends test packets to a TWAMP Light or STAMP reflector, checks every reply and prints loss, delays and\n"
    "their variation. Exit status: 0 when every packet came back and was measured, 1 when not, 2 when nothing "
    "was\n"
    "sent.";

constexpr const char *examples =
    "Examples:\n"
    "  twamp-probe 127.0.0.1:8620\n"
    "  twamp-probe '[::1]:8620' --count 1000 --interval 0.5 --size 1400\n"
    "  twamp-probe 192.0.2.1 --stamp --dscp EF\n"
    "  twamp-probe reflector.example -6 --duration 60 --senders 4 --plot delay.svg\n"
    "  twamp-probe 192.0.2.1 --flood --window 128 --duration 5 --format json";

/** The command line as written. */
struct raw_options {
    std::string address;
    bool ipv4 = false;
    bool ipv6 = false;
    session_input session;
    std::string format = "text";
    std::optional<double> report_interval_seconds;
    bool histogram = false;
    std::string plot;
    bool version = false;
};

void add_output_options(olv_apps::command to, raw_options &raw)
{
    to.add_option("--format", raw.format,
                  "What to print: text, json, or csv with a line for each packet (text)")
        .one_of({"text", "json", "csv"});
    to.add_option("--report-interval", raw.report_interval_seconds,
                  "Print a line of figures for each interval of so many seconds, too")
        .number_between(0.01, 86'400);
    to.add_flag("--histogram", raw.histogram, "Print a histogram of the round trips, too; with text only");
    to.add_option("--plot", raw.plot, "Draw delays and losses over time and a histogram: FILE.svg, FILE.png");
}

std::optional<int> parse(const std::vector<std::string> &words, raw_options &raw)
{
    olv_apps::command_line line{program_name, description};
    const olv_apps::command options = line.options();
    options
        .add_option("REFLECTOR", raw.address, "Its address or name, and its port, as in 192.0.2.1:8620 (862)")
        .required();
    const olv_apps::option ipv4 = options.add_flag("-4", raw.ipv4, "Take an IPv4 address of a name");
    options.add_flag("-6", raw.ipv6, "Take an IPv6 address of a name").excludes(ipv4);
    add_session_options(options, raw.session);
    add_output_options(options, raw);
    options.add_flag("--version", raw.version, "Print the version");
    options.end_help_with(examples);
    return line.read_or_report(program_name, words);
}

bool ends_with_name(const std::string &file, const std::string &extension)
{
    return file.size() > extension.size() && file.ends_with(extension);
}

void check_output(const raw_options &raw)
{
    if (raw.histogram && raw.format != "text") {
        throw std::runtime_error("--histogram goes with --format text alone, not with " + raw.format);
    }
    if (raw.report_interval_seconds && raw.format == "csv") {
        throw std::runtime_error("--report-interval goes with --format text or json, not with csv");
    }
    if (!raw.plot.empty() && !ends_with_name(raw.plot, ".svg") && !ends_with_name(raw.plot, ".png")) {
        throw std::runtime_error("cannot draw '" + raw.plot + "': the name has to end in .svg or .png");
    }
}

int family_of(const raw_options &raw)
{
    if (raw.ipv4) {
        return AF_INET;
    }
    return raw.ipv6 ? AF_INET6 : raw.session.family();
}

} // namespace

std::optional<int> read_options(const std::vector<std::string> &words, probe_options &options)
{
    if (std::find(words.begin(), words.end(), "--version") != words.end()) {
        std::printf("%s %s\n", program_name, OLV_TWAMP_VERSION);
        return olv_apps::exit_good;
    }
    raw_options raw;
    if (const std::optional<int> status = parse(words, raw)) {
        return status;
    }
    try {
        options.reflector = parse_reflector_name(raw.address);
        options.session = raw.session.options();
        options.family = family_of(raw);
        check_output(raw);
    } catch (const std::exception &error) {
        olv_apps::report_error(program_name, "%s", error.what());
        return olv_apps::exit_usage;
    }
    static const std::map<std::string, output_format> formats{
        {"text", output_format::text}, {"json", output_format::json}, {"csv", output_format::csv}};
    options.format = formats.at(raw.format);
    if (raw.report_interval_seconds) {
        options.report_interval =
            std::chrono::nanoseconds(static_cast<std::int64_t>(*raw.report_interval_seconds * 1e9));
    }
    options.histogram = raw.histogram;
    options.plot = raw.plot;
    return std::nullopt;
}

} // namespace olv_probe
