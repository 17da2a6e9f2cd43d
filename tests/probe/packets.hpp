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
inline constexpr std::int64_t quarter_nanoseconds = 250'000'000;

/** Requests of 41 octets with zeros, a quarter of a second apart. */
class scripted_session {
  public:
    /** Sends so many packets. */
    explicit scripted_session(int packets = 0, std::uint8_t ttl = 255) : result(format_, ttl)
    {
        result.begin(start_);
        send(packets);
    }

    void send(int packets = 1)
    {
        for (int packet = 0; packet < packets; ++packet) {
            const std::uint32_t number = result.sent();
            result.request_sent(departure(number), instant(number));
        }
    }

    [[nodiscard]] std::vector<std::uint8_t> reply(std::uint32_t sequence, const answer &given) const
    {
        using namespace olv_net;
        std::vector<std::uint8_t> octets(41);
        const std::uint64_t sent = departure(sequence).units();
        store_32(&octets[0], given.number);
        store_ntp(&octets[4], ntp_time::from_units(sent + static_cast<std::uint64_t>(given.sent_back)));
        store_16(&octets[12], 0x1601);
        store_ntp(&octets[16], ntp_time::from_units(sent + static_cast<std::uint64_t>(given.received)));
        store_32(&octets[24], sequence);
        store_ntp(&octets[28], departure(sequence));
        store_16(&octets[36], 0x1601);
        octets[40] = given.request_ttl;
        return octets;
    }

    /** @param after  Nanoseconds from the request to its reply's arrival. */
    std::optional<std::int64_t> receive(std::uint32_t sequence, const answer &given, std::int64_t after)
    {
        const std::vector<std::uint8_t> octets = reply(sequence, given);
        return result.reply_received({octets, instant(sequence) + std::chrono::nanoseconds(after),
                                      given.reply_ttl, given.reply_traffic_class});
    }

    [[nodiscard]] steady_clock::time_point instant(std::uint32_t number) const
    {
        return start_ + std::chrono::nanoseconds(number * quarter_nanoseconds);
    }

  private:
    [[nodiscard]] static olv_net::ntp_time departure(std::uint32_t number)
    {
        // The seconds wrap after the second packet.
        return olv_net::ntp_time::from_units(0xFFFFFFFF'80000000u + number * std::uint64_t{quarter});
    }

    test_packet_format format_{41, true, 0};
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
