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

/** The header of a first reply to request_of() at timed_packet()'s times. */
bytes header(std::uint8_t sequence_number = 0)
{
    return {0x00, 0x00, 0x00, sequence_number, // sequence number
            0x00, 0x00, 0x01, 0x03,
            0x00, 0x00, 0x00, 0x00, // departure: the fraction carried
            0x16, 0x01, 0x00, 0x00, // error estimate, zero
            0x00, 0x00, 0x01, 0x02,
            0xC0, 0x00, 0x00, 0x00, // arrival
            0x0A, 0x0B, 0x0C, 0x0D, // sender's sequence number
            0x11, 0x12, 0x13, 0x14,
            0x15, 0x16, 0x17, 0x18, // sender's time stamp
            0x81, 0x23, 0x00, 0x00,
            0x3F}; // sender's error estimate, zero, TTL
}

bytes header_and(std::initializer_list<std::uint8_t> padding)
{
    bytes expected = header();
    expected.insert(expected.end(), padding);
    return expected;
}

TEST_F(reply_test, shortest_request_gets_a_header)
{
    define_usual_path();
    EXPECT_EQ(reflect(timed_packet(request_of(14))).payload, header());
}

TEST_F(reply_test, request_of_a_replys_header_length_gets_a_header)
{
    define_usual_path();
    EXPECT_EQ(reflect(timed_packet(request_of(41))).payload, header());
}

TEST_F(reply_test, longer_request_gets_the_start_of_its_padding_back)
{
    define_usual_path();
    EXPECT_EQ(reflect(timed_packet(request_of(64))).payload,
              header_and({0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C,
                          0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17}));
}

TEST_F(reply_test, stateful_stamp_reply_ends_in_zeros_and_has_the_sessions_number)
{
    define_usual_path();
    EXPECT_EQ(reflect(timed_packet(request_of(44))).payload, header_and({0x00, 0x00, 0x00}));
}

TEST_F(reply_test, stateless_stamp_reply_has_the_requests_number)
{
    use_options({.mode = stamp_mode::stateless});
    define_usual_path();
    bytes expected = header_and({0x00, 0x00, 0x00});
    expected[0] = 0x0A;
    expected[1] = 0x0B;
    expected[2] = 0x0C;
    expected[3] = 0x0D;
    EXPECT_EQ(reflect(timed_packet(request_of(44))).payload, expected);
}

TEST_F(reply_test, stateless_mode_leaves_other_lengths_to_the_session)
{
    use_options({.mode = stamp_mode::stateless});
    define_usual_path();
    for (const std::size_t length : {14u, 43u, 45u})
        (void)reflect(timed_packet(request_of(length)));
    EXPECT_EQ(reflect(timed_packet(request_of(41))).payload, header(3));
}

TEST_F(reply_test, second_reply_has_the_next_number)
{
    define_usual_path();
    (void)reflect(timed_packet(request_of(14)));
    EXPECT_EQ(reflect(timed_packet(request_of(14))).payload, header(1));
}

TEST_F(reply_test, every_length_gets_its_reply_length)
{
    define_usual_path();
    struct row {
        std::size_t request;
        std::size_t reply;
    };
    const row rows[] = {{14, 41}, {15, 41}, {27, 41}, {40, 41}, {41, 41},     {42, 42},      {43, 43},
                        {44, 44}, {45, 45}, {68, 68}, {69, 69}, {1400, 1400}, {65507, 65507}};
    for (const row &each : rows) {
        const bytes request = request_of(each.request);
        const reply made = reflect(request);
        EXPECT_EQ(made.made.result, outcome::reflected) << each.request;
        ASSERT_EQ(made.payload.size(), each.reply) << each.request;
        if (each.request == 44)
            continue; // its end is zeros
        EXPECT_TRUE(std::equal(made.payload.begin() + 41, made.payload.end(), request.begin() + 14))
            << each.request;
    }
}

