// "twampctl run": its figures over HTTP while packets flow, and as a document at the end.

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using json = nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** A twampctl with --metrics that answers packets. */
struct measured_program {
    explicit measured_program(const std::vector<std::string> &arguments,
                              const std::string &metrics = "127.0.0.1:0")
        : program(TWAMPCTL, words(arguments, metrics))
    {
        const std::string ready = program.wait_for_line("ready ");
        reflector = ready.substr(std::min(ready.size(), std::string("ready ").size()));
        const std::string line = program.wait_for_line("metrics http://");
        const std::size_t start = std::string("metrics http://").size();
        host = line.substr(std::min(line.size(), start), line.rfind("/metrics") - start);
    }

    static std::vector<std::string> words(const std::vector<std::string> &arguments, const std::string &metrics)
    {
        std::vector<std::string> all{"run", "--metrics", metrics};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    child_program program;
    std::string reflector; ///< "127.0.0.1:PORT"; empty when it did not become ready.
    std::string host;      ///< Of the metrics.
};

/** All that a server answers to a GET; empty when there is none. */
std::string get(const std::string &host, const std::string &path)
{
    const olv_net::socket_address address = olv_net::parse_socket_address(host);
    const int client = socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string answer;
    if (connect(client, reinterpret_cast<const sockaddr *>(&address.address), address.length) == 0) {
        const std::string request = "GET " + path + " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n";
        (void)send(client, request.data(), request.size(), MSG_NOSIGNAL); // the test sees what is missing
        std::array<char, 4096> part{};
        pollfd watched{.fd = client, .events = POLLIN, .revents = 0};
        while (poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) > 0) {
            const ssize_t length = recv(client, part.data(), part.size(), 0);
            if (length <= 0) {
                break;
            }
            answer.append(part.data(), static_cast<std::size_t>(length));
        }
    }
    (void)close(client); // all was read
    return answer;
}

TEST(Metrics, CountWhatWasSent)
{
    measured_program run{{"--listen", "127.0.0.1:0"}};
    ASSERT_NE(run.reflector, "");
    const std::string before = get(run.host, "/metrics");
    EXPECT_THAT(before, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(before, HasSubstr("\nolv_twamp_module_up 1\n"));
    EXPECT_THAT(before, HasSubstr("\nolv_twamp_received_packets_total 0\n"));

    loopback_socket sender; // has a port of its own while the probe has another one
    EXPECT_EQ(run_probe({run.reflector, "--count", "70", "--interval", "1"}).status, 0);
    sender.send_to(run.reflector, std::vector<std::uint8_t>(13));
    sender.send_to(run.reflector, std::vector<std::uint8_t>(14));
    EXPECT_TRUE(sender.receive()); // the short one came before it
    const std::string after = get(run.host, "/metrics");
    EXPECT_THAT(after, HasSubstr("\nolv_twamp_received_packets_total 72\n"));
    EXPECT_THAT(after, HasSubstr("\nolv_twamp_transmitted_packets_total 71\n"));
    EXPECT_THAT(after, HasSubstr("\nolv_twamp_dropped_packets_total{reason=\"length_check\"} 1\n"));
    EXPECT_THAT(after, HasSubstr("\nolv_twamp_responder_received_packets_total"
                                 "{responder=\"1\",id=\"1\"} 72\n"));
    EXPECT_THAT(after, HasSubstr("\nolv_twamp_responder_active_sessions{responder=\"1\",id=\"1\"} 2\n"));
    EXPECT_THAT(after, HasSubstr("\nolv_twamp_listener_received_packets_total{listener=\"" + run.reflector +
                                 "\"} 72\n"));
    EXPECT_THAT(after,
                HasSubstr("\nolv_twamp_listener_sent_replies_total{listener=\"" + run.reflector + "\"} 71\n"));
    EXPECT_THAT(after, HasSubstr("\nolv_twamp_platform_violations_total 0\n"));

    EXPECT_THAT(get(run.host, "/"), HasSubstr("\r\n\r\nthe metrics are at /metrics\n"));
    EXPECT_THAT(get(run.host, "/nope"), StartsWith("HTTP/1.1 404 Not Found\r\n"));
    run.program.send_signal(SIGINT);
    EXPECT_EQ(run.program.wait(), 0);
    EXPECT_EQ(run.program.errors(), "");
    EXPECT_THAT(run.program.output(), HasSubstr("left behind: 0 blocks, 0 responder IDs, 0 responder entries, "
                                                "0 bind entries, 0 patterns, 0 violations\n"));
}

TEST(Metrics, AreServedWhilePacketsFlow)
{
    measured_program run{{"--listen", "127.0.0.1:0", "--listen", "[::1]:0"}, "[::1]:0"};
    const std::string first = run.reflector.substr(0, run.reflector.find(' '));
    ASSERT_NE(first, "");
    std::atomic<bool> done{false};
    int answered = 0;
    int refused = 0;
    std::thread scraper{[&] {
        while (!done) {
            ++(get(run.host, "/metrics").starts_with("HTTP/1.1 200 OK\r\n") ? answered : refused);
        }
    }};
    EXPECT_EQ(run_probe({first, "--count", "500", "--interval", "1"}).status, 0);
    done = true;
    scraper.join();
    EXPECT_GT(answered, 0);
    EXPECT_EQ(refused, 0);
    EXPECT_THAT(get(run.host, "/metrics"), HasSubstr("\nolv_twamp_transmitted_packets_total 500\n"));
    run.program.send_signal(SIGTERM);
    EXPECT_EQ(run.program.wait(), 0);
}

TEST(Metrics, LineComesBeforeReady)
{
    measured_program run{{"--listen", "127.0.0.1:0", "--duration", "0"}};
    EXPECT_EQ(run.program.wait(), 0);
    EXPECT_THAT(run.program.output(), HasSubstr("bound to the IPv4 module: key 4\n"
                                                "metrics http://" +
                                                run.host +
                                                "/metrics\n"
                                                "ready " +
                                                run.reflector + "\n"));
}

TEST(Metrics, AddressThatCannotBeServedAtEndsTheRun)
{
    const measured_program other{{"--listen", "127.0.0.1:0"}};
    for (const auto &[address, reason] :
         {std::pair{other.host, "Address already in use"},
          std::pair{std::string("192.0.2.1:9862"), "Cannot assign requested address"}}) {
        const finished_program finished = run_control({"--listen", "127.0.0.1:0", "--metrics", address});
        EXPECT_EQ(finished.status, 1);
        EXPECT_EQ(finished.errors, "twampctl: cannot serve metrics at " + address + ": " + reason + "\n");
        EXPECT_THAT(finished.output, HasSubstr("packets no longer answered\nunbound from the IPv4 module\n"));
        EXPECT_THAT(finished.output, Not(HasSubstr("ready")));
    }
}

// ---------------------------------------------------------------------------------------------------------
// At the end
// ---------------------------------------------------------------------------------------------------------

TEST(Format, JsonIsAllOfStandardOutput)
{
    child_program run{
        TWAMPCTL,
        {"run", "--listen", "127.0.0.1:0", "--format", "json", "--log-level", "15", "--tables", "--imc"}};
    const std::string ready = run.wait_for_error_line("ready ");
    ASSERT_NE(ready, "");
    const std::string address = ready.substr(6);
    EXPECT_EQ(run_probe({address, "--count", "5"}).status, 0);
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 0);

    const json figures = json::parse(run.output());
    EXPECT_EQ(figures["module_up"], true);
    EXPECT_EQ(figures["module"]["received_packets"], 5);
    EXPECT_EQ(figures["module"]["transmitted_packets"], 5);
    EXPECT_EQ(figures["module"]["dropped_packets"]["length_check"], 0);
    EXPECT_EQ(figures["responders"][0]["name"], "1");
    EXPECT_EQ(figures["responders"][0]["counters"]["active_sessions"], 1);
    EXPECT_EQ(figures["listeners"][0]["address"], address);
    EXPECT_EQ(figures["listeners"][0]["bind_key"], 4);
    EXPECT_EQ(figures["listeners"][0]["sent_replies"], 5);
    EXPECT_EQ(figures["platform"]["bind_entries"], 1);

    EXPECT_THAT(run.errors(), HasSubstr("Custom Bind Successfully done.\n"));
    EXPECT_THAT(run.errors(), HasSubstr("olv_twamp.twamp_responder_lookup, 0x1, DEFINED\n"));
    EXPECT_THAT(run.errors(), HasSubstr("left behind: 0 blocks"));
    EXPECT_THAT(run.errors(), Not(HasSubstr("TWAMP global statistics")));
}

