// Addresses and names as written, and what they stand for.

#include "apps/common/reflector_name.hpp"

#include <stdexcept>

#include <gtest/gtest.h>

namespace olv_probe {
namespace {

TEST(ReflectorName, IsTakenApart)
{
    const struct {
        const char *text;
        const char *host;
        std::uint16_t port;
    } rows[] = {{"192.0.2.1:862", "192.0.2.1", 862},
                {"[2001:db8::1]:65535", "2001:db8::1", 65535},
                {"[fe80::1%eth0]:1", "fe80::1%eth0", 1},
                {"192.0.2.1", "192.0.2.1", 862},
                {"reflector", "reflector", 862},
                {"[::1]", "::1", 862},
                {"2001:db8::1", "2001:db8::1", 862},
                {"fe80::1%eth0", "fe80::1%eth0", 862},
                {"reflector.example:862", "reflector.example", 862},
                {"1and1.example:862", "1and1.example", 862}};
    for (const auto &row : rows) {
        const reflector_name name = parse_reflector_name(row.text);
        EXPECT_EQ(name.host, row.host);
        EXPECT_EQ(name.port, row.port) << row.text;
    }
}

TEST(ReflectorName, IsRefusedWithWhatToType)
{
    const struct {
        std::string text;
        std::string message;
    } rows[] = {{"[::1]862", "address '[::1]862': only ':' and a port can follow the ']'"},
                {"[::1]:", "address '[::1]:': only ':' and a port can follow the ']'"},
                {"[::1:862", "address '[::1:862': the ']' after the IPv6 address is missing, as in [::1]"},
                {"a:b:1", "address 'a:b:1': 'a:b:1' is not an IPv6 address; before a port it stands in "
                          "brackets, as in [::1]:862"},
                {"", "address '': it is empty"},
                {":862", "address ':862': there is no address before the port"},
                {"host:", "address 'host:': there is no port after the ':'"},
                {"host:x", "address 'host:x': the port has to be a number from 1 to 65535"},
                {"host:862x", "address 'host:862x': the port has to be a number from 1 to 65535"},
                {"host:65536", "address 'host:65536': the port has to be a number from 1 to 65535"},
                {"host:0", "host:0: port 0 cannot be sent to"},
                {"127.0.0.300:1", "address '127.0.0.300:1': '127.0.0.300' is not an IPv4 address"},
                {"[host]:1", "address '[host]:1': 'host' is not an IPv6 address; only those stand in brackets"},
                {std::string("a\0b:1", 5), "address 'a': contains a zero byte"}};
    for (const auto &row : rows) {
        try {
            (void)parse_reflector_name(row.text); // throws
            ADD_FAILURE() << row.text << " was taken";
        } catch (const std::runtime_error &error) {
            EXPECT_EQ(error.what(), row.message);
        }
    }
}

TEST(Source, IsAnAddressPerhapsWithAPort)
{
    const std::pair<const char *, const char *> rows[] = {{"192.0.2.9", "192.0.2.9:0"},
                                                          {"192.0.2.9:40000", "192.0.2.9:40000"},
                                                          {"2001:db8::9", "[2001:db8::9]:0"},
                                                          {"[2001:db8::9]:40000", "[2001:db8::9]:40000"}};
    for (const auto &[text, address] : rows) {
        EXPECT_EQ(parse_source(text).text(), address);
    }
    EXPECT_THROW((void)parse_source("sender.example"), std::runtime_error);
}

/** The address, or why there is none. */
std::string resolved(const std::string &host, int family)
{
    try {
        return resolve({host, 862}, family).text();
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(Resolve, TakesAddressesOfBothFamilies)
{
    EXPECT_EQ(resolved("127.0.0.1", AF_UNSPEC), "127.0.0.1:862");
    EXPECT_EQ(resolved("::1", AF_UNSPEC), "[::1]:862");
    EXPECT_EQ(resolved("::1", AF_INET6), "[::1]:862");
}

TEST(Resolve, FindsAName)
{
    EXPECT_EQ(resolved("localhost", AF_INET), "127.0.0.1:862");
}

TEST(Resolve, RefusesTheOtherFamily)
{
    EXPECT_EQ(resolved("::1", AF_INET), "no IPv4 address for '::1': Address family for hostname not supported");
    EXPECT_EQ(resolved("127.0.0.1", AF_INET6),
              "no IPv6 address for '127.0.0.1': Address family for hostname not supported");
}

TEST(Resolve, SaysThatANameDoesNotResolve)
{
    // A label of more than 63 letters is no name: nobody is asked.
    const std::string label(70, 'a');
    EXPECT_EQ(resolved(label, AF_UNSPEC), "no address for '" + label + "': Name or service not known");
}

} // namespace
} // namespace olv_probe
