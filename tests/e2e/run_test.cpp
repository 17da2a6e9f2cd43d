// "twampctl run": its course, its reports, its workers, its way down, and what it cannot begin with.

#include <csignal>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <linux/capability.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "network.hpp"
#include "programs.hpp"

namespace e2e {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(Run, IsStoppedBySignals)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        control_program control{"--listen 127.0.0.1:0"};
        const finished_program finished = control.stop(signal);
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.errors, "");
        EXPECT_THAT(finished.output, HasSubstr("\nstopped by a signal\npackets no longer answered\n"));
        EXPECT_THAT(finished.output, HasSubstr(nothing_left));
    }
}

TEST(Run, CountsPacketsOfBothFamilies)
{
    control_program control{"--listen 127.0.0.1:0 --listen [::1]:0 --format text"};
    EXPECT_EQ(measure(control.address(0) + " --count 150 --interval 1").status, 0);
    EXPECT_EQ(measure(control.address(1) + " --count 50 --interval 1").status, 0);
    const finished_program finished = control.stop(SIGINT);
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("Statistics of responder 1, ID 0x1:\n"
                                           "TWAMP responder statistics (Non-zero only)\n"
                                           "received packets: 150\n"
                                           "transmitted packets: 150\n"
                                           "Number of active sessions: 1\n"
                                           "\n"
                                           "Statistics of responder 2, ID 0x2:\n"
                                           "TWAMP responder statistics (Non-zero only)\n"
                                           "received packets: 50\n"
                                           "transmitted packets: 50\n"
                                           "Number of active sessions: 1\n"
                                           "\n"
                                           "Statistics of the module:\n"
                                           "TWAMP global statistics (Non-zero only)\n"
                                           "Total received packets: 200\n"
                                           "Total transmitted packets: 200\n"
                                           "\n"
                                           "unbound from the IPv6 module\n"
                                           "unbound from the IPv4 module\n"
                                           "responder 2 deleted\n"
                                           "responder 1 deleted\n"
                                           "module shut down\n"));
}

TEST(Run, SharesAResponderBetweenAddresses)
{
    control_program control{"--listen 127.0.0.1:0 --listen 127.0.0.1:0 --responders 1"};
    EXPECT_EQ(measure(control.address(0) + " --count 5 --interval 1").status, 0);
    EXPECT_EQ(measure(control.address(1) + " --count 7 --interval 1").status, 0);
    const finished_program finished = control.stop(SIGINT);
    EXPECT_THAT(finished.output, HasSubstr("\nreceived packets: 12\n"));
    EXPECT_THAT(finished.output, Not(HasSubstr("responder 2")));
}

TEST(Run, PrintsTablesAndCallsOfMoreRespondersThanAddresses)
{
    const finished_program finished =
        twampctl("run --listen [::1]:0 --responders 3 --duration 0 --tables --imc");
    EXPECT_EQ(finished.status, 0);
    EXPECT_THAT(finished.output, HasSubstr("responder 3 created: ID 0x3\nbound to the IPv6 module: key 6\n"));
    EXPECT_EQ(count_lines(finished.output, "bound to"), 1);
    EXPECT_THAT(finished.output,
                HasSubstr("\nTables:\n"
                          "olv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED \n"
                          "olv_twamp.twamp_responder_lookup, 0x1, DEFINED\n"
                          "olv_twamp.twamp_responder_lookup, 0x2, DEFINED\n"
                          "olv_twamp.twamp_responder_lookup, 0x3, DEFINED\n"
                          "olv_twamp.twamp_bind_to_next_module, "));
    EXPECT_THAT(finished.output, HasSubstr("call to the IPv4 module: tree function 0x101\n"
                                           "call to the IPv6 module: tree function 0x101\n"));
    EXPECT_THAT(finished.output, HasSubstr(nothing_left));
}

TEST(Run, ShowsRatesWhenItIsTold)
{
    control_program control{"--listen 127.0.0.1:0 --watch"};
    EXPECT_THAT(control.wait_for_line("20"),
                EndsWith("Z  received 0.0/s  sent 0.0/s  dropped 0.0/s  sessions 0"));
    EXPECT_EQ(control.stop(SIGINT).status, 0);
}

TEST(Run, TracesToAFileOrStandardError)
{
    const test_folder folder;
    const std::string run = "run --listen 127.0.0.1:0 --duration 0 --trace ";
    const finished_program finished = twampctl(run + folder.path("trace"));
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(folder.read("trace"), HasSubstr("olv_twamp_responder_create"));
    EXPECT_THAT(twampctl(run + "-").errors, HasSubstr("olv_twamp_responder_create"));
    EXPECT_EQ(twampctl(run + "/nonexistent/trace"),
              ends(1, "",
                   "twampctl: cannot write the trace to /nonexistent/trace: "
                   "No such file or directory\n"));
}

// Workers

