#include "probe_options.hpp"

#include <map>
#include <stdexcept>

#include "command_line.hpp"

namespace olv_probe {
namespace {

constexpr const char *description =
    "Sends test packets to a TWAMP Light or STAMP reflector, checks every reply and prints loss, delays and\n"
    "their variation. Exit status: 0 when every packet came back and was valid, 1 when not, 2 when nothing "
    "was\n"
    "measured.";

constexpr const char *examples =
    "Examples:\n"
    "  twamp-probe 127.0.0.1:8620\n"
    "  twamp-probe '[::1]:8620' --count 1000 --interval 0.5 --size 1400\n"
    "  twamp-probe 192.0.2.1:862 --stamp --dscp 46\n"
    "  twamp-probe reflector.example:862 -6 --duration 60 --senders 4 --plot delay.svg\n"
    "  twamp-probe 192.0.2.1:862 --flood --window 128 --duration 5 --format json";

/** The command line as written; times in the units that it has. */
struct raw_options {
    std::string address;
    bool ipv4 = false;
    bool ipv6 = false;
    unsigned senders = 1;
    std::uint32_t count = 100;
    std::optional<double> duration_seconds;
    double interval_milliseconds = 10;
    bool flood = false;
    std::uint32_t window = default_window;
    std::size_t size = 0;
    std::string padding;
    double timeout_seconds = 2;
    unsigned dscp = 0;
    unsigned ttl = 255;
    bool stamp = false;
    std::string format = "text";
    bool histogram = false;
    std::string plot;
};

void add_packet_options(CLI::App &app, raw_options &raw)
{
    app.add_option("--size", raw.size, "Octets of UDP payload, 14 to 65507 (41, with --stamp 44)")
        ->check(CLI::Range(olv_fastpath::sender_packet::header_length, olv_fastpath::maximum_payload_ipv4));
    app.add_option("--padding", raw.padding, "What fills a packet: random or zero (random, with --stamp zero)")
        ->check(CLI::IsMember({"random", "zero"}));
    app.add_option("--dscp", raw.dscp, "DSCP of the packets, 0 to 63 (0)")->check(CLI::Range(0u, 63u));
    app.add_option("--ttl", raw.ttl, "TTL or hop limit of the packets, 1 to 255 (255)")
        ->check(CLI::Range(1u, 255u));
    app.add_flag("--stamp", raw.stamp, "Send STAMP packets");
}

void add_time_options(CLI::App &app, raw_options &raw)
{
    CLI::Option *count = app.add_option("--count", raw.count, "Packets to send from each sender (100)")
                             ->check(CLI::Range(1u, maximum_packets));
    app.add_option("--duration", raw.duration_seconds, "Seconds to send for, instead of a count")
        ->check(olv_apps::number_between(0.001, 31'536'000.0))
        ->excludes(count);
    CLI::Option *interval = app.add_option("--interval", raw.interval_milliseconds,
                                           "Milliseconds between two packets of a sender (10)")
                                ->check(olv_apps::number_between(0.0, 3'600'000.0));
    CLI::Option *flood =
        app.add_flag("--flood", raw.flood, "Send as soon as the window has room, not in intervals")
            ->excludes(interval);
    app.add_option("--window", raw.window, "Packets of each sender on their way in a flood, 1 to 65536 (64)")
        ->check(CLI::Range(1u, 65536u))
        ->needs(flood);
    app.add_option("--timeout", raw.timeout_seconds,
                   "Seconds to wait for the last replies; in a flood, for each reply (2)")
        ->check(olv_apps::number_between(0.0, 3600.0));
}

void add_output_options(CLI::App &app, raw_options &raw)
{
    app.add_option("--format", raw.format,
                   "What to print: text, json, or csv with a line for each packet (text)")
        ->check(CLI::IsMember({"text", "json", "csv"}));
    app.add_flag("--histogram", raw.histogram, "Print a histogram of the round trips, too; with text only");
    app.add_option("--plot", raw.plot,
                   "Draw the round trips over time and their histogram: FILE.svg, FILE.png");
}

std::optional<int> parse(int argc, char **argv, raw_options &raw)
{
    CLI::App app{description, program_name};
    app.footer(examples);
    app.add_option("ADDRESS:PORT", raw.address,
                   "The reflector, an address or a name; IPv6 addresses in brackets")
        ->required();
    CLI::Option *ipv4 = app.add_flag("-4", raw.ipv4, "Take an IPv4 address of a name");
    app.add_flag("-6", raw.ipv6, "Take an IPv6 address of a name")->excludes(ipv4);
    app.add_option("--senders", raw.senders, "Sessions at once, each with a port of its own, 1 to 256 (1)")
        ->check(CLI::Range(1u, maximum_senders));
    add_time_options(app, raw);
    add_packet_options(app, raw);
    add_output_options(app, raw);
    return olv_apps::parse_command_line(app, program_name, argc, argv);
}

std::chrono::nanoseconds nanoseconds_of(double value, double nanoseconds_each)
{
    return std::chrono::nanoseconds(static_cast<std::int64_t>(value * nanoseconds_each));
}

/** @throw std::runtime_error  One line: two options contradict each other. */
session_options to_session(const raw_options &raw)
{
    session_options session;
    session.stamp = raw.stamp;
    session.zero_padding = raw.padding.empty() ? raw.stamp : raw.padding == "zero";
    session.size = raw.size;
    if (session.size == 0) {
        session.size = raw.stamp ? olv_fastpath::stamp_length : olv_fastpath::reflector_packet::header_length;
    }
    if (raw.stamp && session.size < olv_fastpath::stamp_length) {
        throw std::runtime_error("a STAMP packet has at least 44 octets, not " + std::to_string(session.size));
    }
    if (raw.stamp && !session.zero_padding) {
        throw std::runtime_error("a STAMP packet is filled with zeros; leave --padding or --stamp out");
    }
    if (!raw.duration_seconds && std::uint64_t{raw.count} * raw.senders > maximum_packets) {
        throw std::runtime_error(std::to_string(raw.senders) + " senders of " + std::to_string(raw.count) +
                                 " packets are more than 10000000 packets together");
    }
    session.senders = raw.senders;
    session.count = raw.count;
    if (raw.duration_seconds) {
        session.duration = nanoseconds_of(*raw.duration_seconds, 1e9);
    }
    session.interval = nanoseconds_of(raw.interval_milliseconds, 1e6);
    if (raw.flood) {
        session.window = raw.window;
    }
    session.timeout = nanoseconds_of(raw.timeout_seconds, 1e9);
    session.dscp = static_cast<std::uint8_t>(raw.dscp);
    session.ttl = static_cast<std::uint8_t>(raw.ttl);
    return session;
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
    if (!raw.plot.empty() && !ends_with_name(raw.plot, ".svg") && !ends_with_name(raw.plot, ".png")) {
        throw std::runtime_error("cannot draw '" + raw.plot + "': the name has to end in .svg or .png");
    }
}

int family_of(const raw_options &raw)
{
    if (raw.ipv4) {
        return AF_INET;
    }
    return raw.ipv6 ? AF_INET6 : AF_UNSPEC;
}

} // namespace

std::optional<int> read_options(int argc, char **argv, probe_options &options)
{
    raw_options raw;
    if (const std::optional<int> status = parse(argc, argv, raw)) {
        return status;
    }
    try {
        options.reflector = parse_reflector_name(raw.address);
        options.session = to_session(raw);
        check_output(raw);
    } catch (const std::exception &error) {
        olv_apps::report_error(program_name, "%s", error.what());
        return olv_apps::exit_usage;
    }
    static const std::map<std::string, output_format> formats{
        {"text", output_format::text}, {"json", output_format::json}, {"csv", output_format::csv}};
    options.family = family_of(raw);
    options.format = formats.at(raw.format);
    options.histogram = raw.histogram;
    options.plot = raw.plot;
    return std::nullopt;
}

} // namespace olv_probe
