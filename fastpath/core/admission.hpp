/**
 * @file admission.hpp
 * Which packets a fast path hands to its reflector; of the others the module sees nothing.
 */
#ifndef OLV_FASTPATH_ADMISSION_HPP
#define OLV_FASTPATH_ADMISSION_HPP

#include <cstdint>
#include <memory>
#include <optional>

#include "fastpath/core/clocks.hpp"
#include "fastpath/core/drop_reasons.hpp"
#include "fastpath/core/options.hpp"
#include "fastpath/core/own_endpoints.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/responder_limits.hpp"

namespace olv_fastpath {

/** A path, with the limit of packets of its responder. */
struct limited_path {
    packet_path path;
    std::shared_ptr<token_bucket> limit; ///< NULL where there is none.
};

/**
 * Packets that are not to be answered are dropped before the reflector sees and counts them, for the first
 * reason that there is.
 *
 * Packets that seem to come from the fast path's own addresses are always dropped, as it would answer itself
 * for ever.
 *
 * Belongs to one thread at a time; the processor has to outlive it.
 */
class admission {
  public:
    /** @param limits  That it shares with others; NULL: its own, by the options. */
    admission(const olv_sim::processor &processor, const fast_path_options &options,
              std::shared_ptr<responder_limits> limits = nullptr);

    /** Where the fast path itself listens. */
    [[nodiscard]] own_endpoints &own() { return own_; }
    [[nodiscard]] limited_path limited(const packet_path &path) const;

    /** Why nothing that comes from a sender is answered; nothing: there is no reason.
     *  @param now  Ticks of the processor's timer, here and below. */
    [[nodiscard]] std::optional<drop_reason> reason_against(const olv_net::ip_endpoint &sender,
                                                            std::uint64_t now);
    /** The same of what was sent to an address.
     *  @param to_this_host  It is this host's, not that of a group or of all hosts. */
    [[nodiscard]] std::optional<drop_reason> reason_against_address(bool to_this_host) const
    {
        return to_this_host || answers_groups_ ? std::nullopt : std::optional{drop_reason::not_to_this_host};
    }
    /** The same of a packet from a sender that is answered. One that there is no reason against counts for the
     *  responder's limit. */
    [[nodiscard]] static std::optional<drop_reason> reason_against(const limited_path &path, std::uint64_t now)
    {
        return path.limit != nullptr && !path.limit->take(now) ? std::optional{drop_reason::packet_rate}
                                                               : std::nullopt;
    }

  private:
    [[nodiscard]] bool is_low(std::uint16_t source_port) const;

    processor_clock clock_;
    olv_net::prefix_list allowed_sources_;
    std::optional<std::uint16_t> minimum_source_port_;
    bool answers_groups_;
    own_endpoints own_;
    std::shared_ptr<responder_limits> limits_;
};

} // namespace olv_fastpath

#endif