TEST(Workers, CountAsOneAndShareTheSessions)
{
    for (const int workers : {1, 2, 64}) {
        SCOPED_TRACE(workers);
        control_program control{"--listen 127.0.0.1:0 --sessions 40 --workers " + std::to_string(workers)};
        EXPECT_EQ(sockets_at(control.address()).count, workers);
        EXPECT_EQ(measure(control.address() + " --senders 40 --count 25 --interval 1").status, 0);
        loopback_socket one_more;
        one_more.send_to(control.address(), octets(41));
        EXPECT_TRUE(wait_until_taken(control.address()));
        const finished_program finished = control.stop(SIGINT);
        EXPECT_FALSE(one_more.receive_within(std::chrono::milliseconds{0}));
        EXPECT_EQ(finished.status, 0);
        EXPECT_EQ(finished.errors, "");
        EXPECT_THAT(finished.output, HasSubstr("\nreceived packets: 1001\n"
                                               "transmitted packets: 1000\n"
                                               "Number of active sessions: 40\n"
                                               "Packets dropped due to max number of sessions reached: 1\n"));
        EXPECT_THAT(finished.output, HasSubstr("Total received packets: 1001\n"
                                               "Total transmitted packets: 1000\n"
                                               "Packets dropped due to hash errors: 1\n"));
        EXPECT_THAT(finished.output, HasSubstr(nothing_left));
    }
}

TEST(Workers, OfTwoProgramsDoNotShareAnAddress)
{
    control_program control{"--listen 127.0.0.1:0 --workers 2"};
    const finished_program second = twampctl("run --workers 2 --listen " + control.address());
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.errors, "twampctl: cannot listen on " + control.address() + ": Address already in use\n");
    EXPECT_EQ(control.stop(SIGINT).status, 0);
}

/** Processor time for packets one after the other, and until the program sleeps. */
std::chrono::nanoseconds time_used(const std::string &option)
{
    control_program control{"--listen 127.0.0.1:0 " + option};
    const std::chrono::nanoseconds before = control.processor_time();
    loopback_socket sender;
    for (int packet = 0; packet < 20; ++packet) {
        sender.send_to(control.address(), octets(41));
        (void)sender.receive();
    }
    EXPECT_TRUE(control.wait_until_asleep());
    return control.processor_time() - before;
}

TEST(Workers, SleepAtOnceWithoutBusyPolling)
{
    EXPECT_GT(time_used("--busy-poll 300000").count(), 3 * time_used("--busy-poll 0").count());
}

// What it cannot begin with

TEST(Usage, OfRunIsOneLineAndStatus2)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", "no address to listen on; give one such as --listen 127.0.0.1:8620"},
        {"--nope", "The following argument was not expected: --nope; try twampctl --help"},
        {"--check", "--check requires --config; try twampctl --help"},
        {"--sessions 0", "--sessions: Value 0 not in range 1 to 16777216; try twampctl --help"},
        {"--duration nan", "--duration: Value nan not in range 0 to 1e+09; try twampctl --help"},
        {"--listen ::1:862", "address '::1:862': an IPv6 address is written in brackets, as in [::1]:862"},
        {"--listen 127.0.0.1:0 --allow 192.0.2.0/33",
         "prefix '192.0.2.0/33': the length has to be a number from 0 to 32"},
        {"--listen localhost", "address 'localhost': expected ADDRESS:PORT or [IPV6-ADDRESS]:PORT"},
        {"--listen 127.0.0.1:8620 --listen 127.0.0.1:8620", "127.0.0.1:8620 is listened on twice"},
        {"--listen 127.0.0.1:8620 --listen :8620",
         "0.0.0.0:8620 is all addresses, 127.0.0.1:8620 is one of them"},
        {"--listen 127.0.0.1:0 --responders 3 --capacity 2",
         "3 responders do not fit a capacity of 2 responder IDs"},
        {"--listen 127.0.0.1:0 --listen 127.0.0.1:0 --sessions 16777216",
         "2 responders have no room for 16777216 sessions each, but for 16777216 together"}};
    for (const auto &[options, error] : rows) {
        EXPECT_EQ(twampctl(std::string("run ") + options),
                  ends(2, "", std::string("twampctl: ") + error + "\n"));
    }
}

/** It got as far as the sockets, and left nothing behind. */
void expect_undone(const finished_program &finished, const std::string &address, const std::string &reason)
{
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, "twampctl: cannot listen on " + address + ": " + reason + "\n");
    EXPECT_THAT(finished.output, HasSubstr(std::string("unbound from the IPv4 module\n"
                                                       "responder 1 deleted\n"
                                                       "module shut down\n") +
                                           nothing_left));
}

TEST(Sockets, BusyPort)
{
    const loopback_socket other;
    expect_undone(twampctl("run --listen " + other.address()), other.address(), "Address already in use");
}

