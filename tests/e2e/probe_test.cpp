// twamp-probe: what it sends and how, what it makes of replies, and how it ends.

#include <csignal>
#include <functional>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// Packets

TEST(Probe, FindsEveryReplyValid)
{
    control_program control{"--listen 127.0.0.1:0 --listen [::1]:0 --stamp-mode stateful"};
    const std::pair<const char *, const char *> rows[] = {{"", "41"},
                                                          {"--size 14", "14"},
                                                          {"--size 44", "44"},
                                                          {"--size 65507", "65507"},
                                                          {"--dscp 46", "41"},
                                                          {"--stamp", "44"},
                                                          {"--ptp", "41"},
                                                          {"--stamp --ptp", "44"},
                                                          {"--stamp --size 1400", "1400"}};
    for (const std::size_t listener : {0u, 1u}) {
        for (const auto &[options, length] : rows) {
            const std::string address = control.address(listener);
            SCOPED_TRACE(address + " " + options);
            const finished_program probe = measure(address + " --count 30 --interval 0.5 " + options);
            EXPECT_EQ(probe.status, 0);
            EXPECT_EQ(probe.errors, "");
            EXPECT_THAT(probe.output, StartsWith(std::string("30 packets of ") + length + " octets to " +
                                                 address + "\nmicroseconds "));
            EXPECT_THAT(probe.output,
                        ContainsRegex(std::string(": 30 packets of ") + length +
                                      " octets in [0-9.]+ s\nsent 30, received 30, valid 30\n"
                                      "lost 0 \\(0.00 %\\)\nduplicates 0\nreordered 0 \\(0.00 %\\)\n"
                                      "microseconds +min +median +p95 +max\nround trip [ 0-9.]+\n"));
        }
        EXPECT_THAT(measure(control.address(listener) + " --count 3 --ttl 17").output,
                    ContainsRegex("\nhops forward: min 0, max 0 \\(TTL 17 to 17, sent with 17\\)\n"
                                  "hops backward: min 0, max 0 \\(TTL [0-9]+ to [0-9]+, "));
    }
}

octets padding_of_a_packet(const std::string &options)
{
    loopback_socket silent;
    EXPECT_EQ(twamp_probe(silent.address() + " --count 1 --timeout 0 --size 100 " + options).status, 1);
    const octets request = silent.receive();
    return {request.begin() + 14, request.end()};
}

TEST(Probe, PadsWithZerosOrAtRandom)
{
    EXPECT_EQ(padding_of_a_packet("--padding zero"), octets(86));
    EXPECT_EQ(padding_of_a_packet("--stamp"), octets(86));
    const octets random = padding_of_a_packet("--padding random");
    EXPECT_EQ(random.size(), 86u);
    EXPECT_GT(std::set<std::uint8_t>(random.begin(), random.end()).size(), 10u);
    EXPECT_NE(random, padding_of_a_packet(""));
}

TEST(Probe, ResolvesNames)
{
    control_program control{"--listen 127.0.0.1:0"};
    const std::string port = control.address().substr(control.address().find(':'));
    EXPECT_THAT(measure("localhost" + port + " -4 --count 2 --interval 1").output,
                AllOf(StartsWith("2 packets of 41 octets to " + control.address() + '\n'),
                      HasSubstr("\nsent 2, received 2, valid 2\n")));
}

// Replies

/** Begin a measurement with packets of 50 octets. */
child_program probe_of(const loopback_socket &reflector, const std::string &options)
{
    return {TWAMP_PROBE, words_of(reflector.address() + " --size 50 " + options)};
}

TEST(ProbeReply, ThatIsOddIsMeasuredUnlessStrictlyJudged)
{
    const std::function<void(octets &)> oddities[] = {
        [](octets &reply) { reply[49] ^= 0x80; },                         // padding
        [](octets &reply) { reply[40] = 0; },                             // sender's TTL
        [](octets &reply) { reply.resize(38); },                          // length
        [](octets &reply) { reply[15] = reply[13] = 0, reply[38] = 1; }}; // estimate and zeros
    const std::string kinds = "odd and invalid replies:\n"
                              "  shorter than 41 octets: 1\n"
                              "  a field that must be zero is not: 1\n"
                              "  sender TTL 0: 1\n"
                              "  error estimate with multiplier 0: 1\n"
                              "  padding not as sent: 1\n";
    const struct {
        const char *options;
        int status;
        std::string counts;
    } rows[] = {{"", 0, "valid 1, odd 4\nlost 0 (0.00 %)\n"},
                {" --strict", 1, "valid 1, invalid 4\nlost 0 (0.00 %)\n"}};
    for (const auto &row : rows) {
        loopback_socket reflector;
        child_program probe =
            probe_of(reflector, std::string("--count 5 --interval 1 --timeout 60") + row.options);
        reflector.answer(reply_to(reflector.receive()));
        for (const auto &spoil : oddities) {
            octets reply = reply_to(reflector.receive());
            spoil(reply);
            reflector.answer(reply);
        }
        const finished_program finished = probe.wait();
        EXPECT_EQ(finished.status, row.status);
        EXPECT_THAT(finished.output, HasSubstr(kinds));
        EXPECT_THAT(finished.output, HasSubstr("sent 5, received 5, " + row.counts));
    }
}

