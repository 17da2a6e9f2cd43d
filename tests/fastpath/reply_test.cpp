// Replies, octet by octet, and their times.

#include <deque>

#include "fixture.hpp"

namespace {

using namespace olv_fastpath_test;

class reply_test : public reflector_test {
  protected:
    /** Arrival 2.25 s after creation, reply 2.5 s after it. */
    received_packet timed_packet(const bytes &payload)
    {
        received_packet packet = packet_of(payload);
        packet.arrival_ticks = start_ticks + ticks_of(2, 1);
        processor_.set_timer(start_ticks + ticks_of(2, 2));
        return packet;
    }
};

/** The reply to the first request_of() at timed_packet()'s times. */
bytes reply_with(std::initializer_list<std::uint8_t> sequence_number,
                 std::initializer_list<std::uint8_t> padding)
{
    bytes expected{sequence_number};
    const bytes fields{
        0x00, 0x00, 0x01, 0x03, 0x00, 0x00, 0x00, 0x02, // departure: the fraction carried; marked
        0x16, 0x01, 0x00, 0x00,                         // error estimate, zero
        0x00, 0x00, 0x01, 0x02, 0xC0, 0x00, 0x00, 0x00, // arrival
        0x0A, 0x0B, 0x0C, 0x0D,                         // sender's sequence number
        0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, // sender's time stamp
        0x81, 0x23, 0x00, 0x00, 0x3F};                  // sender's error estimate, zero, TTL
    expected.insert(expected.end(), fields.begin(), fields.end());
    expected.insert(expected.end(), padding);
    return expected;
}

TEST_F(reply_test, has_these_octets)
{
    struct row {
        const char *label;
        stamp_mode mode;
        std::size_t length;
        bytes expected;
    };
    const row rows[] = {
        {"shortest request", stamp_mode::stateful, 14, reply_with({0, 0, 0, 0}, {})},
        {"request as long as a reply's header", stamp_mode::stateful, 41, reply_with({0, 0, 0, 0}, {})},
        {"the start of the padding comes back", stamp_mode::stateful, 64,
         reply_with({0, 0, 0, 0}, {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C,
                                   0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17})},
        {"STAMP, the session's number", stamp_mode::stateful, 44, reply_with({0, 0, 0, 0}, {0, 0, 0})},
        {"STAMP, the request's number", stamp_mode::stateless, 44,
         reply_with({0x0A, 0x0B, 0x0C, 0x0D}, {0, 0, 0})},
        {"TWAMP, the request's number", stamp_mode::stateless, 14, reply_with({0x0A, 0x0B, 0x0C, 0x0D}, {})},
        {"a byte less than STAMP", stamp_mode::stateful, 43, reply_with({0, 0, 0, 0}, {0x01, 0x02})},
        {"a byte more than STAMP", stamp_mode::stateless, 45,
         reply_with({0x0A, 0x0B, 0x0C, 0x0D}, {0x01, 0x02, 0x03, 0x04})},
    };
    define_usual_path();
    for (const row &each : rows) {
        reflector reflecting{processor_, {.mode = each.mode}};
        bytes room(std::max<std::size_t>(each.length, 41), 0xAA);
        const bytes request = request_of(each.length);
        departing_.add(reflecting.reflect(timed_packet(request), usual_path, room).reply);
        departing_.stamp(reflecting.clock());
        EXPECT_EQ(room, each.expected) << each.label;
    }
}

TEST_F(reply_test, has_41_bytes_or_the_requests_length)
{
    define_usual_path();
    const auto expect_length = [this](std::size_t length) {
        const bytes request = request_of(length);
        const bytes replied = reflect(request).payload;
        ASSERT_EQ(replied.size(), std::max<std::size_t>(length, 41)) << length;
        const bool ends_in_zeros = length <= 41 || length == 44;
        EXPECT_TRUE(ends_in_zeros || std::equal(replied.begin() + 41, replied.end(), request.begin() + 14))
            << length;
    };
    for (std::size_t length = 14; length <= 2000; ++length)
        expect_length(length);
    expect_length(65507);
}

TEST_F(reply_test, has_the_requests_ttl_and_its_dscp_without_its_ecn)
{
    define_usual_path();
    struct row {
        std::uint8_t ttl, request, reply;
    };
    for (const row &each : {row{0, 0x00, 0x00}, row{1, 0xB8, 0xB8}, row{64, 0xBB, 0xB8}, row{254, 0x03, 0x00},
                            row{255, 0xFF, 0xFC}}) {
        const bytes request = request_of(14);
        received_packet packet = packet_of(request);
        packet.ttl = each.ttl;
        packet.traffic_class = each.request;
        const reply made = reflect(packet);
        EXPECT_EQ(made.traffic_class, each.reply) << int{each.request};
        EXPECT_EQ(made.payload[40], each.ttl);
    }
}

TEST_F(reply_test, in_place_of_its_request_is_the_same)
{
    define_usual_path();
    for (const stamp_mode mode : {stamp_mode::stateful, stamp_mode::stateless}) {
        reflector apart{processor_, {.mode = mode}};
        reflector in_place{processor_, {.mode = mode}};
        for (const std::size_t length : {14u, 27u, 28u, 40u, 41u, 42u, 44u, 60u, 1400u, 65507u}) {
            const bytes request = request_of(length);
            bytes copied(std::max<std::size_t>(length, 41), 0xAA);
            departing_.add(apart.reflect(packet_of(request), usual_path, copied).reply);

            bytes memory(27 + std::max<std::size_t>(length, 14), 0xAA);
            std::copy(request.begin(), request.end(), memory.begin() + 27);
            received_packet packet = packet_of(request);
            packet.payload = std::span{memory}.subspan(27, length);
            departing_.add(in_place.reflect(packet, usual_path, memory).reply);
            departing_.stamp(apart.clock());
            memory.resize(copied.size());
            EXPECT_EQ(memory, copied) << length;
        }
    }
}

// Times

TEST_F(reply_test, times_follow_from_creation_and_ticks)
{
    struct row {
        const char *label;
        ntp_time creation;
        std::uint64_t created, arrival_quarters, departure_quarters;
        ntp_time arrival, departure;
    };
    constexpr std::uint64_t now = start_ticks;
    constexpr std::uint32_t last = 0xFFFFFFFF; // second before the wrap
    const row rows[] = {
        {"at creation", {5, 6}, now, 0, 0, {5, 6}, {5, 6}}, // 6 units are marked
        {"quarters", {5, 0}, now, 1, 3, {5, 0x40000000}, {5, 0xC0000002}},
        {"carry between", {5, 0x80000000}, now, 1, 2, {5, 0xC0000000}, {6, 2}},
        {"wrap between", {last, 0x80000000}, now, 1, 3, {last, 0xC0000000}, {0, 0x40000002}},
        {"more than 32 bits", {5, 0}, 0x1FFFFFFFFu, 4, 8, {6, 0}, {7, 2}},
        {"two days", {5, 0}, now, 691200, 691201, {172805, 0}, {172805, 0x40000002}},
        {"timer behind the arrival", {5, 0}, now, 3, 1, {5, 0xC0000000}, {5, 0xC0000002}},
        {"and a wrap", {last, 0x80000000}, now, 3, 1, {0, 0x40000000}, {0, 0x40000002}},
    };
    learn(responder_tree, responder_id, 0);
    learn(bind_tree, bind_key, 0x401);
    for (const row &each : rows) {
        write_state(responder_id, {.ntp_seconds = each.creation.seconds,
                                   .ntp_fraction = each.creation.fraction,
                                   .ticks = each.created});
        const bytes request = request_of(14);
        received_packet packet = packet_of(request);
        packet.arrival_ticks = each.created + ticks_of(0, each.arrival_quarters);
        processor_.set_timer(each.created + ticks_of(0, each.departure_quarters));
        const bytes replied = reflect(packet).payload;
        ASSERT_EQ(replied.size(), 41u) << each.label;
        EXPECT_EQ(load_ntp(&replied[16]), each.arrival) << each.label;
        EXPECT_EQ(load_ntp(&replied[4]), each.departure) << each.label;
    }
}

TEST_F(reply_test, arrival_before_creation_is_taken_as_creation)
{
    define_usual_path();
    const bytes request = request_of(14);
    received_packet packet = packet_of(request);
    packet.arrival_ticks = 1;
    EXPECT_EQ(load_ntp(&reflect(packet).payload[16]), (ntp_time{0x100, 0x80000000}));
}

TEST(tick_scale, adds_ticks_of_any_timer_to_an_instant)
{
    struct row {
        const char *label;
        ntp_time start;
        std::uint64_t elapsed;
        std::uint64_t frequency;
        ntp_time expected;
    };
    const row rows[] = {
        {"no time", {10, 20}, 0, 1000, {10, 20}},
        {"a fraction", {10, 0}, 250, 1000, {10, 0x40000000}},
        {"rounded down", {10, 0}, 1, 3, {10, 0x55555555}},
        {"the fraction carries", {10, 0xC0000000}, 1500, 1000, {12, 0x40000000}},
        {"the last unit carries", {10, 0xFFFFFFFF}, 1, 4294967296, {11, 0}},
        {"the seconds wrap", {0xFFFFFFFF, 0x80000000}, 500000000, 1000000000, {0, 0}},
        {"more seconds than a word", {1, 0}, 4294967298, 1, {3, 0}},
        {"no frequency", {1, 5}, 7, 0, {8, 5}},
        {"largest 32-bit frequency", {0, 0}, 4294967294, 4294967295, {0, 0xFFFFFFFE}},
        {"beyond 32 bits, all ones", {0, 0}, 39999999999, 40000000000, {0, 0xFFFFFFFF}},
        {"beyond 63 bits", {0, 0}, 0xC000000000000000, 0xFFFFFFFFFFFFFFFF, {0, 0xC0000000}},
        {"all ticks there are", {0, 0}, 0xFFFFFFFFFFFFFFFF, 1000000000, {0x4B82FA09, 0xB5A52CB5}},
    };
    for (const row &each : rows) {
        const tick_scale scale{each.frequency};
        EXPECT_EQ(ntp_time::from_units(scale.after(each.start.units(), each.elapsed)), each.expected)
            << each.label;
    }
}

// Departing together

class departing_test : public reflector_test {
  protected:
    void SetUp() override
    {
        learn(responder_tree, responder_id, 0);
        learn(bind_tree, bind_key, 0x401);
        write_state(responder_id, {.ntp_seconds = 5, .ntp_fraction = 0, .ticks = start_ticks});
    }

