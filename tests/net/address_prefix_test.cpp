#include "net/address_prefix.hpp"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "net/socket_address.hpp"

namespace {

using namespace olv_net;

/** From "192.0.2.1" or "[2001:db8::1]". */
ip_address address_of(const std::string &host)
{
    return endpoint_of(parse_socket_address(host + ":1").address).address;
}

TEST(address_prefix, is_written_as_it_is_meant)
{
    for (const char *text : {"192.0.2.0/24", "0.0.0.0/0", "10.128.0.0/9", "192.0.2.1/32", "2001:db8::/32",
                             "::/0", "2001:db8::1/128", "fe80::/10", "::/96"})
        EXPECT_EQ(parse_address_prefix(text).text(), text);
    // A bare address has all its bits, one in its mapped form is of IPv4.
    EXPECT_EQ(parse_address_prefix("192.0.2.1").text(), "192.0.2.1/32");
    EXPECT_EQ(parse_address_prefix("2001:db8::1").text(), "2001:db8::1/128");
    EXPECT_EQ(parse_address_prefix("::ffff:192.0.2.0/120").text(), "192.0.2.0/24");
    EXPECT_EQ(parse_address_prefix("::ffff:0:0/96").text(), "0.0.0.0/0");
}

TEST(address_prefix, wrong_text_is_refused_in_one_line)
{
    struct row {
        std::string text;
        const char *message;
    };
    const row rows[] = {
        {"", "prefix '': '' is not an IPv4 or IPv6 address"},
        {"192.0.2.256/32", "prefix '192.0.2.256/32': '192.0.2.256' is not an IPv4 or IPv6 address"},
        {" 192.0.2.0/24", "prefix ' 192.0.2.0/24': ' 192.0.2.0' is not an IPv4 or IPv6 address"},
        {"localhost", "prefix 'localhost': 'localhost' is not an IPv4 or IPv6 address"},
        {"fe80::1%lo", "prefix 'fe80::1%lo': 'fe80::1%lo' is not an IPv4 or IPv6 address"},
        {"192.0.2.0/", "prefix '192.0.2.0/': the length has to be a number from 0 to 32"},
        {"192.0.2.0/33", "prefix '192.0.2.0/33': the length has to be a number from 0 to 32"},
        {"192.0.2.0/24/8", "prefix '192.0.2.0/24/8': the length has to be a number from 0 to 32"},
        {"192.0.2.0/255.255.255.0",
         "prefix '192.0.2.0/255.255.255.0': the length has to be a number from 0 to 32"},
        {"2001:db8::/129", "prefix '2001:db8::/129': the length has to be a number from 0 to 128"},
        {"192.0.2.1/24", "prefix '192.0.2.1/24': bits behind the prefix are set; the prefix is 192.0.2.0/24"},
        {"2001:db8::1/32",
         "prefix '2001:db8::1/32': bits behind the prefix are set; the prefix is 2001:db8::/32"},
        {"::ffff:192.0.2.0/100",
         "prefix '::ffff:192.0.2.0/100': bits behind the prefix are set; the prefix is 192.0.0.0/4"},
        {std::string("10.0.0.0\0/8", 11), "prefix '10.0.0.0': contains a zero byte"},
    };
    for (const row &each : rows) {
        try {
            (void)parse_address_prefix(each.text);
            ADD_FAILURE() << each.text << " was accepted";
        } catch (const std::runtime_error &error) {
            EXPECT_STREQ(error.what(), each.message);
        }
    }
}

TEST(prefix_list, contains_the_addresses_of_its_prefixes)
{
    struct row {
        const char *prefix;
        const char *address;
        bool contained;
    };
    const row rows[] = {
        {"192.0.2.0/24", "192.0.2.0", true},
        {"192.0.2.0/24", "192.0.2.255", true},
        {"192.0.2.0/24", "192.0.3.0", false},
        {"192.0.2.128/25", "192.0.2.127", false},
        {"192.0.2.128/25", "192.0.2.128", true},
        {"192.0.2.1", "192.0.2.1", true},
        {"0.0.0.0/0", "255.255.255.255", true},
        {"0.0.0.0/0", "[2001:db8::1]", false},
        {"2001:db8::/32", "[2001:db8:ffff::1]", true},
        {"2001:db8::/32", "[2001:db9::]", false},
        {"2001:db8::/65", "[2001:db8::7fff:ffff:ffff:ffff]", true},
        {"2001:db8::/65", "[2001:db8::8000:0:0:0]", false},
        {"::/0", "[2001:db8::1]", true},
        {"::/0", "192.0.2.1", false}, // an IPv4 sender, although it is looked up in its mapped form
        {"::ffff:192.0.2.0/120", "192.0.2.7", true},
        {"::ffff:0:0/96", "192.0.2.7", true},
        {"::ffff:0:0/96", "[2001:db8::1]", false},
        {"192.0.2.0/24", "[::ffff:192.0.2.7]", true},
    };
    for (const row &each : rows) {
        prefix_list list;
        list.add(parse_address_prefix(each.prefix));
        EXPECT_EQ(list.contains(address_of(each.address)), each.contained)
            << each.address << " in " << each.prefix;
    }
}

TEST(prefix_list, contains_what_any_of_its_prefixes_contains)
{
    prefix_list list;
    EXPECT_TRUE(list.empty());
    EXPECT_FALSE(list.contains(address_of("192.0.2.1")));
    list.add(parse_address_prefix("192.0.2.0/24"));
    list.add(parse_address_prefix("2001:db8::/32"));
    EXPECT_FALSE(list.empty());
    EXPECT_TRUE(list.contains(address_of("192.0.2.1")));
    EXPECT_TRUE(list.contains(address_of("[2001:db8::1]")));
    EXPECT_FALSE(list.contains(address_of("11.0.0.0")));
}

} // namespace
