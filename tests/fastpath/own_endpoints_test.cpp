#include "fastpath/core/own_endpoints.hpp"

#include <string>

#include <gtest/gtest.h>

#include "net/socket_address.hpp"

namespace {

using namespace olv_fastpath;
using namespace olv_net;

ip_endpoint endpoint(const std::string &text)
{
    return endpoint_of(parse_socket_address(text).address);
}

class own_endpoints_test : public testing::Test {
  protected:
    void listen_at(std::initializer_list<const char *> addresses)
    {
        std::vector<ip_endpoint> endpoints;
        for (const char *address : addresses)
            endpoints.push_back(endpoint(address));
        own_.set(endpoints);
    }

    bool is_own(const std::string &text) { return own_.contains(endpoint(text), 1); }

    own_endpoints own_;
};

TEST_F(own_endpoints_test, are_none_at_first)
{
    EXPECT_FALSE(is_own("127.0.0.1:862"));
    EXPECT_FALSE(is_own("[::1]:862"));
}

TEST_F(own_endpoints_test, are_those_that_are_listened_at)
{
    listen_at({"192.0.2.9:862", "192.0.2.1:862", "[2001:db8::1]:863"});
    EXPECT_TRUE(is_own("192.0.2.1:862"));
    EXPECT_TRUE(is_own("192.0.2.9:862"));
    EXPECT_TRUE(is_own("[2001:db8::1]:863"));
    EXPECT_FALSE(is_own("192.0.2.1:863"));
    EXPECT_FALSE(is_own("192.0.2.2:862"));
    EXPECT_FALSE(is_own("127.0.0.1:862"));
    EXPECT_FALSE(is_own("[2001:db8::1]:862"));
}

TEST_F(own_endpoints_test, are_all_of_this_systems_addresses_for_the_unspecified_one)
{
    listen_at({"0.0.0.0:862", "[::]:863"});
    EXPECT_TRUE(is_own("127.0.0.1:862"));
    EXPECT_TRUE(is_own("127.9.9.9:862"));
    EXPECT_TRUE(is_own("[::1]:863"));
    EXPECT_FALSE(is_own("192.0.2.1:862"));
    EXPECT_FALSE(is_own("[2001:db8::1]:863"));
    EXPECT_FALSE(is_own("127.0.0.1:863")); // IPv6 only
    EXPECT_FALSE(is_own("[::1]:862"));
}

TEST_F(own_endpoints_test, include_the_unspecified_addresses_at_any_port)
{
    EXPECT_TRUE(is_own("0.0.0.0:1"));
    EXPECT_TRUE(is_own("[::]:65535"));
}

TEST_F(own_endpoints_test, are_those_that_were_set_last)
{
    listen_at({"192.0.2.1:862"});
    listen_at({"192.0.2.1:863"});
    EXPECT_FALSE(is_own("192.0.2.1:862"));
    EXPECT_TRUE(is_own("192.0.2.1:863"));
}

} // namespace
