#include "fastpath/core/admission.hpp"

#include <algorithm>

#include "fastpath/core/reply.hpp"

namespace olv_fastpath {

namespace {

/** Seconds within which an answer to a reply is known for one. */
constexpr std::uint64_t longest_round_trip = 8;

} // namespace

admission::admission(const olv_sim::processor &processor, const fast_path_options &options,
                     std::shared_ptr<responder_limits> limits)
    : clock_(processor),
      responders_(processor),
      allowed_sources_(options.allowed_sources),
      minimum_source_port_(std::max<std::uint16_t>(options.minimum_source_port, 1)), // 0 cannot be sent to
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
    if (sender.port < minimum_source_port_) {
        return drop_reason::source_port;
    }
    if (own_.contains(sender, now / clock_.ticks_per_second())) {
        return drop_reason::own_source;
    }
    return std::nullopt;
}

std::optional<drop_reason> admission::reason_against(std::span<const std::uint8_t> payload,
                                                     const limited_path &path, std::uint64_t now)
{
    if (answers_a_reply(payload, path.path, now)) {
        return drop_reason::answer_to_reply;
    }
    if (path.limit != nullptr && !path.limit->take(now)) {
        return drop_reason::packet_rate;
    }
    return std::nullopt;
}

/** It carries a time stamp that the path's responder wrote within the last seconds, where a reply carries the
 *  request's. Two reflectors would go on answering each other for ever after one forged packet. */
bool admission::answers_a_reply(std::span<const std::uint8_t> payload, const packet_path &path,
                                std::uint64_t now)
{
    using namespace olv_net;
    // The error estimate tells apart nearly all other packets without looking anything up.
    if (payload.size() < reflector_packet::header_length) {
        return false;
    }
    const std::uint16_t estimate = load_16(&payload[reflector_packet::sender_error_estimate]);
    const std::uint16_t in_ptp = estimate & error_estimate::ptp_format;
    if ((estimate ^ in_ptp) != time_.error_estimate) {
        return false;
    }
    const responder_view responder = responders_.find(path.responder_id);
    if (!responder.exists()) {
        return false;
    }
    const reply_clock clock = time_.system ? *time_.system : responder.clock();
    const std::uint8_t *stamp = &payload[reflector_packet::sender_timestamp];
    const ntp_time replied = in_ptp != 0 ? load_ptp(stamp).to_ntp(time_.tai_ahead) : load_ntp(stamp);
    const std::uint64_t rounded = in_ptp != 0 ? 4 : 0; // a nanosecond, by which PTP's may be later
    return clock.instant_of(now, clock_.scale()) + rounded - replied.units() <= longest_round_trip << 32;
}

} // namespace olv_fastpath
