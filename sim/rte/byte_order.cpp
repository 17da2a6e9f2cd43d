#include <arpa/inet.h>

#include "sim/faults/platform_call.hpp"

using namespace olv_sim;

std::uint16_t hyx_htons(std::uint16_t host)
{
    return plain_call(
        call::hyx_htons, [&](argument_text &text) { text.hex("value", host); },
        [&]() -> std::uint16_t { return htons(host); });
}

std::uint32_t hyx_htonl(std::uint32_t host)
{
    return plain_call(
        call::hyx_htonl, [&](argument_text &text) { text.hex("value", host); },
        [&]() -> std::uint32_t { return htonl(host); });
}

std::uint32_t hyx_ntohl(std::uint32_t network)
{
    return plain_call(
        call::hyx_ntohl, [&](argument_text &text) { text.hex("value", network); },
        [&]() -> std::uint32_t { return ntohl(network); });
}
