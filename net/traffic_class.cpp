#include "net/traffic_class.hpp"

#include <array>

#include <strings.h>

#include "net/address_text.hpp"

namespace olv_net {
namespace {

struct named_value {
    const char *name;
    std::uint8_t value;
};

/** RFC 4594, RFC 5865 (VOICE-ADMIT), RFC 8622 (LE). */
constexpr named_value dscps[] = {{"CS0", 0},   {"CS1", 8},   {"CS2", 16},  {"CS3", 24},  {"CS4", 32},
                                 {"CS5", 40},  {"CS6", 48},  {"CS7", 56},  {"AF11", 10}, {"AF12", 12},
                                 {"AF13", 14}, {"AF21", 18}, {"AF22", 20}, {"AF23", 22}, {"AF31", 26},
                                 {"AF32", 28}, {"AF33", 30}, {"AF41", 34}, {"AF42", 36}, {"AF43", 38},
                                 {"EF", 46},   {"LE", 1},    {"DF", 0},    {"BE", 0},    {"VOICE-ADMIT", 44}};

/** As the bits count, RFC 3168. */
constexpr std::array<const char *, 4> ecns{"not-ect", "ect1", "ect0", "ce"};

} // namespace

std::optional<std::uint8_t> dscp_of(const std::string &text)
{
    for (const named_value &each : dscps) {
        if (strcasecmp(text.c_str(), each.name) == 0) {
            return each.value;
        }
    }
    const std::optional<unsigned> number = parse_decimal(text, 63);
    return number ? std::optional{static_cast<std::uint8_t>(*number)} : std::nullopt;
}

std::optional<std::uint8_t> ecn_of(const std::string &text)
{
    for (std::size_t value = 0; value < ecns.size(); ++value) {
        if (strcasecmp(text.c_str(), ecns[value]) == 0) {
            return static_cast<std::uint8_t>(value);
        }
    }
    const std::optional<unsigned> number = parse_decimal(text, 3);
    return number ? std::optional{static_cast<std::uint8_t>(*number)} : std::nullopt;
}

std::string unknown_dscp(const std::string &text)
{
    return "'" + text + "' is no DSCP: it takes 0 to 63, CS0 to CS7, AF11 to AF43, EF, VOICE-ADMIT, LE, DF";
}

std::string unknown_ecn(const std::string &text)
{
    return "'" + text + "' is no ECN: it takes not-ect, ect0, ect1, ce, or their bits as 0 to 3";
}

std::string dscp_name(std::uint8_t traffic_class)
{
    const unsigned value = traffic_class >> 2;
    for (const named_value &each : dscps) {
        if (each.value == value) {
            return each.name;
        }
    }
    return std::to_string(value);
}

const char *ecn_name(std::uint8_t traffic_class)
{
    return ecns[traffic_class & 3u];
}

} // namespace olv_net
