#include "probe_options.hpp"

#include <exception>
#include <string>

#include "command_line.hpp"

namespace olv_probe {
namespace {

using olv_apps::exit_usage;
using olv_apps::report_error;

constexpr const char *description =
    "Sends test packets to a TWAMP Light or STAMP reflector, checks every reply and prints loss and "
    "round-trip\n"
    "times. Exit status: 0 when every packet came back and was valid, 1 when not, 2 when nothing was measured.";

constexpr const char *examples = "Examples:\n"
                                 "  twamp-probe 127.0.0.1:8620\n"
                                 "  twamp-probe '[::1]:8620' --count 1000 --interval 0.5 --size 1400\n"
                                 "  twamp-probe 192.0.2.1:862 --stamp --dscp 46";

/** The command line as written; times in the units that it has. */
struct raw_options {
    std::string address;
    std::uint32_t count = 100;
    double interval_milliseconds = 10;
    std::size_t size = 0;
    double timeout_seconds = 2;
    unsigned dscp = 0;
    bool stamp = false;
};

std::optional<int> parse(int argc, char **argv, raw_options &raw)
{
    CLI::App app{description, program_name};
    app.footer(examples);
    app.add_option("ADDRESS:PORT", raw.address, "The reflector, in numbers; IPv6 addresses in brackets")
        ->required();
    app.add_option("--count", raw.count, "Packets to send (100)")->check(CLI::Range(1u, 10'000'000u));
    app.add_option("--interval", raw.interval_milliseconds, "Milliseconds between two packets (10)")
        ->check(olv_apps::number_between(0.0, 3'600'000.0));
    app.add_option("--size", raw.size, "Octets of UDP payload, 14 to 65507 (41, with --stamp 44)")
        ->check(CLI::Range(olv_fastpath::sender_packet::header_length, olv_fastpath::maximum_payload_ipv4));
    app.add_option("--timeout", raw.timeout_seconds, "Seconds to wait for the last replies (2)")
        ->check(olv_apps::number_between(0.0, 3600.0));
    app.add_option("--dscp", raw.dscp, "DSCP of the packets, 0 to 63 (0)")->check(CLI::Range(0u, 63u));
    app.add_flag("--stamp", raw.stamp, "Send STAMP packets");
    return olv_apps::parse_command_line(app, program_name, argc, argv);
}

} // namespace

std::optional<int> read_options(int argc, char **argv, probe_options &options)
{
    raw_options raw;
    if (const std::optional<int> status = parse(argc, argv, raw)) {
        return status;
    }
    try {
        options.reflector = olv_fastpath::parse_listen_address(raw.address);
    } catch (const std::exception &error) {
        report_error(program_name, "%s", error.what());
        return exit_usage;
    }
    if (options.reflector.port() == 0) {
        report_error(program_name, "%s: port 0 cannot be sent to", raw.address.c_str());
        return exit_usage;
    }
    if (raw.size == 0) {
        raw.size = raw.stamp ? olv_fastpath::stamp_length : olv_fastpath::reflector_packet::header_length;
    }
    if (raw.stamp && raw.size < olv_fastpath::stamp_length) {
        report_error(program_name, "a STAMP packet has at least 44 octets, not %zu", raw.size);
        return exit_usage;
    }
    options.count = raw.count;
    options.interval = std::chrono::nanoseconds(static_cast<std::int64_t>(raw.interval_milliseconds * 1e6));
    options.size = raw.size;
    options.timeout = std::chrono::nanoseconds(static_cast<std::int64_t>(raw.timeout_seconds * 1e9));
    options.dscp = static_cast<std::uint8_t>(raw.dscp);
    options.stamp = raw.stamp;
    return std::nullopt;
}

} // namespace olv_probe