TEST(ProbeReply, ThatIsForgedInAFloodSpoilsNothing)
{
    loopback_socket reflector;
    child_program probe = probe_of(reflector, "--count 4 --interval 1 --timeout 60");
    for (int packet = 0; packet < 4; ++packet) {
        const octets good = reply_to(reflector.receive());
        octets forged = good;
        forged[31] ^= 0x55; // seconds of a T1 that was never seen
        forged[40] = 3;
        for (int copy = 0; copy < 50; ++copy) {
            forged[27] = static_cast<std::uint8_t>(copy % 8); // sequence numbers sent, and not sent
            reflector.answer(forged);
        }
        reflector.answer(good);
    }
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("sent 4, received 204, valid 4, invalid 200\n"
                                           "lost 0 (0.00 %)\nduplicates 0\nreordered 0 (0.00 %)\n"));
}

TEST(ProbeReply, MayHavePtpTimeStamps)
{
    loopback_socket reflector;
    child_program probe = probe_of(reflector, "--ptp --count 1 --timeout 60");
    const octets request = reflector.receive();
    const auto now = static_cast<std::uint32_t>(time(nullptr));
    const std::uint32_t sent = std::uint32_t{request[4]} << 24 | std::uint32_t{request[5]} << 16 |
                               std::uint32_t{request[6]} << 8 | request[7];
    EXPECT_LT(sent - now + 60, 120u + 37u) << "seconds since 1970, perhaps of TAI";
    EXPECT_EQ(request[12] & 0x40, 0x40);
    octets reply = reply_to(request);
    reply[12] |= 0x40;
    reflector.answer(reply);
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr(", valid 1\n"));
    EXPECT_THAT(finished.output, ContainsRegex("\nreflector's timestamps: PTP \\((UTC|TAI)\\)\n"));
}

TEST(ProbeReply, ThatComesTwiceOrWithAnotherTtlIsForgiven)
{
    loopback_socket reflector;
    child_program probe = probe_of(reflector, "--count 2 --interval 1 --timeout 60");
    const octets first = reply_to(reflector.receive());
    reflector.answer(first);
    reflector.answer(first);
    octets second = reply_to(reflector.receive());
    second[40] = 64;
    reflector.answer(second);
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("received 3, valid 2\nlost 0 (0.00 %)\nduplicates 1"));
    EXPECT_THAT(finished.output, HasSubstr("\nsender TTL not 255: 1\n"));
}

TEST(ProbeReply, ThatIsMissingIsWaitedForAndLost)
{
    loopback_socket reflector;
    const auto start = std::chrono::steady_clock::now();
    child_program probe = probe_of(reflector, "--count 2 --interval 1 --timeout 0.5");
    reflector.answer(reply_to(reflector.receive()));
    const finished_program finished = probe.wait();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output, HasSubstr("sent 2, received 1, valid 1\nlost 1 (50.00 %)\n"));
}

// Ends

TEST(ProbeEnd, AtAClosedPort)
{
    const std::string address = closed_address();
    const finished_program probe = twamp_probe(address + " --count 10 --interval 1 --timeout 20");
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(probe.errors, "twamp-probe: " + address + ": connection refused\n");
    EXPECT_THAT(probe.output, EndsWith("sent 10, received 0, valid 0\n"
                                       "lost 10 (100.00 %)\n"
                                       "duplicates 0\n"
                                       "reordered 0 (0.00 %)\n"
                                       "round trip not measured\n"));
    EXPECT_THAT(twamp_probe(address + " --count 3 --interval 1 --format json").output,
                HasSubstr("\n  \"refused\": true,\n"));
}