TEST_F(reply_test, no_length_gets_more_than_41_bytes_or_its_own)
{
    define_usual_path();
    for (std::size_t length = 0; length <= 2000; ++length) {
        const std::size_t replied = reflect(request_of(length)).payload.size();
        EXPECT_LE(replied, length < 41 ? 41 : length) << length;
        EXPECT_EQ(replied == 0, length < 14) << length;
    }
}

TEST_F(reply_test, required_length_of_41_leaves_no_reply_longer_than_its_request)
{
    use_options({.minimum_request = 41});
    define_usual_path();
    for (std::size_t length = 0; length <= 200; ++length)
        EXPECT_LE(reflect(request_of(length)).payload.size(), length) << length;
}

TEST_F(reply_test, reply_shows_no_bytes_of_an_earlier_packet)
{
    define_usual_path();
    bytes buffer(65507, 0xEE);
    const bytes secret(65507, 0x5A);
    ASSERT_EQ(subject().reflect(packet_of(secret), usual_path, buffer).reply_length, 65507u);
    for (const std::size_t length : {14u, 30u, 41u, 44u, 50u}) {
        const bytes zeros(length, 0);
        const verdict made = subject().reflect(packet_of(zeros), usual_path, buffer);
        for (std::size_t position = 0; position < made.reply_length; ++position)
            EXPECT_NE(buffer[position], 0x5A) << "request of " << length << ", byte " << position;
    }
}

TEST_F(reply_test, answer_to_a_reply_is_known_for_eight_seconds)
{
    define_usual_path();
    reflector other{processor_};
    for (const std::size_t length : {14u, 41u, 44u, 1400u}) {
        const bytes own = reflect(request_of(length)).payload;
        EXPECT_FALSE(subject().answers_a_reply(packet_of(own), usual_path)) << length;
        bytes answer(own.size());
        ASSERT_EQ(other.reflect(packet_of(own), usual_path, answer).result, outcome::reflected);
        received_packet packet = packet_of(answer);
        EXPECT_TRUE(subject().answers_a_reply(packet, usual_path)) << length;
        packet.arrival_ticks += ticks_of(8);
        EXPECT_TRUE(subject().answers_a_reply(packet, usual_path)) << length;
        packet.arrival_ticks += ticks_of(0, 1);
        EXPECT_FALSE(subject().answers_a_reply(packet, usual_path)) << length;
    }
}

TEST_F(reply_test, other_packets_are_no_answers)
{
    define_usual_path();
    for (const std::size_t length : {0u, 13u, 14u, 40u, 41u, 44u, 1400u}) {
        for (const int byte : {0x00, 0x16, 0xFF})
            EXPECT_FALSE(subject().answers_a_reply(packet_of(bytes(length, static_cast<std::uint8_t>(byte))),
                                                   usual_path));
    }
    bytes answer(41);
    store_ntp(&answer[28], {0x100, 0x80000000}); // the creation, which is now
    EXPECT_FALSE(subject().answers_a_reply(packet_of(answer), usual_path));
    store_16(&answer[36], 0x1601);
    EXPECT_TRUE(subject().answers_a_reply(packet_of(answer), usual_path));
    EXPECT_FALSE(subject().answers_a_reply(packet_of(answer), {9, bind_key}));
    store_ntp(&answer[28], {0x100, 0x80000001}); // not yet
    EXPECT_FALSE(subject().answers_a_reply(packet_of(answer), usual_path));
    answer.pop_back();
    EXPECT_FALSE(subject().answers_a_reply(packet_of(answer), usual_path));
    EXPECT_EQ(global(), global_counters{});
}

TEST_F(reply_test, dscp_is_copied_and_ecn_is_not)
{
    define_usual_path();
    struct row {
        std::uint8_t request;
        std::uint8_t reply;
    };
    for (const row &each :
         {row{0x00, 0x00}, row{0xB8, 0xB8}, row{0xBB, 0xB8}, row{0x03, 0x00}, row{0xFF, 0xFC}}) {
        const bytes request = request_of(14);
        received_packet packet = packet_of(request);
        packet.traffic_class = each.request;
        EXPECT_EQ(reflect(packet).made.traffic_class, each.reply) << int{each.request};
    }
}

