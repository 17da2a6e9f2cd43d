/**
 * @file address_text.hpp
 * What reading addresses, prefixes and names of reflectors has in common.
 */
#ifndef OLV_NET_ADDRESS_TEXT_HPP
#define OLV_NET_ADDRESS_TEXT_HPP

#include <charconv>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace olv_net {

/** @return The number that the text is, in decimal digits and nothing else; nothing: it is none, or greater. */
[[nodiscard]] inline std::optional<unsigned> parse_decimal(std::string_view text, unsigned greatest)
{
    unsigned value = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stopped == end && value <= greatest ? std::optional{value} : std::nullopt;
}

/** @return A port, 0 included; nothing: the text is none. */
[[nodiscard]] inline std::optional<std::uint16_t> parse_port(std::string_view text)
{
    const std::optional<unsigned> value = parse_decimal(text, UINT16_MAX);
    return value ? std::optional{static_cast<std::uint16_t>(*value)} : std::nullopt;
}

/** @throw std::runtime_error  "address '192.0.2.1': there is no port". @param what  "address", "prefix". */
[[noreturn]] inline void reject(const char *what, std::string_view text, const std::string &reason)
{
    throw std::runtime_error(std::string(what) + " '" + std::string(text) + "': " + reason);
}

/** The port in the text of an address. */
[[nodiscard]] inline std::uint16_t required_port(std::string_view text, std::string_view port)
{
    const std::optional<std::uint16_t> number = parse_port(port);
    if (!number) {
        reject("address", text, "the port has to be a number from 0 to 65535");
    }
    return *number;
}

/** Reject text with a zero byte: the C library would take what is before it for all of it. */
inline void reject_zero_bytes(const char *what, std::string_view text)
{
    const std::size_t zero = text.find('\0');
    if (zero != std::string_view::npos) {
        reject(what, text.substr(0, zero), "contains a zero byte");
    }
}

} // namespace olv_net

#endif
