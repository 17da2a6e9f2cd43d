// Addresses and names as written, and what they stand for.

#include "apps/common/reflector_name.hpp"

#include <ostream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace olv_probe {
namespace {

struct good_row {
    const char *text;
    const char *host;
    std::uint16_t port;
};

void PrintTo(const good_row &row, std::ostream *out)
{
    *out << row.text;
}

class GoodName : public testing::TestWithParam<good_row> {};

TEST_P(GoodName, IsTakenApart)
{
    const reflector_name name = parse_reflector_name(GetParam().text);
    EXPECT_EQ(name.host, GetParam().host);
    EXPECT_EQ(name.port, GetParam().port);
}

INSTANTIATE_TEST_SUITE_P(Names, GoodName,
                         testing::Values(good_row{"192.0.2.1:862", "192.0.2.1", 862},
                                         good_row{"[2001:db8::1]:65535", "2001:db8::1", 65535},
                                         good_row{"[fe80::1%eth0]:1", "fe80::1%eth0", 1},
                                         good_row{"reflector.example:862", "reflector.example", 862},
                                         good_row{"1and1.example:862", "1and1.example", 862}));

struct bad_row {
    std::string text;
    const char *message;
};

void PrintTo(const bad_row &row, std::ostream *out)
{
    *out << row.text;
}

class BadName : public testing::TestWithParam<bad_row> {};

TEST_P(BadName, IsRefusedWithWhatToType)
{
    try {
        (void)parse_reflector_name(GetParam().text); // throws
        FAIL() << "taken";
    } catch (const std::runtime_error &error) {
        EXPECT_STREQ(error.what(), GetParam().message);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Names, BadName,
    testing::Values(
        bad_row{"192.0.2.1", "address '192.0.2.1': no port; type 192.0.2.1:862"},
        bad_row{"reflector", "address 'reflector': no port; type reflector:862"},
        bad_row{"[::1]", "address '[::1]': no port; type [::1]:862"},
        bad_row{"[::1]862", "address '[::1]862': no port; type [::1]:862"},
        bad_row{"[::1:862", "address '[::1:862': the ']' after the IPv6 address is missing, as in [::1]:862"},
        bad_row{"::1:862", "address '::1:862': an IPv6 address is written in brackets, as in [::1]:862"},
        bad_row{":862", "address ':862': there is no address before the port"},
        bad_row{"host:", "address 'host:': the port has to be a number from 1 to 65535"},
        bad_row{"host:x", "address 'host:x': the port has to be a number from 1 to 65535"},
        bad_row{"host:862x", "address 'host:862x': the port has to be a number from 1 to 65535"},
        bad_row{"host:65536", "address 'host:65536': the port has to be a number from 1 to 65535"},
        bad_row{"host:0", "host:0: port 0 cannot be sent to"},
        bad_row{"127.0.0.300:1", "address '127.0.0.300:1': '127.0.0.300' is not an IPv4 address"},
        bad_row{"[host]:1", "address '[host]:1': 'host' is not an IPv6 address; only those stand in brackets"},
        bad_row{std::string("a\0b:1", 5), "address 'a': contains a zero byte"}));

TEST(Resolve, TakesAddressesOfBothFamilies)
{
    EXPECT_EQ(resolve({"127.0.0.1", 862}, AF_UNSPEC).text(), "127.0.0.1:862");
    EXPECT_EQ(resolve({"::1", 862}, AF_UNSPEC).text(), "[::1]:862");
    EXPECT_EQ(resolve({"::1", 862}, AF_INET6).text(), "[::1]:862");
}

TEST(Resolve, FindsAName)
{
    EXPECT_EQ(resolve({"localhost", 862}, AF_INET).text(), "127.0.0.1:862");
}

std::string refusal(const reflector_name &name, int family)
{
    try {
        return resolve(name, family).text();
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(Resolve, RefusesTheOtherFamily)
{
    EXPECT_EQ(refusal({"::1", 862}, AF_INET),
              "no IPv4 address for '::1': Address family for hostname not supported");
    EXPECT_EQ(refusal({"127.0.0.1", 862}, AF_INET6),
              "no IPv6 address for '127.0.0.1': Address family for hostname not supported");
}

TEST(Resolve, SaysThatANameDoesNotResolve)
{
    // A label of more than 63 letters is no name: nobody is asked.
    const std::string label(70, 'a');
    EXPECT_EQ(refusal({label, 862}, AF_UNSPEC), "no address for '" + label + "': Name or service not known");
}

} // namespace
} // namespace olv_probe
