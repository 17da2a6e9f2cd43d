/**
 * @file reflector_expectation.hpp
 * What the reflector has to make of a packet, from its documentation: outcome, sequence number, reply.
 */
#ifndef OLV_FUZZ_REFLECTOR_EXPECTATION_HPP
#define OLV_FUZZ_REFLECTOR_EXPECTATION_HPP

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "fastpath/core/options.hpp"
#include "fastpath/core/packet.hpp"

namespace olv_fuzz {

/** Numbers that a test can change, to see that a difference is noticed. */
struct reflector_constants {
    std::uint32_t first_sequence_number = 0;
    std::uint32_t maximum_sessions = 32;
    std::size_t shortest_request = 14;
    std::size_t shortest_reply = 41;
    std::uint32_t seconds_offset = 0;
    std::size_t first_drop_word = 2;
};

class reflector_expectation {
  public:
    reflector_expectation(const reflector_constants &constants, const olv_fastpath::fast_path_options &options,
                          std::uint64_t ticks_per_second)
        : constants_(constants), options_(options), frequency_(ticks_per_second)
    {}

    struct responder {
        std::uint64_t created_units = 0; ///< NTP, 2^-32 s.
        std::uint64_t created_ticks = 0;
    };

    void create(std::uint32_t id, const responder &created);
    void remove(std::uint32_t id);
    void bind(std::uint32_t key) { binds_.insert(key); }
    void unbind(std::uint32_t key) { binds_.erase(key); }
    void set_default_bind(bool on) { has_default_bind_ = on; }
    [[nodiscard]] const std::map<std::uint32_t, responder> &responders() const { return responders_; }

    /** What becomes of a packet; where only the session table decides, what becomes of it when there is room.
     */
    struct decision {
        std::optional<olv_fastpath::drop_reason> dropped; ///< Nothing: it is reflected.
        std::uint32_t sequence_number = 0;
        bool needs_new_session = false;
    };
    [[nodiscard]] decision decide(const olv_fastpath::received_packet &packet,
                                  const olv_fastpath::packet_path &path, std::size_t room) const;
    /** The packet was reflected. */
    void note_reflected(const olv_fastpath::received_packet &packet, const olv_fastpath::packet_path &path);

    /** The reply but for its departure time and error estimate, which are taken from @p found. */
    [[nodiscard]] std::vector<std::uint8_t> reply(const olv_fastpath::received_packet &packet,
                                                  const olv_fastpath::packet_path &path,
                                                  std::uint32_t sequence_number,
                                                  std::span<const std::uint8_t> found) const;
    /** The instant that a reply gives for a reading of the timer, in units of 2^-32 s. */
    [[nodiscard]] std::uint64_t instant(std::uint32_t id, std::uint64_t ticks) const;
    [[nodiscard]] std::size_t reply_length(std::size_t request_length) const;
    /** Sessions that may be in the table, forgotten ones included. */
    [[nodiscard]] std::size_t sessions_ever() const { return sessions_ever_; }

  private:
    using session_key = std::pair<std::uint32_t, olv_net::ip_endpoint>;
    struct session {
        std::uint32_t next = 0;
        std::uint64_t last_arrival = 0;
    };

    [[nodiscard]] bool is_alive(const session &one, std::uint64_t now) const;
    [[nodiscard]] std::size_t alive_sessions(std::uint32_t id, std::uint64_t now) const;
    static session_key key_of(const olv_fastpath::received_packet &packet,
                              const olv_fastpath::packet_path &path);

    reflector_constants constants_;
    olv_fastpath::fast_path_options options_;
    std::uint64_t frequency_;
    std::map<std::uint32_t, responder> responders_;
    std::set<std::uint32_t> binds_;
    bool has_default_bind_ = false;
    std::map<session_key, session> sessions_;
    std::size_t sessions_ever_ = 0;
};

} // namespace olv_fuzz

#endif
