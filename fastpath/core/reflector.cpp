#include "fastpath/core/reflector.hpp"

#include <algorithm>
#include <utility>

#include "fastpath/core/reply.hpp"
#include "twamp_program.h"

namespace olv_fastpath {

namespace {

constexpr std::uint8_t dscp_mask = 0xFC;

} // namespace

reflector::reflector(olv_sim::processor &processor, const fast_path_options &options,
                     std::shared_ptr<reflector_peers> peers)
    : processor_(processor),
      clock_(processor),
      responders_(processor),
      binds_(processor.tree(TWAMP_BIND_TO_NEXT_MODULE_FUNCTION)),
      global_(processor.state(GLOBAL_STATS_NS_ID)),
      mode_(options.mode),
      minimum_request_(std::max(options.minimum_request, olv_net::sender_packet::header_length)),
      sessions_(processor, options, std::move(peers))
{
    if (global_.size() < global_words) {
        global_ = uncounted_;
    }
}

bool reflector::is_bound(std::uint32_t bind_key) const
{
    olv_sim::tree_action action;
    return binds_ != nullptr && binds_->find(bind_key & id_mask, action);
}

/** Count it in the module's counters. */
template <drop_reason Reason> verdict reflector::batch::drop() const
{
    count_drop<olv_twamp_global_stats, Reason>(reflector_.global_);
    return {.dropped = Reason, .reply = {}};
}

verdict reflector::batch::reflect(const received_packet &packet, const packet_path &path,
                                  std::span<std::uint8_t> room)
{
    reflector &own = reflector_;
    if (total_rx_ == 0) {
        own.sessions_.end_some_idle(packet.arrival_ticks);
    }

    const responder_view responder = own.responders_.find(path.responder_id);
    if (!responder.exists()) {
        ++total_rx_;
        return drop<drop_reason::no_responder>();
    }
    if (!own.is_bound(path.bind_key)) {
        ++total_rx_;
        return drop<drop_reason::no_bind>();
    }

    count_received(responder);
    const std::size_t length = reply_length(packet.payload.size());
    if (packet.payload.size() < own.minimum_request_ || room.size() < length) {
        count_drop<twamp_responder_state, drop_reason::length_check>(responder.words);
        return drop<drop_reason::length_check>();
    }

    const std::uint64_t arrival = clock_.instant_of(packet.arrival_ticks, own.clock_.scale());
    const numbered number = own.number_for(packet, responder, arrival);
    if (number.refused) {
        return refuse(*number.refused, responder);
    }
    const std::span<std::uint8_t> reply = room.first(length);
    write_reply(packet,
                {.sequence_number = number.sequence_number,
                 .error_estimate = time_.error_estimate,
                 .arrival = arrival,
                 .tai_ahead = time_.tai_ahead},
                reply);
    ++transmitted_;
    return {.dropped = std::nullopt,
            .reply = {.bytes = reply,
                      .clock = clock_,
                      .traffic_class = static_cast<std::uint8_t>(packet.traffic_class & dscp_mask)}};
}

inline reflector::numbered reflector::number_for(const received_packet &packet, const responder_view &responder,
                                                 std::uint64_t arrival)
{
    if (mode_ == stamp_mode::stateless) {
        return {.refused = sessions_.reason_against(packet, arrival),
                .sequence_number = olv_net::load_32(&packet.payload[olv_net::sender_packet::sequence_number])};
    }
    const entered_session session = sessions_.enter(packet, responder, arrival);
    if (session.entry == nullptr) {
        return {.refused = session.refused};
    }
    return {.refused = std::nullopt, .sequence_number = session.entry->next_sequence_number++};
}

verdict reflector::batch::refuse(drop_reason reason, const responder_view &responder)
{
    if (entry_of(reason).is_counted_by(drop_counter::listener)) {
        --total_rx_; // as if it had not come to the module
        --received_;
    } else {
        // Either record has one word for both reasons.
        count_drop<twamp_responder_state, drop_reason::max_sessions>(responder.words);
        count_drop<olv_twamp_global_stats, drop_reason::hash_error>(reflector_.global_);
    }
    return {.dropped = reason, .reply = {}};
}

inline void reflector::batch::count_received(const responder_view &responder)
{
    if (responder_.words.data() != responder.words.data() || responder_.creation != responder.creation) {
        if (responder_.exists()) {
            count();
        }
        responder_ = responder;
        clock_ = time_.system ? *time_.system : responder.clock();
    }
    ++total_rx_;
    ++received_;
}

void reflector::batch::count()
{
    olv_fastpath::count(reflector_.global_, global_word::total_rx, total_rx_);
    olv_fastpath::count(reflector_.global_, global_word::total_tx, transmitted_);
    if (responder_.exists() && creation_of(responder_.words) == responder_.creation) {
        olv_fastpath::count(responder_.words, responder_word::received, received_);
        olv_fastpath::count(responder_.words, responder_word::transmitted, transmitted_);
    }
    total_rx_ = received_ = transmitted_ = 0;
    responder_ = {};
}

} // namespace olv_fastpath
