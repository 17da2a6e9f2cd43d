// clock_error: how far the reflector's time stamps are from the wall clock, and whether they go apart.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "clock_error.hpp"
#include "reflector_server.hpp"
#include "udp_socket.hpp"

namespace {

using namespace reflect_bench;
namespace wire = olv_net::reflector_packet;

constexpr int status_of_missed_target = 1;
constexpr int status_of_failure = 2;
constexpr double largest_error = 20; ///< Microseconds.
constexpr int patience_milliseconds = 30'000;
constexpr std::int64_t nanoseconds_in_second = 1'000'000'000;

struct settings {
    double seconds = 60;
    double seconds_in_row = 10;
    unsigned interval_milliseconds = 5;
    std::string json_file;
    bool quick = false;
    bool check = false;
};

std::int64_t wall_clock()
{
    std::timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now); // cannot fail: the clock exists
    return std::int64_t{now.tv_sec} * nanoseconds_in_second + now.tv_nsec;
}

/** A time stamp in nanoseconds since 1970, until 2038. */
std::int64_t instant_of(olv_net::ntp_time stamp)
{
    return olv_net::nanoseconds_between(olv_net::ntp_time::from_unix(0, 0), stamp);
}

/** Send a request and wait for the reply. @return Nothing: none came. */
std::optional<stamped_reply> exchange(const udp_socket &socket, const olv_net::socket_address &server)
{
    const std::uint8_t request[olv_net::stamp_length] = {};
    stamped_reply result;
    result.before_send = wall_clock();
    const ssize_t sent = sendto(socket.number(), request, sizeof request, 0,
                                reinterpret_cast<const sockaddr *>(&server.address), server.length);
    result.after_send = wall_clock();
    pollfd readable{.fd = socket.number(), .events = POLLIN, .revents = 0};
    std::uint8_t reply[olv_net::stamp_length];
    if (sent != sizeof request || poll(&readable, 1, patience_milliseconds) != 1 ||
        recv(socket.number(), reply, sizeof reply, 0) != sizeof reply) {
        return std::nullopt;
    }
    result.arrival = wall_clock();
    result.received = instant_of(olv_net::load_ntp(&reply[wire::receive_timestamp]));
    result.replied = instant_of(olv_net::load_ntp(&reply[wire::timestamp]));
    return result;
}

clock_error compare(const settings &chosen)
{
    reflector_server server{1};
    server.start();
    const udp_socket socket{olv_net::parse_socket_address("127.0.0.1:0")};
    clock_error error{chosen.seconds_in_row};
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(chosen.seconds);
    while (std::chrono::steady_clock::now() < end) {
        const std::optional<stamped_reply> reply = exchange(socket, server.address());
        if (!reply) {
            throw std::runtime_error("a request was not answered");
        }
        error.add(*reply);
        std::this_thread::sleep_for(std::chrono::milliseconds(chosen.interval_milliseconds));
    }
    server.stop();
    return error;
}

void print(const std::vector<clock_row> &rows, std::size_t reversed)
{
    std::printf("%10s %9s %12s %12s %12s\n", "seconds", "replies", "offset us", "+- us", "outside us");
    for (const clock_row &each : rows) {
        std::printf("%10.0f %9zu %12.3f %12.3f %12.3f\n", each.begin_seconds, each.replies, each.offset,
                    each.uncertainty, each.outside);
    }
    std::printf("largest error %.3f us, limit %.0f; drift %.3f us in an hour; T3 before T2: %zu, limit 0\n",
                worst_error(rows), largest_error, drift_per_hour(rows), reversed);
}

void save(const settings &chosen, const std::vector<clock_row> &rows, std::size_t reversed)
{
    nlohmann::ordered_json json{{"quick", chosen.quick},
                                {"largest_error_us", worst_error(rows)},
                                {"drift_us_per_hour", drift_per_hour(rows)},
                                {"reversed", reversed}};
    for (const clock_row &each : rows) {
        json["rows"].push_back({{"begin_seconds", each.begin_seconds},
                                {"replies", each.replies},
                                {"offset_us", each.offset},
                                {"uncertainty_us", each.uncertainty},
                                {"outside_us", each.outside}});
    }
    std::ofstream file{chosen.json_file};
    file << json.dump(2) << '\n';
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + chosen.json_file);
    }
}

int run(const settings &chosen)
{
    const clock_error error = compare(chosen);
    const std::vector<clock_row> rows = error.rows();
    print(rows, error.reversed());
    if (!chosen.json_file.empty()) {
        save(chosen, rows, error.reversed());
    }
    const bool met = worst_error(rows) < largest_error && error.reversed() == 0;
    return chosen.check && !met ? status_of_missed_target : 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        settings chosen;
        CLI::App program{"How far the reflector's time stamps are from the wall clock of this machine."};
        program.add_option("--seconds", chosen.seconds, "How long to compare")->check(CLI::Range(0.1, 86400.0));
        program.add_option("--row", chosen.seconds_in_row, "Seconds in a row of the table")
            ->check(CLI::Range(0.1, 86400.0));
        program.add_option("--interval", chosen.interval_milliseconds, "Milliseconds between requests")
            ->check(CLI::Range(1, 60000));
        program.add_option("--json", chosen.json_file, "Write the figures to this file, too");
        program.add_flag("--quick", chosen.quick, "Five seconds: whether it works, no more");
        program.add_flag("--check", chosen.check,
                         "Exit status 1 when the largest error is 20 us or more, or a T3 before its T2");
        CLI11_PARSE(program, argc, argv);
        if (chosen.quick) {
            chosen.seconds = 5;
            chosen.seconds_in_row = 1;
        }
        return run(chosen);
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "clock_error: %s\n", failure.what());
        return status_of_failure;
    }
}