TEST_F(reply_test, ttl_is_the_requests)
{
    define_usual_path();
    const bytes request = request_of(14);
    for (const int ttl : {0, 1, 255}) {
        received_packet packet = packet_of(request);
        packet.ttl = static_cast<std::uint8_t>(ttl);
        EXPECT_EQ(reflect(packet).payload[40], ttl);
    }
}

struct stamps {
    std::uint32_t arrival_seconds, arrival_fraction, departure_seconds, departure_fraction;
};

TEST_F(reply_test, time_stamps_follow_from_creation_and_ticks)
{
    struct row {
        const char *label;
        std::uint32_t seconds, fraction;
        std::uint64_t created, arrival_quarters, departure_quarters;
        stamps expected;
    };
    const row rows[] = {
        {"at creation", 5, 6, 1000000, 0, 0, {5, 6, 5, 6}},
        {"quarters", 5, 0, 1000000, 1, 3, {5, 0x40000000, 5, 0xC0000000}},
        {"fraction carries between", 5, 0x80000000, 1000000, 1, 2, {5, 0xC0000000, 6, 0}},
        {"seconds wrap between",
         0xFFFFFFFF,
         0x80000000,
         1000000,
         1,
         3,
         {0xFFFFFFFF, 0xC0000000, 0, 0x40000000}},
        {"ticks beyond 32 bits", 5, 0, 0x1FFFFFFFFu, 4, 8, {6, 0, 7, 0}},
        {"two days", 5, 0, 1000000, 691200, 691201, {172805, 0, 172805, 0x40000000}},
        {"clock behind the arrival", 5, 0, 1000000, 3, 1, {5, 0xC0000000, 5, 0xC0000000}},
    };
    learn(responder_tree, responder_id, 0);
    learn(bind_tree, bind_key, 0x401);
    for (const row &each : rows) {
        write_state(responder_id,
                    {.ntp_seconds = each.seconds, .ntp_fraction = each.fraction, .ticks = each.created});
        const bytes request = request_of(14);
        received_packet packet = packet_of(request);
        packet.arrival_ticks = each.created + ticks_of(0, each.arrival_quarters);
        processor_.set_timer(each.created + ticks_of(0, each.departure_quarters));
        const reply made = reflect(packet);
        ASSERT_EQ(made.payload.size(), 41u) << each.label;
        EXPECT_EQ(load_32(&made.payload[16]), each.expected.arrival_seconds) << each.label;
        EXPECT_EQ(load_32(&made.payload[20]), each.expected.arrival_fraction) << each.label;
        EXPECT_EQ(load_32(&made.payload[4]), each.expected.departure_seconds) << each.label;
        EXPECT_EQ(load_32(&made.payload[8]), each.expected.departure_fraction) << each.label;
    }
}

/** Replies to requests of 41 octets, in buffers that stay where they are. */
class batch_test : public reply_test {
  protected:
    void SetUp() override
    {
        learn(responder_tree, responder_id, 0);
        learn(bind_tree, bind_key, 0x401);
        write_state(responder_id, {.ntp_seconds = 5, .ntp_fraction = 0, .ticks = start_ticks});
    }

    /** @return The reply's place. */
    const std::uint8_t *reflect_at(std::uint64_t arrival_quarters, std::uint64_t timer_quarters,
                                   const packet_path &path = usual_path)
    {
        received_packet packet = packet_of(request_);
        packet.arrival_ticks = start_ticks + ticks_of(0, arrival_quarters);
        processor_.set_timer(start_ticks + ticks_of(0, timer_quarters));
        std::array<std::uint8_t, 41> &buffer = buffers_.emplace_back();
        EXPECT_EQ(subject().reflect(packet, path, buffer).result, outcome::reflected);
        return buffer.data();
    }

    bytes request_ = request_of(41);
    std::deque<std::array<std::uint8_t, 41>> buffers_;
};

