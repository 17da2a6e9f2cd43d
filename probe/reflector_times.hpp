/**
 * @file reflector_times.hpp
 * T2 and T3: when a reflector received a request and sent it back.
 */
#ifndef OLV_PROBE_REFLECTOR_TIMES_HPP
#define OLV_PROBE_REFLECTOR_TIMES_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

#include "net/twamp_wire.hpp"
#include "probe/reply_fault.hpp"
#include "probe/test_packet.hpp"

namespace olv_probe {

/** The clock that a reflector's time stamps are of. */
enum class time_scale : std::uint8_t { none, ntp, ptp_utc, ptp_tai };

/** As text for people: "PTP (TAI)". */
[[nodiscard]] const char *text_of(time_scale scale);
/** As a name for programs: "ptp_tai". */
[[nodiscard]] const char *name_of(time_scale scale);

struct reflector_times {
    olv_net::ntp_time received;  ///< T2
    olv_net::ntp_time sent_back; ///< T3
    time_scale scale = time_scale::none;
    fault_set faults; ///< Of times alone.
};

/** What the sender knows of a reply. */
struct way_there_and_back {
    olv_net::ntp_time departure;   ///< T1
    std::chrono::nanoseconds away; ///< T4 - T1
};

/** Reads the times of one session's replies. PTP's seconds count from 1970, those of TAI or of UTC: which of
 * the two a reflector means follows from its first reply, whose clock is taken to be less than half their
 * distance off. */
class reflector_clock_reader {
  public:
    /** @param sent  The format of the requests. */
    explicit reflector_clock_reader(stamp_format sent) : sent_(sent) {}

    /** Without faults that prevent delays, the times are within a day of T1 and in their order.
     *  @param reply  That reaches to the end of T2 at least. */
    [[nodiscard]] reflector_times read(std::span<const std::uint8_t> reply, const way_there_and_back &way);

  private:
    [[nodiscard]] std::optional<reflector_times> read_ptp(std::span<const std::uint8_t> reply,
                                                          const way_there_and_back &way);

    stamp_format sent_;
    std::optional<std::int32_t> tai_ahead_;
};

} // namespace olv_probe

#endif
