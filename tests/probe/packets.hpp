/**
 * @file packets.hpp
 * A session with packets that a test writes itself.
 */
#ifndef OLV_TESTS_PROBE_PACKETS_HPP
#define OLV_TESTS_PROBE_PACKETS_HPP

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "probe/measurement.hpp"

namespace olv_probe {

/** What a reflector says; times in units of 2^-32 seconds after the request's T1. */
struct answer {
    std::uint32_t number = 0; ///< Of the reflector.
    std::int64_t received = 0;
    std::int64_t sent_back = 0;
    std::uint8_t request_ttl = 255;
    std::uint8_t reply_ttl = 255;
    std::uint8_t reply_traffic_class = 0;
};

/** A quarter of a second has a whole number of the wire's units. */
inline constexpr std::int64_t quarter = std::int64_t{1} << 30;
inline constexpr std::int64_t second = 4 * quarter;
inline constexpr std::int64_t quarter_nanoseconds = 250'000'000;

/** What a session is told to do. */
struct script {
    std::size_t size = 41;
    std::uint8_t ttl = 255;
    judging judged = judging::lenient;
    stamp_format stamps = stamp_format::ntp;
    bool zeros = true; ///< As padding.
    std::int32_t tai_ahead = 0;
    std::int64_t start = 0; ///< Units of 2^-32 seconds by which the first packet leaves later.
};

/** Requests a quarter of a second apart. The seconds of NTP wrap after the second packet, in 2036; no packet
 * leaves at an instant that is 0. */
class scripted_session {
  public:
    /** Sends so many packets. */
    explicit scripted_session(int packets = 0, const script &told = {})
        : format_(told.size, told.zeros, 0, told.stamps, told.tai_ahead),
          clock_(told.start),
          result(format_, told.ttl, told.judged)
    {
        result.begin(start_);
        send(packets);
    }

    void send(int packets = 1)
    {
        for (int packet = 0; packet < packets; ++packet) {
            const std::uint32_t number = result.sent();
            departures_.push_back(0xFFFFFFFF'80000001u + number * std::uint64_t{quarter} +
                                  static_cast<std::uint64_t>(clock_));
            result.request_sent(departure(number), instant(number));
        }
    }

    /** @param units  Of 2^-32 seconds, by which the sender's clock goes forward. */
    void set_clock(std::int64_t units) { clock_ += units; }

    [[nodiscard]] std::vector<std::uint8_t> request(std::uint32_t sequence) const
    {
        std::vector<std::uint8_t> octets(format_.request_length());
        format_.write_request(octets, sequence, departure(sequence));
        return octets;
    }

    /** A reply that returns the header and the padding of its request. */
    [[nodiscard]] std::vector<std::uint8_t> reply(std::uint32_t sequence, const answer &given) const
    {
        using namespace olv_net;
        const std::vector<std::uint8_t> sent = request(sequence);
        std::vector<std::uint8_t> octets(std::max<std::size_t>(41, sent.size()));
        store_32(&octets[0], given.number);
        store(&octets[4], departures_[sequence] + static_cast<std::uint64_t>(given.sent_back));
        store_16(&octets[12], 0x1601);
        store(&octets[16], departures_[sequence] + static_cast<std::uint64_t>(given.received));
        std::copy_n(sent.begin(), 14, octets.begin() + 24);
        octets[40] = given.request_ttl;
        std::copy_n(sent.begin() + 14, octets.size() - 41, octets.begin() + 41);
        return octets;
    }

    /** @param after  Nanoseconds from the request to its reply's arrival. */
    std::optional<std::int64_t> receive_octets(std::uint32_t sequence, const std::vector<std::uint8_t> &octets,
                                               std::int64_t after, std::uint8_t ttl = 255,
                                               std::uint8_t traffic_class = 0)
    {
        return result.reply_received(
            {octets, instant(sequence) + std::chrono::nanoseconds(after), ttl, traffic_class});
    }

    std::optional<std::int64_t> receive(std::uint32_t sequence, const answer &given, std::int64_t after)
    {
        return receive_octets(sequence, reply(sequence, given), after, given.reply_ttl,
                              given.reply_traffic_class);
    }

    [[nodiscard]] steady_clock::time_point instant(std::uint32_t number) const
    {
        return start_ + std::chrono::nanoseconds(number * quarter_nanoseconds);
    }

    [[nodiscard]] olv_net::ntp_time departure(std::uint32_t number) const
    {
        return olv_net::ntp_time::from_units(departures_[number]);
    }

  private:
    test_packet_format format_;
    std::int64_t clock_;
    std::vector<std::uint64_t> departures_;
    steady_clock::time_point start_{std::chrono::hours(1)};

  public:
    measurement result;
};

/** Four packets: late and 300 us, a repeated number, lost, 100 us and a duplicate of it. */
inline scripted_session example()
{
    scripted_session session{4};
    session.receive(3, {.number = 0, .request_ttl = 250, .reply_ttl = 60, .reply_traffic_class = 0xBA},
                    100'000);
    session.receive(3, {.number = 0}, 200'000);
    session.receive(0, {.number = 2}, 300'000);
    session.receive(1, {.number = 2}, 300'000);
    return session;
}

} // namespace olv_probe

#endif
