/**
 * @file traffic_class.hpp
 * The names of DSCPs and of the two ECN bits.
 */
#ifndef OLV_NET_TRAFFIC_CLASS_HPP
#define OLV_NET_TRAFFIC_CLASS_HPP

#include <cstdint>
#include <optional>
#include <string>

namespace olv_net {

/** @param text  "46", "EF", "af41", "voice-admit". @return Nothing: it is neither a number up to 63 nor a name.
 */
[[nodiscard]] std::optional<std::uint8_t> dscp_of(const std::string &text);
/** @param text  "2", "ect0". */
[[nodiscard]] std::optional<std::uint8_t> ecn_of(const std::string &text);
/** Why these are none, and what would be. */
[[nodiscard]] std::string unknown_dscp(const std::string &text);
[[nodiscard]] std::string unknown_ecn(const std::string &text);

/** "EF", or "47" where there is no name. @param traffic_class  The octet of the IP header. */
[[nodiscard]] std::string dscp_name(std::uint8_t traffic_class);
/** "ect0". */
[[nodiscard]] const char *ecn_name(std::uint8_t traffic_class);

} // namespace olv_net

#endif
