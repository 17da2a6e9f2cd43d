#include "net/socket_address.hpp"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <netinet/in.h>

#include "net/address_text.hpp"
#include "net/descriptor.hpp"

namespace {

using namespace olv_net;

TEST(socket_address, of_a_socket_is_the_one_that_it_has)
{
    const descriptor bound{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const socket_address any_port = parse_socket_address("127.0.0.1:0");
    ASSERT_EQ(bind(bound.number(), any_port.generic(), any_port.length), 0);
    const std::optional<socket_address> local = local_address_of(bound.number());
    ASSERT_TRUE(local);
    EXPECT_NE(local->port(), 0);
    EXPECT_EQ(local->text(), "127.0.0.1:" + std::to_string(local->port()));
    EXPECT_FALSE(local_address_of(-1));
}

TEST(socket_address, is_read_and_written_the_same)
{
    for (const char *text : {"127.0.0.1:8620", "0.0.0.0:0", "255.255.255.255:65535", "[::1]:862", "[::]:0",
                             "[2001:db8::1]:1", "[::ffff:10.0.0.1]:7"})
        EXPECT_EQ(parse_socket_address(text).text(), text);
}

TEST(address_text, takes_digits_and_nothing_else)
{
    EXPECT_EQ(parse_port("0"), 0);
    EXPECT_EQ(parse_port("65535"), 65535);
    for (const char *text : {"", "65536", "99999999999", "-1", "+1", " 8", "8 ", "86x", "0x10"})
        EXPECT_EQ(parse_port(text), std::nullopt) << text;
    EXPECT_EQ(parse_decimal("32", 32), 32u);
    EXPECT_EQ(parse_decimal("33", 32), std::nullopt);
}

TEST(socket_address, has_family_and_port)
{
    EXPECT_EQ(parse_socket_address("127.0.0.1:8620").family(), AF_INET);
    EXPECT_EQ(parse_socket_address("127.0.0.1:8620").port(), 8620);
    EXPECT_EQ(parse_socket_address("[::1]:862").family(), AF_INET6);
    EXPECT_EQ(parse_socket_address("[::1]:862").port(), 862);
}

TEST(socket_address, wrong_text_is_refused_in_one_line)
{
    struct row {
        std::string text;
        const char *message;
    };
    const row rows[] = {
        {"", "address '': expected ADDRESS:PORT or [IPV6-ADDRESS]:PORT"},
        {"127.0.0.1", "address '127.0.0.1': there is no port; write it as 127.0.0.1:8620"},
        {"[::1]", "address '[::1]': there is no port; write it as [::1]:8620"},
        {"[::1:862", "address '[::1:862': expected ADDRESS:PORT or [IPV6-ADDRESS]:PORT"},
        {"::1:862", "address '::1:862': an IPv6 address is written in brackets, as in [::1]:862"},
        {"127.0.0.1:", "address '127.0.0.1:': the port has to be a number from 0 to 65535"},
        {"127.0.0.1:65536", "address '127.0.0.1:65536': the port has to be a number from 0 to 65535"},
        {":862", "address ':862': '' is not an IPv4 address"},
        {"localhost:862", "address 'localhost:862': 'localhost' is not an IPv4 address"},
        {"[127.0.0.1]:862", "address '[127.0.0.1]:862': '127.0.0.1' is not an IPv6 address of this system"},
        {"[fe80::1%nosuch]:1",
         "address '[fe80::1%nosuch]:1': 'fe80::1%nosuch' is not an IPv6 address of this system"},
        {std::string("127.0.0.1\0:862", 14), "address '127.0.0.1': contains a zero byte"},
    };
    for (const row &each : rows) {
        try {
            (void)parse_socket_address(each.text);
            ADD_FAILURE() << each.text << " was accepted";
        } catch (const std::runtime_error &error) {
            EXPECT_STREQ(error.what(), each.message);
        }
    }
}

} // namespace