    /** Reflect a packet that arrived so many quarters of a second after the start. @return The reply's place.
     */
    const std::uint8_t *reflect_at(std::uint64_t arrival_quarters, const packet_path &path = usual_path)
    {
        const bytes request = request_of(41);
        received_packet packet = packet_of(request);
        packet.arrival_ticks = start_ticks + ticks_of(0, arrival_quarters);
        const verdict made = subject().reflect(packet, path, rooms_.emplace_back());
        EXPECT_FALSE(made.dropped);
        departing_.add(made.reply);
        return made.reply.bytes.data();
    }

    void leave_at(std::uint64_t quarters)
    {
        processor_.set_timer(start_ticks + ticks_of(0, quarters));
        departing_.stamp(subject().clock());
    }

    static ntp_time departure_of(const std::uint8_t *reply) { return load_ntp(reply + 4); }

    std::deque<std::array<std::uint8_t, 41>> rooms_;
};

TEST_F(departing_test, time_is_read_once_for_all_when_they_leave)
{
    const std::uint8_t *first = reflect_at(0);
    const std::uint8_t *second = reflect_at(1);
    const std::uint8_t *ahead = reflect_at(9);
    leave_at(6);
    const std::uint8_t *later = reflect_at(0);
    leave_at(7);
    leave_at(8);
    EXPECT_EQ(departure_of(first), (ntp_time{6, 0x80000002}));
    EXPECT_EQ(departure_of(second), (ntp_time{6, 0x80000002}));
    EXPECT_EQ(departure_of(ahead), (ntp_time{7, 0x40000002}));
    EXPECT_EQ(departure_of(later), (ntp_time{6, 0xC0000002}));
}

TEST_F(departing_test, each_follows_from_its_own_responders_creation)
{
    learn(responder_tree, 8, 0);
    write_state(8, {.ntp_seconds = 100, .ntp_fraction = 0, .ticks = start_ticks});
    const std::uint8_t *first = reflect_at(0);
    const std::uint8_t *other = reflect_at(0, {8, bind_key});
    const std::uint8_t *third = reflect_at(0);
    leave_at(3);
    EXPECT_EQ(departure_of(first), (ntp_time{5, 0xC0000002}));
    EXPECT_EQ(departure_of(other), (ntp_time{100, 0xC0000002}));
    EXPECT_EQ(departure_of(third), (ntp_time{5, 0xC0000002}));
}

TEST_F(departing_test, there_is_room_for_those_of_many_segmented_messages)
{
    while (!departing_.is_full())
        (void)reflect_at(0);
    EXPECT_EQ(rooms_.size(), 4096u);
    leave_at(1);
    EXPECT_FALSE(departing_.is_full());
    for (const std::array<std::uint8_t, 41> &each : rooms_)
        ASSERT_EQ(departure_of(each.data()), (ntp_time{5, 0x40000002}));
}

} // namespace