TEST(Sockets, AddressOfAnotherHost)
{
    expect_undone(twampctl("run --listen 192.0.2.1:8620"), "192.0.2.1:8620", "Cannot assign requested address");
}

/** Ports below 1024 need a right that nobody has in a name space of its own after starting a program. Root can
 *  give it up without one. */
bool give_rights_up()
{
    return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 ||
           prctl(PR_CAPBSET_DROP, CAP_NET_BIND_SERVICE, 0, 0, 0) == 0;
}

TEST(Sockets, MissingRight)
{
    const finished_program finished = twampctl("run --listen 0.0.0.0:862 --duration 0", give_rights_up);
    ASSERT_NE(finished.status, 99) << "no right can be given up: this user may make no name spaces of users, "
                                      "and has not CAP_SETPCAP";
    expect_undone(
        finished, "0.0.0.0:862",
        "Permission denied; ports below 1024 need the capability CAP_NET_BIND_SERVICE "
        "(setcap cap_net_bind_service=+ep PROGRAM), or sysctl net.ipv4.ip_unprivileged_port_start=862");
}

// What is not to be had

template <__rlimit_resource Resource, rlim_t Limit> bool limit()
{
    rlimit limited{};
    if (getrlimit(Resource, &limited) != 0) {
        return false;
    }
    limited.rlim_cur = Limit;
    return setrlimit(Resource, &limited) == 0;
}

/** What a run ends with, --check says before it. */
void expect_found_by_check(const std::string &options, bool (*limited)(), const std::string &errors)
{
    test_folder folder;
    folder.write("config.json", "{}");
    EXPECT_EQ(twampctl("run --check --config " + folder.path("config.json") + " " + options, limited),
              ends(2, "", errors));
}

TEST(Shortage, OfThreads)
{
    // Threads have stacks as long as the limit says, and no address space is as large.
    const finished_program finished =
        twampctl("run --listen 127.0.0.1:0 --duration 0", limit<RLIMIT_STACK, 1ULL << 47>);
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, "twampctl: no thread is to be had: Resource temporarily unavailable "
                               "(ulimit -u and -v, pids.max of the control group)\n");
    EXPECT_THAT(finished.output, HasSubstr(std::string("module shut down\n") + nothing_left));
    expect_found_by_check("--listen 127.0.0.1:0", limit<RLIMIT_STACK, 1ULL << 47>, finished.errors);
}

TEST(Shortage, OfDescriptors)
{
    // Eight workers have two each, and the listener is to have eight; those that it got are given back.
    const finished_program finished =
        twampctl("run --duration 0 --workers 8 --listen 127.0.0.1:8620", limit<RLIMIT_NOFILE, 25>);
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors,
              "twampctl: cannot listen on 127.0.0.1:8620: Too many open files; this process may "
              "have 25 descriptors (ulimit -n)\n");
    EXPECT_THAT(finished.output, HasSubstr(std::string("module shut down\n") + nothing_left));
    expect_found_by_check("--workers 8 --listen 127.0.0.1:8620", limit<RLIMIT_NOFILE, 25>, finished.errors);
}

#ifndef __SANITIZE_ADDRESS__ // which takes more of it than any limit
TEST(Shortage, OfMemory)
{
    const finished_program finished =
        twampctl("run --listen 127.0.0.1:0 --duration 0 --sessions 16777216", limit<RLIMIT_AS, 256ULL << 20>);
    EXPECT_EQ(finished,
              ends(1, "", "twampctl: no memory is to be had for 65536 responder IDs and 16777216 sessions\n"));
    expect_found_by_check("--listen 127.0.0.1:0 --sessions 16777216", limit<RLIMIT_AS, 256ULL << 20>,
                          finished.errors);
}
#endif

// Names and all addresses

TEST(Listen, OnAllAddressesAndOnThoseOfAName)
{
    for (const char *each : {":0", "*:0", "localhost:0"}) {
        control_program control{std::string("--listen ") + each};
        EXPECT_EQ(measure(control.address(0) + " --count 5 --interval 1").status, 0) << control.address(0);
        const finished_program finished = control.stop(SIGINT);
        EXPECT_EQ(finished.status, 0);
        EXPECT_THAT(finished.output, Not(HasSubstr("responder 2"))) << "one for each --listen";
        EXPECT_EQ(finished.output.find("ready 127.0.0.1:") == std::string::npos, *each != 'l')
            << finished.output;
        EXPECT_EQ(finished.output.find(" [::]:") == std::string::npos, *each == 'l') << finished.output;
    }
}

TEST(Listen, AndUnlistenByTheSameName)
{
    const std::string address = loopback_socket{}.address(); // free again
    const std::string port = address.substr(address.find(':') + 1);
    EXPECT_EQ(twampctl("--quiet up then responder create then listen :" + port + " then unlisten :" + port +
                       " then listeners"),
              prints("No listeners\n"));
}

} // namespace
} // namespace e2e
