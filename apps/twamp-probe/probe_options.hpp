/**
 * @file probe_options.hpp
 * What twamp-probe is told to do.
 */
#ifndef OLV_PROBE_OPTIONS_HPP
#define OLV_PROBE_OPTIONS_HPP

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <sys/socket.h>

#include "apps/common/reflector_name.hpp"
#include "probe/session_options.hpp"

namespace olv_probe {

inline constexpr const char *program_name = "twamp-probe";

enum class output_format { text, json, csv };

struct probe_options {
    session_options session; ///< All but the reflector's address, which is found later.
    reflector_name reflector;
    int family = AF_UNSPEC;
    output_format format = output_format::text;
    std::optional<std::chrono::nanoseconds> report_interval;
    bool histogram = false;
    std::string plot; ///< File name with an extension that can be drawn; empty: none.
};

/** @param words  Behind the program's name.
 *  @return The status to exit with, help or an error having been printed; nothing when @p options is filled. */
[[nodiscard]] std::optional<int> read_options(const std::vector<std::string> &words, probe_options &options);

} // namespace olv_probe

#endif