TEST(ProbeEnd, BySignalShowsWhatThereIs)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        loopback_socket reflector;
        child_program probe{TWAMP_PROBE, words_of(reflector.address() + " --interval 100000 --format json")};
        reflector.answer(reply_to(reflector.receive()));
        const finished_program finished = probe.stop(signal);
        EXPECT_EQ(finished.status, 1);
        EXPECT_EQ(finished.errors, "twamp-probe: interrupted\n");
        EXPECT_THAT(finished.output, HasSubstr("\n  \"interrupted\": true,\n"));
        EXPECT_THAT(finished.output, HasSubstr("\n    \"sent\": 1,\n"));
    }
}

TEST(ProbeEnd, OfARunWithoutAnEndIsASignal)
{
    loopback_socket reflector;
    child_program probe{
        TWAMP_PROBE, words_of(reflector.address() + " --forever --interval 100000 --timeout 60 --format json")};
    const octets request = reflector.receive();
    probe.send_signal(SIGTERM);
    EXPECT_TRUE(probe.wait_until_asleep()); // for the reply
    reflector.answer(reply_to(request));
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("\n    \"forever\": true,\n    \"kept_packets\": 1000000\n"));
    EXPECT_THAT(finished.output, HasSubstr("\n  \"interrupted\": false,\n"));
    EXPECT_THAT(finished.output, HasSubstr("\n    \"valid\": 1,\n"));
}

TEST(ProbeEnd, OfARunWithoutAnEndIsAtOnceAfterTwoSignals)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE, words_of(reflector.address() + " --forever --timeout 3600")};
    (void)reflector.receive();
    probe.send_signal(SIGINT);
    EXPECT_TRUE(probe.wait_until_asleep()); // it has taken the signal
    const auto is_silent = [&] { return !reflector.receive_within(milliseconds(100)); };
    EXPECT_TRUE(holds_in_time(is_silent)); // it waits for replies
    const finished_program finished = probe.stop(SIGINT);
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.errors, HasSubstr("interrupted\n"));
}

TEST(ProbeSignal, HangupIsIgnoredWhereNohupSaysSo)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE, words_of(reflector.address() + " --count 2 --interval 200 --timeout 60"),
                        [] { return std::signal(SIGHUP, SIG_IGN) != SIG_ERR; }};
    reflector.answer(reply_to(reflector.receive()));
    probe.send_signal(SIGHUP);
    reflector.answer(reply_to(reflector.receive()));
    EXPECT_EQ(probe.wait().status, 0);
}

TEST(ProbeSignal, ShowsTheFiguresSoFar)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE,
                        words_of(reflector.address() + " --flood --window 1 --count 2 --timeout 60")};
    const octets first = reflector.receive();
    probe.send_signal(SIGUSR1);
    (void)probe.wait_for_line("sent 1, received", stream::errors);
    reflector.answer(reply_to(first));
    reflector.answer(reply_to(reflector.receive()));
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("sent 2, received 2, valid 2\n"));
}

TEST(ProbeIntervals, HaveALineEach)
{
    control_program control{"--listen 127.0.0.1:0"};
    const std::string line = control.address() + " --duration 0.75 --report-interval 0.3 --timeout 60";
    const finished_program text = twamp_probe(line);
    EXPECT_EQ(text.status, 0);
    EXPECT_THAT(text.output, ContainsRegex("\n0.00 to 0.30 s: sent [0-9]+ lost 0, min [0-9.]+ median [0-9.]+ "
                                           "p99 - max [0-9.]+ us\n0.30 to 0.60 s: (.*\n)+sent "));
    const finished_program json = twamp_probe(line + " --format json");
    EXPECT_EQ(json.status, 0);
    EXPECT_GE(count_lines(json.output, "{\"interval\":{\"started\":\"20"), 3);
    EXPECT_EQ(count_lines(json.output, "{\"options\":{\"reflector\":"), 1);
    EXPECT_EQ(count_lines(json.output, ""), count_lines(json.output, "{\"interval\"") + 1);
}

TEST(ProbeIntervals, LastOneIsShownWhenGivingUpALostReplyEndsTheRun)
{
    loopback_socket reflector;
    child_program probe{TWAMP_PROBE, words_of(reflector.address() + " --count 2 --interval 1000 --timeout 1.2 "
                                                                    "--report-interval 10")};
    (void)reflector.receive();
    const octets last = reflector.receive();
    std::this_thread::sleep_for(milliseconds(500)); // the first is given up, the last is waited for
    reflector.answer(reply_to(last));
    const finished_program finished = probe.wait();
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(count_lines(finished.output, " s: sent 2 lost "), 1) << finished.output;
}

