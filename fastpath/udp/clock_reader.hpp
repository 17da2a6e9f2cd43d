/**
 * @file clock_reader.hpp
 * What time it is for a batch of packets.
 */
#ifndef OLV_FASTPATH_CLOCK_READER_HPP
#define OLV_FASTPATH_CLOCK_READER_HPP

#include <cstdint>
#include <optional>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/options.hpp"
#include "fastpath/core/system_clock.hpp"
#include "fastpath/udp/arrival_clock.hpp"

namespace olv_fastpath {

/**
 * Reads the processor's timer and the system's clock together, for each batch. Replies that follow the system's
 * clock follow it as it is then, so that it may be set, slowed or hastened at any time: each batch is right by
 * itself. What the system says of its clock is read again every second, as long as packets come.
 *
 * Where the timer has been set by hand, it alone is the time. Belongs to one thread at a time.
 */
class clock_reader {
  public:
    clock_reader(const processor_clock &timer, const fast_path_options &options);

    struct batch_time {
        arrival_clock arrivals; ///< A view of the reader.
        reply_time replies;
    };
    [[nodiscard]] batch_time read();

  private:
    void read_state(std::uint64_t now);

    processor_clock timer_;
    time_source source_;
    system_clock_calls calls_;
    setting_watch settings_;
    std::uint16_t error_estimate_ = 0;
    std::int32_t tai_ahead_ = 0;
    std::optional<std::uint64_t> state_read_; ///< When, by the timer.
};

/** What the system tells of its clock now. */
[[nodiscard]] clock_state system_clock_state();

} // namespace olv_fastpath

#endif