TEST(Format, PrometheusIsAllOfStandardOutput)
{
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--duration", "0", "--format", "prometheus"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, StartsWith("# HELP olv_twamp_processor_info "));
    EXPECT_THAT(finished.output, HasSubstr("\nolv_twamp_responder_active_sessions"
                                           "{responder=\"1\",id=\"1\"} 0\n"));
    EXPECT_EQ(count_lines(finished.output, "ready"), 0);
    EXPECT_THAT(finished.errors, HasSubstr("module shut down\n"));
}

TEST(Format, TextIsWhatTheLibraryPrints)
{
    const finished_program finished =
        run_control({"--listen", "127.0.0.1:0", "--duration", "0", "--format", "text"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output,
                HasSubstr("Statistics of the module:\nTWAMP global statistics (Non-zero only)\n"));
}

TEST(Format, NothingIsWrittenWhenTheRunFails)
{
    const finished_program finished = run_control({"--listen", "192.0.2.1:1", "--format", "json"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, "");
    EXPECT_THAT(finished.errors, HasSubstr("twampctl: cannot listen on 192.0.2.1:1: "));
}

TEST(Format, SaysThatTheFiguresAreNotComplete)
{
    const finished_program finished = run_program(
        "/bin/sh",
        {"-c", "exec \"$0\" run --listen 127.0.0.1:0 --duration 0 --format json >/dev/full", TWAMPCTL});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.errors,
                HasSubstr("twampctl: the figures are not complete: No space left on device\n"));
    EXPECT_THAT(finished.errors, HasSubstr("left behind: 0 blocks"));
}

TEST(Format, NeedsBothOutputs)
{
    const finished_program no_errors = run_program(
        "/bin/sh", {"-c", "exec \"$0\" run --listen 127.0.0.1:0 --duration 0 --format json 2>&-", TWAMPCTL});
    EXPECT_EQ(no_errors.status, 1);
    EXPECT_EQ(no_errors.output, "");
    const finished_program no_output = run_program(
        "/bin/sh", {"-c", "exec \"$0\" run --listen 127.0.0.1:0 --duration 0 --format json >&-", TWAMPCTL});
    EXPECT_EQ(no_output.status, 1);
    EXPECT_EQ(no_output.errors, "twampctl: cannot keep standard output for the figures: Bad file descriptor\n");
}

} // namespace
} // namespace e2e
