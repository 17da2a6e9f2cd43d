/**
 * @file probe_options.hpp
 * What twamp-probe is told to do.
 */
#ifndef OLV_PROBE_OPTIONS_HPP
#define OLV_PROBE_OPTIONS_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "fastpath/listen_address.hpp"
#include "fastpath/twamp_wire.hpp"

namespace olv_probe {

inline constexpr const char *program_name = "twamp-probe";

struct probe_options {
    olv_fastpath::listen_address reflector;
    std::uint32_t count = 100;
    std::chrono::nanoseconds interval = std::chrono::milliseconds(10);
    std::size_t size = olv_fastpath::reflector_packet::header_length; ///< UDP payload.
    std::chrono::nanoseconds timeout = std::chrono::seconds(2);       ///< For replies after the last request.
    std::uint8_t dscp = 0;
    bool stamp = false; ///< Zeros instead of padding.
};

/** @return The status to exit with, help or an error having been printed; nothing when @p options is filled. */
[[nodiscard]] std::optional<int> read_options(int argc, char **argv, probe_options &options);

} // namespace olv_probe

#endif
