#include "fastpath/core/admission.hpp"

#include "net/twamp_wire.hpp"

namespace olv_fastpath {

namespace {

/** Below it are the ports of well-known services. */
constexpr std::uint16_t first_unprivileged_port = 1024;

} // namespace

admission::admission(const olv_sim::processor &processor, const fast_path_options &options,
                     std::shared_ptr<responder_limits> limits)
    : clock_(processor),
      allowed_sources_(options.allowed_sources),
      minimum_source_port_(options.minimum_source_port),
      answers_groups_(options.answer_groups),
      limits_(limits != nullptr
                  ? std::move(limits)
                  : std::make_shared<responder_limits>(options.packets_per_second, clock_.ticks_per_second()))
{}

limited_path admission::limited(const packet_path &path) const
{
    return {.path = path, .limit = limits_->bucket_of(path.responder_id)};
}

std::optional<drop_reason> admission::reason_against(const olv_net::ip_endpoint &sender, std::uint64_t now)
{
    if (!allowed_sources_.empty() && !allowed_sources_.contains(sender.address)) {
        return drop_reason::source_not_allowed;
    }
    if (is_low(sender.port)) {
        return drop_reason::source_port;
    }
    if (own_.contains(sender, now / clock_.ticks_per_second())) {
        return drop_reason::own_source;
    }
    return std::nullopt;
}

/** Port 0 cannot be sent to. */
bool admission::is_low(std::uint16_t source_port) const
{
    if (minimum_source_port_) {
        return source_port < *minimum_source_port_ || source_port == 0;
    }
    return source_port < first_unprivileged_port && source_port != olv_net::default_port;
}

} // namespace olv_fastpath
