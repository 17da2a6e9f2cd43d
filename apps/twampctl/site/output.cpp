#include "apps/twampctl/site/output.hpp"

#include <sys/socket.h>

namespace twampctl {
namespace {

constexpr std::uint32_t bind_key_ipv4 = 4;
constexpr std::uint32_t bind_key_ipv6 = 6;

} // namespace

const char *name_of(output to)
{
    return to == output::ipv6 ? "IPv6" : "IPv4";
}

std::uint32_t usual_bind_key(output to)
{
    return to == output::ipv6 ? bind_key_ipv6 : bind_key_ipv4;
}

output output_for(int family)
{
    return family == AF_INET6 ? output::ipv6 : output::ipv4;
}

} // namespace twampctl
