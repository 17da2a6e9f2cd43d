/**
 * @file hardware_clock.hpp
 * The clock of a network interface that stamps packets itself.
 */
#ifndef OLV_PROBE_HARDWARE_CLOCK_HPP
#define OLV_PROBE_HARDWARE_CLOCK_HPP

#include <chrono>
#include <cstdint>
#include <string>

#include <linux/net_tstamp.h>

#include "net/descriptor.hpp"
#include "probe/session_options.hpp"

namespace olv_probe {

/** Has an interface stamp all packets, and compares its clock with the system's. */
class hardware_clock {
  public:
    /** @param socket  Connected: its packets pass the interface of its own address, if none is chosen.
     *  @throw std::runtime_error  One line: the interface cannot, or the program may not. */
    hardware_clock(int socket, const session_options &options);
    /** Leaves the interface as it was. */
    ~hardware_clock();
    hardware_clock(const hardware_clock &) = delete;
    hardware_clock &operator=(const hardware_clock &) = delete;

    /** What the system's wall clock said. @param stamp  Nanoseconds of the interface's clock. */
    [[nodiscard]] std::uint64_t wall_time_of(std::uint64_t stamp);

    /** Compare the clocks now: the system's was set. */
    void compare();

  private:
    void check_interface();
    void switch_on();
    void open_clock();
    void restore();
    [[nodiscard]] int request(int command, void *argument) const;

    std::string interface_;
    olv_net::descriptor control_; ///< A socket to ask about the interface with.
    olv_net::descriptor clock_;
    int clock_number_ = -1;
    hwtstamp_config before_{};
    bool changed_ = false;
    std::int64_t ahead_ = 0; ///< Nanoseconds, of the interface's clock.
    std::chrono::steady_clock::time_point compared_;
};

} // namespace olv_probe

#endif
