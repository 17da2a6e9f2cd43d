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

    std::optional<drop_reason> against(const bytes &payload, const limited_path &path, std::uint64_t now)
    {
        return admission_->reason_against(payload, path, now);
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

TEST_F(admission_test, all_senders_are_taken_but_those_at_port_0_when_nothing_is_said)
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
    listen_at({"192.0.2.9:862", "192.0.2.1:862", "[2001:db8::1]:863"});
    for (const char *own : {"192.0.2.1:862", "192.0.2.9:862", "[2001:db8::1]:863"})
        EXPECT_EQ(against(own), drop_reason::own_source) << own;
    for (const char *other : {"192.0.2.1:863", "192.0.2.2:862", "127.0.0.1:862", "[2001:db8::1]:862"})
        EXPECT_EQ(against(other), std::nullopt) << other;
    listen_at({"192.0.2.9:862"}); // as link-local addresses are at several interfaces
    for (const char *gone : {"192.0.2.1:862", "192.0.2.9:862", "192.0.2.9:863", "[2001:db8::1]:863"})
        admission_->own().remove(endpoint(gone));
    for (const char *other : {"192.0.2.1:862", "[2001:db8::1]:863"})
        EXPECT_EQ(against(other), std::nullopt) << other;
    EXPECT_EQ(against("192.0.2.9:862"), drop_reason::own_source);
}

TEST_F(admission_test, unspecified_address_stands_for_all_of_this_system)
{
    listen_at({"0.0.0.0:862", "[::]:863"});
    for (const char *own : {"127.0.0.1:862", "127.9.9.9:862", "[::1]:863", "0.0.0.0:1", "[::]:65535"})
        EXPECT_EQ(against(own), drop_reason::own_source) << own;
    // An IPv6 socket takes no packets of IPv4.
    for (const char *other : {"192.0.2.1:862", "[2001:db8::1]:863", "127.0.0.1:863", "[::1]:862"})
        EXPECT_EQ(against(other), std::nullopt) << other;
}

// Answers to replies

TEST_F(admission_test, answer_to_a_reply_is_known_for_eight_seconds)
{
    const limited_path path = admission_->limited(usual_path);
    reflector other{processor_};
    for (const std::size_t length : {14u, 41u, 44u, 1400u}) {
        const bytes own = reflect(request_of(length)).payload;
        EXPECT_EQ(against(own, path, start_ticks), std::nullopt) << length;
        bytes answer(own.size());
        ASSERT_FALSE(other.reflect(packet_of(own), usual_path, answer).dropped);
        EXPECT_EQ(against(answer, path, start_ticks), drop_reason::answer_to_reply) << length;
        EXPECT_EQ(against(answer, path, start_ticks + ticks_of(8)), drop_reason::answer_to_reply) << length;
        EXPECT_EQ(against(answer, path, start_ticks + ticks_of(8, 1)), std::nullopt) << length;
    }
}

TEST_F(admission_test, other_packets_are_no_answers)
{
    const limited_path path = admission_->limited(usual_path);
    for (const std::size_t length : {0u, 13u, 14u, 40u, 41u, 44u, 1400u}) {
        for (const int byte : {0x00, 0x16, 0xFF})
            EXPECT_EQ(against(bytes(length, static_cast<std::uint8_t>(byte)), path, start_ticks), std::nullopt);
    }
    bytes answer(41);
    store_ntp(&answer[28], {0x100, 0x80000000}); // the creation, which is now
    EXPECT_EQ(against(answer, path, start_ticks), std::nullopt);
    store_16(&answer[36], 0x1601);
    EXPECT_EQ(against(answer, path, start_ticks), drop_reason::answer_to_reply);
    EXPECT_EQ(against(answer, {{9, bind_key}, nullptr}, start_ticks), std::nullopt); // there is no responder 9
    store_ntp(&answer[28], {0x100, 0x80000001});                                     // not yet
    EXPECT_EQ(against(answer, path, start_ticks), std::nullopt);
    store_ntp(&answer[28], {0x100, 0x80000000});
    answer.pop_back();
    EXPECT_EQ(against(answer, path, start_ticks), std::nullopt);
    EXPECT_EQ(global(), global_counters{});
}

// Limits of packets

class limit_test : public admission_test {
  protected:
    /** How many of twenty packets pass. */
    int passing(const limited_path &path, std::uint64_t now = start_ticks)
    {
        int passed = 0;
        for (int number = 0; number < 20; ++number)
            passed += against(request_of(41), path, now) == std::nullopt ? 1 : 0;
        return passed;
    }
};

TEST_F(limit_test, packets_above_it_are_dropped)
{
    use({.packets_per_second = 10});
    const limited_path path = admission_->limited(usual_path);
    EXPECT_EQ(passing(path), 10);
    EXPECT_EQ(against(request_of(41), path, start_ticks), drop_reason::packet_rate);
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
