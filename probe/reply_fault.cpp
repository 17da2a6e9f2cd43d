#include "probe/reply_fault.hpp"

#include <array>

#include "probe/name_and_text.hpp"

namespace olv_probe {
namespace {

constexpr std::array<name_and_text, reply_fault_count> kinds = {{
    {"length", "length not the request's"},
    {"header", "shorter than 41 octets"},
    {"must_be_zero", "a field that must be zero is not"},
    {"ssid", "an SSID where none was sent"},
    {"sender_timestamp", "sender timestamp not as sent"},
    {"sender_error_estimate", "sender error estimate not as sent"},
    {"sender_ttl", "sender TTL 0"},
    {"reflector_sequence", "reflector sequence number used before"},
    {"error_estimate", "error estimate with multiplier 0"},
    {"padding", "padding not as sent"},
    {"other_format", "timestamps in the other format"},
    {"format_mark", "timestamps not in the format that they claim"},
    {"zero_timestamp", "reflector timestamp 0"},
    {"far_timestamp", "reflector timestamp more than a day off"},
    {"timestamps", "received after it was sent back"},
    {"reflector_time", "longer in the reflector than away"},
    {"clock_jump", "timestamps that jump and come back"},
    {"too_short", "too short to tell its request"},
    {"echo", "the request itself"},
    {"sender_sequence", "sender sequence number never sent"},
}};

} // namespace

const char *text_of(reply_fault fault)
{
    return kinds[static_cast<std::size_t>(fault)].text;
}

const char *name_of(reply_fault fault)
{
    return kinds[static_cast<std::size_t>(fault)].name;
}

std::string text_of(fault_set faults)
{
    std::string text;
    for (std::size_t index = 0; index < reply_fault_count; ++index) {
        if (const auto fault = static_cast<reply_fault>(index); faults.has(fault)) {
            text += (text.empty() ? "" : "; ");
            text += text_of(fault);
        }
    }
    return text;
}

} // namespace olv_probe