TEST(ProbeVersion, IsThatOfTheOtherProgram)
{
    const finished_program probe = twamp_probe("--version");
    EXPECT_THAT(probe.output, StartsWith("twamp-probe "));
    EXPECT_EQ(probe, prints("twamp-probe " + twampctl("--version").output.substr(9)));
    EXPECT_EQ(twamp_probe("127.0.0.1:1 --count 5 --version"), probe);
}

// Mistakes

TEST(ProbeMistake, IsSaidInOneLine)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", "REFLECTOR is required; try twamp-probe --help"},
        {"192.0.2.1:", "address '192.0.2.1:': there is no port after the ':'"},
        {"127.0.0.1 --interval 0", "--interval: packets without an interval between them are a flood; use "
                                   "--flood; try twamp-probe --help"},
        {"127.0.0.1 --source 192.0.2.9", "192.0.2.9:0 is no address of this host"},
        {"127.0.0.1 --source ::1",
         "no IPv6 address for '127.0.0.1': Address family for hostname not supported"},
        {"127.0.0.1 --source host", "address 'host': a source is an address, not a name"},
        {"127.0.0.1 --source 127.0.0.1:65535 --senders 2",
         "there are no 2 ports from 65535 on; use a lower one"},
        {"127.0.0.1 --interface nowhere", "there is no interface 'nowhere'"},
        {"127.0.0.1 --timestamps hardware",
         "no hardware time stamps at lo: the interface has no clock that stamps packets; --timestamps kernel "
         "takes the system's"},
        {"127.0.0.1 --forever --count 5", "--count excludes --forever; try twamp-probe --help"},
        {"127.0.0.1:862 -6", "no IPv6 address for '127.0.0.1': Address family for hostname not supported"},
        {"127.0.0.1:862 -4 -6", "-4 excludes -6; try twamp-probe --help"},
        {"127.0.0.1:862 --nope", "The following argument was not expected: --nope; try twamp-probe --help"},
        {"127.0.0.1:862 --count 1 --duration 1", "--count excludes --duration; try twamp-probe --help"},
        {"127.0.0.1:862 --flood --interval 1", "--interval excludes --flood; try twamp-probe --help"},
        {"127.0.0.1:862 --flood --schedule poisson", "--schedule excludes --flood; try twamp-probe --help"},
        {"127.0.0.1:862 --window 1", "--window requires --flood; try twamp-probe --help"},
        {"127.0.0.1:862 --senders 2 --count 5000001",
         "2 senders of 5000001 packets are more than 10000000 packets together"},
        {"127.0.0.1:862 --stamp --size 43", "a STAMP packet has at least 44 octets, not 43"},
        {"127.0.0.1:862 --stamp --padding random",
         "a STAMP packet is filled with zeros; leave --padding or --stamp out"},
        {"127.0.0.1:862 --histogram --format json", "--histogram goes with --format text alone, not with json"},
        {"127.0.0.1 --report-interval 1 --format csv",
         "--report-interval goes with --format text or json, not with csv"},
        {"127.0.0.1:862 --plot delay.jpg", "cannot draw 'delay.jpg': the name has to end in .svg or .png"},
        {"127.0.0.1:862 --plot .svg", "cannot draw '.svg': the name has to end in .svg or .png"},
        {"127.255.255.255:862", "cannot reach 127.255.255.255:862: Permission denied"},
    };
    for (const auto &[line, error] : rows) {
        EXPECT_EQ(twamp_probe(line), ends(2, "", std::string("twamp-probe: ") + error + "\n")) << line;
    }
}

TEST(ProbeMistake, OutsideOfARangeNamesTheOption)
{
    for (const char *option :
         {"--senders 0",    "--senders 257",  "--count 0",        "--count 10000001", "--duration 0",
          "--duration nan", "--interval -1",  "--interval nan",   "--interval 0x",    "--window 0",
          "--window 65537", "--timeout nan",  "--size 13",        "--size 65508",     "--dscp 64",
          "--dscp AF14",    "--ecn 4",        "--schedule daily", "--timestamps gps", "--ttl 0",
          "--ttl 256",      "--padding ones", "--format xml"}) {
        SCOPED_TRACE(option);
        const finished_program probe = twamp_probe(std::string("127.0.0.1:862 ") + option);
        EXPECT_EQ(probe.status, 2);
        EXPECT_EQ(probe.output, "");
        EXPECT_THAT(probe.errors, StartsWith("twamp-probe: " + words_of(option)[0] + ": "));
        EXPECT_EQ(count_lines(probe.errors, ""), 1);
    }
}

} // namespace
} // namespace e2e
