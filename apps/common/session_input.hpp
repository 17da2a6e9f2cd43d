/**
 * @file session_input.hpp
 * What session senders are told to do, as it is written on a command line.
 */
#ifndef OLV_PROBE_SESSION_INPUT_HPP
#define OLV_PROBE_SESSION_INPUT_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "apps/common/command_line.hpp"
#include "probe/session_options.hpp"

namespace olv_probe {

/** Times in the units that the options have. */
struct session_input {
    unsigned senders = 1;
    std::uint32_t count = 100;
    std::optional<double> duration_seconds;
    bool forever = false;
    double interval_milliseconds = 10;
    std::string schedule = "periodic";
    bool flood = false;
    std::uint32_t window = default_window;
    std::size_t size = 0;
    std::string padding;
    double timeout_seconds = 2;
    std::string source;
    std::string interface;
    std::string dscp = "0";
    std::string ecn = "0";
    unsigned ttl = 255;
    bool dont_fragment = false;
    bool stamp = false;
    bool ptp = false;
    bool strict = false;
    std::string timestamps;

    /** All but the reflector's address. @throw std::runtime_error  One line: two options contradict each other.
     */
    [[nodiscard]] session_options options() const;
    /** AF_INET or AF_INET6 where the source decides it; otherwise AF_UNSPEC. @throw std::runtime_error  As
     * above.
     */
    [[nodiscard]] int family() const;
};

void add_session_options(olv_apps::command to, session_input &input);

} // namespace olv_probe

#endif
