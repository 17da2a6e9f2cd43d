// "twampctl run": its figures over HTTP while packets flow, and as a document at the end.

#include <csignal>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

void expect_each(const std::string &text, const std::vector<std::string> &parts)
{
    for (const std::string &part : parts) {
        EXPECT_THAT(text, HasSubstr(part));
    }
}

/** "127.0.0.1:PORT" where a program serves its metrics. */
std::string metrics_host(const control_program &control)
{
    const std::string url = control.wait_for_line("metrics http://");
    return url.substr(0, url.find('/'));
}

TEST(RunMetrics, CountWhatWasSent)
{
    control_program control{"--listen 127.0.0.1:0 --metrics 127.0.0.1:0"};
    const std::string host = metrics_host(control);
    const std::string before = http_get(host, "/metrics");
    EXPECT_THAT(before, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(before, HasSubstr("\nolv_twamp_received_packets_total 0\n"));

    loopback_socket sender; // has a port of its own while the probe has another one
    EXPECT_EQ(measure(control.address() + " --count 70 --interval 1").status, 0);
    sender.send_to(control.address(), octets(13));
    sender.send_to(control.address(), octets(14));
    (void)sender.receive(); // the short one came before it
    const std::string after = http_get(host, "/metrics");
    const std::string listener = "{listener=\"" + control.address() + "\"}";
    expect_each(after, {"\nolv_twamp_received_packets_total 72\n", "\nolv_twamp_transmitted_packets_total 71\n",
                        "\nolv_twamp_dropped_packets_total{reason=\"length_check\"} 1\n",
                        "\nolv_twamp_responder_received_packets_total{responder=\"1\",id=\"1\"} 72\n",
                        "\nolv_twamp_responder_active_sessions{responder=\"1\",id=\"1\"} 2\n",
                        "\nolv_twamp_listener_received_packets_total" + listener + " 72\n",
                        "\nolv_twamp_listener_sent_replies_total" + listener + " 71\n",
                        "\nolv_twamp_platform_violations_total 0\n"});
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr(nothing_left));
}

TEST(RunMetrics, AreServedWhilePacketsFlow)
{
    control_program control{"--listen 127.0.0.1:0 --metrics [::1]:0"};
    const std::string host = metrics_host(control);
    int answered = 0;
    int refused = 0;
    std::jthread scraper{[&](const std::stop_token &stopped) {
        while (!stopped.stop_requested()) {
            ++(http_get(host, "/metrics").starts_with("HTTP/1.1 200 OK\r\n") ? answered : refused);
        }
    }};
    EXPECT_EQ(measure(control.address() + " --count 500 --interval 0.2").status, 0);
    scraper.request_stop();
    scraper.join();
    EXPECT_GT(answered, 0);
    EXPECT_EQ(refused, 0);
    EXPECT_THAT(http_get(host, "/metrics"), HasSubstr("\nolv_twamp_transmitted_packets_total 500\n"));
    EXPECT_EQ(control.stop(SIGTERM).status, 0);
}

TEST(RunMetrics, AtAnAddressThatIsTakenEndTheRun)
{
    control_program other{"--listen 127.0.0.1:0 --metrics 127.0.0.1:0"};
    const std::string host = metrics_host(other);
    const finished_program finished = twampctl("run --listen 127.0.0.1:0 --metrics " + host);
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, "twampctl: cannot serve metrics at " + host + ": Address already in use\n");
    EXPECT_THAT(finished.output, HasSubstr("packets no longer answered\nunbound from the IPv4 module\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("ready")));
}

TEST(Format, JsonIsAllOfStandardOutput)
{
    child_program run{TWAMPCTL,
                      words_of("run --listen 127.0.0.1:0 --format json --log-level 15 --tables --imc")};
    const std::string address = run.wait_for_line("ready ", stream::errors);
    EXPECT_EQ(measure(address + " --count 5 --interval 1").status, 0);
    const finished_program finished = run.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, StartsWith("{\n  \"taken_at\": "));
    EXPECT_THAT(finished.output, EndsWith("\n}\n"));
    expect_each(finished.output, {"  \"module_up\": true,\n  \"module\": {\n    \"received_packets\": 5,\n"
                                  "    \"transmitted_packets\": 5,\n",
                                  "      \"active_sessions\": 1\n",
                                  "      \"address\": \"" + address + "\",\n      \"responder\": \"1\",\n",
                                  "      \"sent_replies\": 5,\n", "    \"bind_entries\": 1,\n"});
    expect_each(finished.errors, {"\nlog level 15\n", "Custom Bind Successfully done.\n",
                                  "olv_twamp.twamp_responder_lookup, 0x1, DEFINED\n", "left behind: 0 blocks"});
    EXPECT_THAT(finished.errors, Not(HasSubstr("TWAMP global statistics")));
}

TEST(Format, MayBePrometheus)
{
    const finished_program finished = twampctl("run --listen 127.0.0.1:0 --duration 0 --format prometheus");
    EXPECT_THAT(finished.output, StartsWith("# HELP olv_twamp_processor_info "));
    EXPECT_THAT(finished.errors, HasSubstr("module shut down\n"));
}

TEST(Format, OfARunThatFailsIsNothing)
{
    const finished_program finished = twampctl("run --listen 192.0.2.1:1 --format json");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, "");
    EXPECT_THAT(finished.errors, HasSubstr("twampctl: cannot listen on 192.0.2.1:1: "));
}

TEST(Format, NeedsBothOutputs)
{
    const std::vector<std::string> words{TWAMPCTL,     "run", "--listen", "127.0.0.1:0",
                                         "--duration", "0",   "--format", "json"};
    const finished_program full = in_shell("exec \"$@\" >/dev/full", words);
    EXPECT_EQ(full.status, 1);
    EXPECT_THAT(full.errors, HasSubstr("twampctl: the figures are not complete: No space left on device\n"));
    EXPECT_THAT(full.errors, HasSubstr("left behind: 0 blocks"));
    const finished_program silent = in_shell("exec \"$@\" 2>&-", words);
    EXPECT_EQ(silent.status, 1);
    EXPECT_EQ(silent.output, "");
    EXPECT_EQ(in_shell("exec \"$@\" >&-", words), ends(1, "",
                                                       "twampctl: cannot keep standard output for the figures: "
                                                       "Bad file descriptor\n"));
}

} // namespace
} // namespace e2e
