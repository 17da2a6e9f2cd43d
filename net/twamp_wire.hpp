/**
 * @file twamp_wire.hpp
 * Test packets on the wire, unauthenticated mode: TWAMP-Test (RFC 5357 sections 4.1.2 and 4.2.1) and STAMP
 * (RFC 8762 sections 4.2.1 and 4.3.1). The two agree in every field; they differ in what stands behind them.
 *
 * All fields are big-endian. Header-only; the callers make sure that the buffers are long enough.
 */
#ifndef OLV_NET_TWAMP_WIRE_HPP
#define OLV_NET_TWAMP_WIRE_HPP

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace olv_net {

/** What a session sender sends: a header of 14 bytes and padding. A STAMP packet has 30 zero bytes there. */
namespace sender_packet {
inline constexpr std::size_t sequence_number = 0; ///< 4 bytes.
inline constexpr std::size_t timestamp = 4;       ///< 8 bytes, NTP format.
inline constexpr std::size_t error_estimate = 12; ///< 2 bytes.
inline constexpr std::size_t header_length = 14;
inline constexpr std::size_t padding = header_length;
} // namespace sender_packet

/** What a reflector sends back: a header of 41 bytes and padding. A STAMP packet has 3 zero bytes there. */
namespace reflector_packet {
inline constexpr std::size_t sequence_number = 0;         ///< 4 bytes.
inline constexpr std::size_t timestamp = 4;               ///< 8 bytes: T3, the reply's departure.
inline constexpr std::size_t error_estimate = 12;         ///< 2 bytes.
inline constexpr std::size_t zero_14 = 14;                ///< 2 bytes that are zero.
inline constexpr std::size_t receive_timestamp = 16;      ///< 8 bytes: T2, the request's arrival.
inline constexpr std::size_t sender_sequence_number = 24; ///< 4 bytes, copied from the request.
inline constexpr std::size_t sender_timestamp = 28;       ///< 8 bytes, copied from the request: T1.
inline constexpr std::size_t sender_error_estimate = 36;  ///< 2 bytes, copied from the request.
inline constexpr std::size_t zero_38 = 38;                ///< 2 bytes that are zero.
inline constexpr std::size_t sender_ttl = 40; ///< 1 byte: TTL or hop limit the request arrived with.
inline constexpr std::size_t header_length = 41;
inline constexpr std::size_t padding = header_length;
} // namespace reflector_packet

/** Length of a STAMP packet without extensions, in either direction. */
inline constexpr std::size_t stamp_length = 44;
/** By how much a reply's header is longer than a request's: the padding that a reply of the request's
 *  length has no room for. */
inline constexpr std::size_t padding_cut = reflector_packet::header_length - sender_packet::header_length;
/** Largest UDP payload over IPv4. */
inline constexpr std::size_t maximum_payload_ipv4 = 65507;
/** UDP port of the reflectors when there is no control session (RFC 8762 section 4.1). */
inline constexpr std::uint16_t default_port = 862;

/** The fields of an error estimate. Multiplier * 2^-32 * 2^scale seconds. */
struct error_estimate {
    static constexpr std::uint16_t synchronized = 0x8000; ///< S: the clock follows an external source.
    static constexpr std::uint16_t ptp_format = 0x4000;   ///< Z: PTP time stamps instead of NTP ones.

    static constexpr std::uint16_t make(unsigned scale, unsigned multiplier)
    {
        return static_cast<std::uint16_t>((scale & 0x3Fu) << 8 | (multiplier & 0xFFu));
    }

    /** The smallest that is not below an error of so many 2^-32 seconds, nor 0: that would say that the time
     *  stamp is invalid. */
    static constexpr std::uint16_t covering(std::uint64_t units)
    {
        constexpr std::uint64_t largest_multiplier = 255;
        const auto multiplier_at = [units](unsigned scale) {
            return (units >> scale) + ((units & ((std::uint64_t{1} << scale) - 1)) != 0 ? 1 : 0);
        };
        unsigned scale = 0;
        while (multiplier_at(scale) > largest_multiplier) {
            ++scale;
        }
        return make(scale, std::max(static_cast<unsigned>(multiplier_at(scale)), 1u));
    }
};

/** Whether an error estimate, as it stands in a packet, says that the time stamps beside it are PTP's. */
[[nodiscard]] constexpr bool has_ptp_format(const std::uint8_t *estimate)
{
    return (*estimate & error_estimate::ptp_format >> 8) != 0;
}

/** Between the host's order and the packets', either way. */
template <typename Unsigned> [[nodiscard]] constexpr Unsigned big_endian(Unsigned value)
{
    if constexpr (std::endian::native == std::endian::big) {
        return value;
    } else if constexpr (sizeof value == sizeof(std::uint64_t)) {
        return __builtin_bswap64(value);
    } else if constexpr (sizeof value == sizeof(std::uint32_t)) {
        return __builtin_bswap32(value);
    } else {
        return __builtin_bswap16(value);
    }
}

/** A number at bytes of any alignment. */
template <typename Unsigned> [[nodiscard]] constexpr Unsigned load(const std::uint8_t *bytes)
{
    std::array<std::uint8_t, sizeof(Unsigned)> stored{};
    std::copy_n(bytes, sizeof(Unsigned), stored.begin());
    return big_endian(std::bit_cast<Unsigned>(stored));
}

template <typename Unsigned> constexpr void store(std::uint8_t *bytes, Unsigned value)
{
    const auto stored = std::bit_cast<std::array<std::uint8_t, sizeof(Unsigned)>>(big_endian(value));
    std::copy_n(stored.begin(), sizeof(Unsigned), bytes);
}

[[nodiscard]] constexpr std::uint16_t load_16(const std::uint8_t *bytes)
{
    return load<std::uint16_t>(bytes);
}

[[nodiscard]] constexpr std::uint32_t load_32(const std::uint8_t *bytes)
{
    return load<std::uint32_t>(bytes);
}

constexpr void store_16(std::uint8_t *bytes, std::uint16_t value)
{
    store(bytes, value);
}

constexpr void store_32(std::uint8_t *bytes, std::uint32_t value)
{
    store(bytes, value);
}

/** Seconds between 1900 and 1970. */
inline constexpr std::uint32_t ntp_unix_offset = 2208988800u;

/** An instant in NTP format: seconds since 1900, modulo 2^32, and 2^-32 seconds. */
struct ntp_time {
    std::uint32_t seconds = 0;
    std::uint32_t fraction = 0;

    friend constexpr bool operator==(const ntp_time &, const ntp_time &) = default;

    /** Both words as one number of 2^-32 seconds; differences of two are right across the wrap of seconds. */
    [[nodiscard]] constexpr std::uint64_t units() const { return std::uint64_t{seconds} << 32 | fraction; }

    [[nodiscard]] static constexpr ntp_time from_units(std::uint64_t units)
    {
        return {static_cast<std::uint32_t>(units >> 32), static_cast<std::uint32_t>(units)};
    }

    /** @param nanoseconds  0 to 999,999,999. */
    [[nodiscard]] static constexpr ntp_time from_unix(std::uint64_t unix_seconds, std::uint32_t nanoseconds)
    {
        return {static_cast<std::uint32_t>(unix_seconds) + ntp_unix_offset,
                static_cast<std::uint32_t>((std::uint64_t{nanoseconds} << 32) / 1000000000u)};
    }
};

/** Nanoseconds from @p start to @p end, negative when @p end is earlier; at most 68 years apart. */
[[nodiscard]] constexpr std::int64_t nanoseconds_between(ntp_time start, ntp_time end)
{
    const std::uint64_t difference = end.units() - start.units();
    const bool negative = difference >> 63 != 0;
    const std::uint64_t magnitude = negative ? 0 - difference : difference;
    const std::uint64_t nanoseconds =
        (magnitude >> 32) * 1000000000u + (((magnitude & 0xFFFFFFFFu) * 1000000000u + 0x80000000u) >> 32);
    return negative ? -static_cast<std::int64_t>(nanoseconds) : static_cast<std::int64_t>(nanoseconds);
}

[[nodiscard]] constexpr ntp_time load_ntp(const std::uint8_t *bytes)
{
    return ntp_time::from_units(load<std::uint64_t>(bytes));
}

constexpr void store_ntp(std::uint8_t *bytes, ntp_time time)
{
    store(bytes, time.units());
}

/** An instant in PTP's truncated format (RFC 8186): seconds since 1970, modulo 2^32, and nanoseconds. Where the
 * clock knows by how much TAI is ahead of UTC, the seconds are those of TAI, otherwise those of UTC. */
struct ptp_time {
    static constexpr std::uint32_t nanoseconds_per_second = 1000000000;

    std::uint32_t seconds = 0;
    std::uint32_t nanoseconds = 0;

    friend constexpr bool operator==(const ptp_time &, const ptp_time &) = default;

    /** Whether it is an instant at all: the second word stops at 999,999,999. */
    [[nodiscard]] constexpr bool is_valid() const { return nanoseconds < nanoseconds_per_second; }

    /** Both words as they stand in a packet. */
    [[nodiscard]] constexpr std::uint64_t words() const { return std::uint64_t{seconds} << 32 | nanoseconds; }

    /** Nanoseconds since 1970, in the same seconds. */
    [[nodiscard]] constexpr std::uint64_t since_1970() const
    {
        return std::uint64_t{seconds} * nanoseconds_per_second + nanoseconds;
    }

    [[nodiscard]] static constexpr ptp_time from_1970(std::uint64_t nanoseconds)
    {
        return {static_cast<std::uint32_t>(nanoseconds / nanoseconds_per_second),
                static_cast<std::uint32_t>(nanoseconds % nanoseconds_per_second)};
    }

    /** The nearest one. @param tai_ahead  Seconds that TAI is ahead of UTC, 37 since 2017; 0: the seconds are
     *  those of UTC. */
    [[nodiscard]] static constexpr ptp_time from_ntp(ntp_time time, std::int32_t tai_ahead)
    {
        const std::uint64_t nanoseconds =
            (std::uint64_t{time.fraction} * nanoseconds_per_second + 0x80000000u) >> 32;
        const std::uint32_t seconds = time.seconds - ntp_unix_offset + static_cast<std::uint32_t>(tai_ahead);
        return nanoseconds < nanoseconds_per_second ? ptp_time{seconds, static_cast<std::uint32_t>(nanoseconds)}
                                                    : ptp_time{seconds + 1, 0};
    }

    /** The nearest one of a valid time, from which from_ntp() makes the same again. */
    [[nodiscard]] constexpr ntp_time to_ntp(std::int32_t tai_ahead) const
    {
        const std::uint64_t fraction =
            ((std::uint64_t{nanoseconds} << 32) + nanoseconds_per_second / 2) / nanoseconds_per_second;
        return {seconds + ntp_unix_offset - static_cast<std::uint32_t>(tai_ahead),
                static_cast<std::uint32_t>(fraction)};
    }
};

[[nodiscard]] constexpr ptp_time load_ptp(const std::uint8_t *bytes)
{
    return {load_32(bytes), load_32(bytes + sizeof(std::uint32_t))};
}

constexpr void store_ptp(std::uint8_t *bytes, ptp_time time)
{
    store(bytes, time.words());
}

} // namespace olv_net

#endif
