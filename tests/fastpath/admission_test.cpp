// Which packets get to the reflector.

#include "fastpath/core/admission.hpp"

#include <initializer_list>

#include "fixture.hpp"
#include "net/socket_address.hpp"

namespace {

using namespace olv_fastpath_test;

ip_endpoint endpoint(const std::string &text)
{
    return endpoint_of(parse_socket_address(text).address);
}

class admission_test : public reflector_test {
  protected:
    admission_test() { define_usual_path(); }

    void use(const fast_path_options &options) { admission_.emplace(processor_, options); }

    void listen_at(std::initializer_list<const char *> addresses)
    {
        for (const char *address : addresses)
            admission_->own().add(endpoint(address));
    }

    std::optional<drop_reason> against(const std::string &sender)
    {
        return admission_->reason_against(endpoint(sender), processor_.timer_now());
    }

    std::optional<admission> admission_{std::in_place, processor_, fast_path_options{}};
};

// Senders

TEST_F(admission_test, sender_is_dropped_for_the_first_reason_there_is)
{
    fast_path_options options{.minimum_source_port = 1024};
    options.allowed_sources.add(parse_address_prefix("192.0.2.0/24"));
    options.allowed_sources.add(parse_address_prefix("2001:db8::/32"));
    use(options);
    listen_at({"192.0.2.1:862", "192.0.2.1:8620", "198.51.100.1:8620"});
    struct row {
        const char *sender;
        std::optional<drop_reason> expected;
    };
    const row rows[] = {
        {"192.0.2.7:1024", std::nullopt},
        {"[2001:db8::7]:65535", std::nullopt},
        {"192.0.3.7:1024", drop_reason::source_not_allowed},
        {"[2001:db9::7]:1024", drop_reason::source_not_allowed},
        {"198.51.100.1:8620", drop_reason::source_not_allowed},
        {"192.0.3.7:0", drop_reason::source_not_allowed},
        {"192.0.2.7:1023", drop_reason::source_port},
        {"192.0.2.1:862", drop_reason::source_port},
        {"192.0.2.1:8620", drop_reason::own_source},
    };
    for (const row &each : rows)
        EXPECT_EQ(against(each.sender), each.expected) << each.sender;
}

TEST_F(admission_test, well_known_source_ports_are_not_answered_but_for_that_of_reflectors)
{
    for (const char *answered : {"192.0.2.7:862", "192.0.2.7:1024", "[2001:db8::7]:65535"})
        EXPECT_EQ(against(answered), std::nullopt) << answered;
    for (const char *low :
         {"192.0.2.7:0", "192.0.2.7:7", "192.0.2.7:19", "192.0.2.7:861", "192.0.2.7:863", "[2001:db8::7]:1023"})
        EXPECT_EQ(against(low), drop_reason::source_port) << low;
}

TEST_F(admission_test, all_source_ports_but_0_are_answered_from_the_one_that_is_said)
{
    for (const std::uint16_t least : {std::uint16_t{0}, std::uint16_t{1}}) {
        use({.minimum_source_port = least});
        EXPECT_EQ(against("192.0.2.7:1"), std::nullopt);
        EXPECT_EQ(against("192.0.2.7:0"), drop_reason::source_port);
    }
}

TEST_F(admission_test, own_addresses_are_those_of_sockets_that_are_not_gone)
{
    EXPECT_EQ(against("192.0.2.1:862"), std::nullopt);
    listen_at({"192.0.2.9:862", "192.0.2.1:862", "[2001:db8::1]:8630"});
    for (const char *own : {"192.0.2.1:862", "192.0.2.9:862", "[2001:db8::1]:8630"})
        EXPECT_EQ(against(own), drop_reason::own_source) << own;
    for (const char *other : {"192.0.2.1:8630", "192.0.2.2:862", "127.0.0.1:862", "[2001:db8::1]:862"})
        EXPECT_EQ(against(other), std::nullopt) << other;
    listen_at({"192.0.2.9:862"}); // as link-local addresses are at several interfaces
    for (const char *gone : {"192.0.2.1:862", "192.0.2.9:862", "192.0.2.9:8630", "[2001:db8::1]:8630"})
        admission_->own().remove(endpoint(gone));
    for (const char *other : {"192.0.2.1:862", "[2001:db8::1]:8630"})
        EXPECT_EQ(against(other), std::nullopt) << other;
    EXPECT_EQ(against("192.0.2.9:862"), drop_reason::own_source);
}

TEST_F(admission_test, unspecified_address_stands_for_all_of_this_system)
{
    listen_at({"0.0.0.0:862", "[::]:8630"});
    for (const char *own : {"127.0.0.1:862", "127.9.9.9:862", "[::1]:8630", "0.0.0.0:2000", "[::]:65535"})
        EXPECT_EQ(against(own), drop_reason::own_source) << own;
    // An IPv6 socket takes no packets of IPv4.
    for (const char *other : {"192.0.2.1:862", "[2001:db8::1]:8630", "127.0.0.1:8630", "[::1]:862"})
        EXPECT_EQ(against(other), std::nullopt) << other;
}

// Limits of packets

class limit_test : public admission_test {
  protected:
    /** How many of twenty packets pass. */
    int passing(const limited_path &path, std::uint64_t now = start_ticks)
    {
        int passed = 0;
        for (int number = 0; number < 20; ++number)
            passed += admission::reason_against(path, now) == std::nullopt ? 1 : 0;
        return passed;
    }
};

TEST_F(limit_test, packets_above_it_are_dropped)
{
    use({.packets_per_second = 10});
    const limited_path path = admission_->limited(usual_path);
    EXPECT_EQ(passing(path), 10);
    EXPECT_EQ(admission::reason_against(path, start_ticks), drop_reason::packet_rate);
    EXPECT_EQ(passing(path, start_ticks + ticks_of(0, 2)), 5);
    EXPECT_EQ(passing(path, start_ticks + ticks_of(60)), 10);
}

TEST_F(limit_test, is_each_responders_on_all_its_paths)
{
    use({.packets_per_second = 10});
    const limited_path first = admission_->limited(usual_path);
    const limited_path second = admission_->limited({0xAB000007, 9}); // the low 24 bits count
    const limited_path other = admission_->limited({8, bind_key});
    EXPECT_EQ(passing(first), 10);
    EXPECT_EQ(passing(second), 0);
    EXPECT_EQ(passing(other), 10);
    EXPECT_EQ(passing(admission_->limited(usual_path)), 0);
}

TEST_F(limit_test, is_shared_with_others_that_have_the_same_limits)
{
    const auto limits = std::make_shared<responder_limits>(10, processor_.timer_frequency());
    admission_.emplace(processor_, fast_path_options{}, limits);
    EXPECT_EQ(passing(admission_->limited(usual_path)), 10);
    const limited_path kept = admission_->limited(usual_path);
    EXPECT_EQ(passing(kept), 10); // nobody had the first one any more
    admission_.emplace(processor_, fast_path_options{}, limits);
    EXPECT_EQ(passing(admission_->limited(usual_path)), 0);
}

TEST_F(limit_test, of_0_limits_nothing)
{
    EXPECT_EQ(admission_->limited(usual_path).limit, nullptr);
    EXPECT_EQ(passing(admission_->limited(usual_path)), 20);
}

} // namespace
