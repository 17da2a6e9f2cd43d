/**
 * @file log_words.hpp
 * Log words: the level, and the bits above it by name.
 */
#ifndef OLV_TWAMPCTL_LOG_WORDS_HPP
#define OLV_TWAMPCTL_LOG_WORDS_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "apps/common/command_line.hpp"

namespace twampctl {

/** "level 15, bits function pattern". */
[[nodiscard]] std::string log_word_text(std::uint32_t word);

/** Names of the bits above the level. */
[[nodiscard]] std::vector<std::string> log_bit_names();
/** The bits of these names, each one of log_bit_names(). */
[[nodiscard]] std::uint32_t log_bits(const std::vector<std::string> &names);

/** Let an option take the supported log levels and no others. */
void take_log_levels(olv_apps::option option);

} // namespace twampctl

#endif
