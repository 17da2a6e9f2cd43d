// Where to listen, as users write it; what cannot be listened at together; why there is no socket.

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "net/binding.hpp"
#include "net/listen_addresses.hpp"

namespace olv_net {
namespace {

std::string all_of(std::string_view text)
{
    std::string all;
    for (const socket_address &each : listen_addresses(text)) {
        all += (all.empty() ? "" : " ") + each.text();
    }
    return all;
}

bool has_ipv6()
{
    return descriptor{socket(AF_INET6, SOCK_DGRAM, 0)}.is_open();
}

TEST(listen_addresses, are_those_that_the_text_means)
{
    const std::string everywhere = has_ipv6() ? "0.0.0.0:862 [::]:862" : "0.0.0.0:862";
    const std::pair<const char *, std::string> rows[] = {{"192.0.2.1:862", "192.0.2.1:862"},
                                                         {"[::1]:0", "[::1]:0"},
                                                         {"0.0.0.0:862", "0.0.0.0:862"},
                                                         {":862", everywhere},
                                                         {"*:862", everywhere}};
    for (const auto &[text, meant] : rows) {
        EXPECT_EQ(all_of(text), meant) << text;
    }
}

TEST(listen_addresses, of_a_name_are_its_own_that_this_host_has)
{
    const std::string found = all_of("localhost:8620"); // the system's table may leave IPv6 out
    EXPECT_TRUE(found == "127.0.0.1:8620" || found == "127.0.0.1:8620 [::1]:8620") << found;
}

TEST(listen_addresses, wrong_text_is_refused_in_one_line)
{
    const std::pair<std::string, const char *> rows[] = {
        {"", "address '': expected ADDRESS:PORT or [IPV6-ADDRESS]:PORT"},
        {"localhost", "address 'localhost': expected ADDRESS:PORT or [IPV6-ADDRESS]:PORT"},
        {"localhost:", "address 'localhost:': the port has to be a number from 0 to 65535"},
        {"localhost:862x", "address 'localhost:862x': the port has to be a number from 0 to 65535"},
        {"*:65536", "address '*:65536': the port has to be a number from 0 to 65535"},
        {"10.0.0.256:862", "address '10.0.0.256:862': '10.0.0.256' is not an IPv4 address"},
        {"[localhost]:862", "address '[localhost]:862': 'localhost' is not an IPv6 address of this system"},
        {"::1:862", "address '::1:862': an IPv6 address is written in brackets, as in [::1]:862"},
        {std::string("local\0host:862", 14), "address 'local': contains a zero byte"}};
    for (const auto &[text, message] : rows) {
        try {
            ADD_FAILURE() << text << " stands for " << all_of(text);
        } catch (const std::runtime_error &error) {
            EXPECT_STREQ(error.what(), message);
        }
    }
    try {
        ADD_FAILURE() << all_of("no such name:862");
    } catch (const std::runtime_error &error) { // the system's own words follow
        EXPECT_TRUE(std::string_view(error.what())
                        .starts_with("address 'no such name:862': no address for 'no such name': "))
            << error.what();
    }
}

TEST(overlapping, are_the_same_and_one_among_all)
{
    struct row {
        std::vector<const char *> texts;
        std::string pair;
    };
    const row rows[] = {
        {{"127.0.0.1:862", "127.0.0.2:862", "[::1]:862", "127.0.0.1:863"}, ""},
        {{"127.0.0.1:0", "127.0.0.1:0", "0.0.0.0:0", "0.0.0.0:0"}, ""},
        {{"0.0.0.0:862", "[::]:862", "[::1]:863"}, ""},
        {{"127.0.0.1:862", "192.0.2.1:862", "127.0.0.1:862"}, "127.0.0.1:862 127.0.0.1:862"},
        {{"192.0.2.1:862", "0.0.0.0:862"}, "0.0.0.0:862 192.0.2.1:862"},
        {{"[::1]:862", "0.0.0.0:862", "[::]:862"}, "[::]:862 [::1]:862"},
        {{"[::]:862", "[::ffff:127.0.0.1]:862"}, "[::]:862 [::ffff:127.0.0.1]:862"},
    };
    for (const row &each : rows) {
        std::vector<socket_address> addresses;
        for (const char *text : each.texts) {
            addresses.push_back(parse_socket_address(text));
        }
        const auto found = overlapping(addresses);
        EXPECT_EQ(found ? found->first.text() + " " + found->second.text() : "", each.pair);
    }
}

TEST(reason_against_socket, says_what_would_help)
{
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const struct {
        const char *address;
        int error;
        std::string reason;
    } rows[] = {
        {"0.0.0.0:862", EACCES,
         "Permission denied; ports below 1024 need the capability CAP_NET_BIND_SERVICE "
         "(setcap cap_net_bind_service=+ep PROGRAM), or sysctl net.ipv4.ip_unprivileged_port_start=862"},
        {"0.0.0.0:1024", EACCES, "Permission denied"},
        {"0.0.0.0:862", EADDRINUSE, "Address already in use"},
        {"0.0.0.0:862", EMFILE,
         "Too many open files; this process may have " + std::to_string(limit.rlim_cur) +
             " descriptors (ulimit -n)"},
        {"0.0.0.0:862", ENFILE,
         "Too many open files in system; the system may have no more descriptors (sysctl fs.file-max)"}};
    for (const auto &row : rows) {
        EXPECT_EQ(reason_against_socket(parse_socket_address(row.address), row.error), row.reason);
    }
}

} // namespace
} // namespace olv_net