TEST_F(batch_test, replies_of_a_batch_depart_at_its_end)
{
    const std::uint8_t *first = nullptr;
    const std::uint8_t *second = nullptr;
    const std::uint8_t *ahead = nullptr;
    {
        const reflector::batch batch{subject()};
        first = reflect_at(0, 1);
        second = reflect_at(1, 2);
        ahead = reflect_at(9, 2);
        processor_.set_timer(start_ticks + ticks_of(0, 6));
    }
    for (const std::uint8_t *each : {first, second}) {
        EXPECT_EQ(load_32(&each[4]), 6u);
        EXPECT_EQ(load_32(&each[8]), 0x80000000u);
    }
    EXPECT_EQ(load_32(&second[16]), 5u);
    EXPECT_EQ(load_32(&second[20]), 0x40000000u);
    EXPECT_EQ(load_32(&ahead[4]), 7u);
    EXPECT_EQ(load_32(&ahead[8]), 0x40000000u);
}

TEST_F(batch_test, replies_depart_before_the_batchs_end_when_it_is_finished)
{
    const reflector::batch batch{subject()};
    const std::uint8_t *first = reflect_at(0, 1);
    subject().finish();
    const std::uint8_t *second = reflect_at(0, 2);
    subject().finish();
    processor_.set_timer(start_ticks + ticks_of(0, 3));
    subject().finish();
    EXPECT_EQ(load_32(&first[8]), 0x40000000u);
    EXPECT_EQ(load_32(&second[8]), 0x80000000u);
    EXPECT_EQ(counters().transmitted, 2u);
}

TEST_F(batch_test, replies_of_another_responder_follow_its_own_creation)
{
    learn(responder_tree, 8, 0);
    write_state(8, {.ntp_seconds = 100, .ntp_fraction = 0, .ticks = start_ticks});
    const std::uint8_t *first = nullptr;
    const std::uint8_t *other = nullptr;
    {
        const reflector::batch batch{subject()};
        first = reflect_at(0, 1);
        other = reflect_at(0, 2, {8, bind_key});
        processor_.set_timer(start_ticks + ticks_of(0, 3));
    }
    EXPECT_EQ(load_32(&first[4]), 5u);
    EXPECT_EQ(load_32(&first[8]), 0x80000000u);
    EXPECT_EQ(load_32(&other[4]), 100u);
    EXPECT_EQ(load_32(&other[8]), 0xC0000000u);
}

TEST_F(batch_test, all_replies_of_a_long_batch_get_their_departure)
{
    {
        const reflector::batch batch{subject()};
        for (int number = 0; number < 200; ++number)
            (void)reflect_at(0, 1);
    }
    for (const std::array<std::uint8_t, 41> &each : buffers_) {
        EXPECT_EQ(load_32(&each[4]), 5u);
        EXPECT_EQ(load_32(&each[8]), 0x40000000u);
    }
}

TEST_F(reply_test, reply_in_place_of_its_request_is_the_same)
{
    define_usual_path();
    for (const stamp_mode mode : {stamp_mode::stateful, stamp_mode::stateless}) {
        reflector apart{processor_, {.mode = mode}};
        reflector in_place{processor_, {.mode = mode}};
        for (const std::size_t length : {14u, 27u, 28u, 40u, 41u, 42u, 44u, 60u, 1400u, 65507u}) {
            const bytes request = request_of(length);
            bytes copied(std::max<std::size_t>(length, 44), 0xAA);
            const verdict made = apart.reflect(packet_of(request), usual_path, copied);
            copied.resize(made.reply_length);

            bytes buffer(27 + std::max<std::size_t>(length, 14), 0xAA);
            std::copy(request.begin(), request.end(), buffer.begin() + 27);
            const std::span<const std::uint8_t> payload{&buffer[27], length};
            received_packet packet = packet_of(request);
            packet.payload = payload;
            const verdict second = in_place.reflect(packet, usual_path, buffer);
            buffer.resize(second.reply_length);
            EXPECT_EQ(buffer, copied) << length;
        }
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

} // namespace
