/**
 * @file site.hpp
 * A processor with its modules and two responders that stay, for a thread that reflects packets and others that
 * work on it meanwhile.
 */
#ifndef OLV_TWAMP_RACES_SITE_HPP
#define OLV_TWAMP_RACES_SITE_HPP

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "fastpath/core/reflector.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"

namespace olv_races {

/** Packets by why they were dropped, if they were. */
using tally = std::map<std::optional<olv_fastpath::drop_reason>, std::uint32_t>;

class site {
  public:
    static constexpr std::uint32_t staying_responders = 2; ///< IDs 1 and 2.
    static constexpr std::uint32_t last_id = 12;           ///< Of the namespace.
    static constexpr std::uint32_t staying_key = 1;

    /** @param modules  On this processor; the responders that stay are the first one's. */
    site(olv_sim::framework &framework, std::uint32_t modules);
    ~site();
    site(const site &) = delete;
    site &operator=(const site &) = delete;

    [[nodiscard]] std::size_t modules() const { return modules_.size(); }
    [[nodiscard]] olv_module_handle *module(std::size_t index) const { return modules_.at(index); }
    [[nodiscard]] twamp_responder_handle *staying(std::size_t index) const { return staying_.at(index); }

    /** Reflect so many packets: half of them to the responders that stay, half to IDs and keys that come and
     * go. */
    void reflect(std::uint32_t packets);
    /** Whether reflect() is done. */
    [[nodiscard]] bool is_done() const { return is_done_; }

    /** Fails the test unless the counters of the module and of the responders that stay are what the worker
     * saw, and nothing but what stays is left. Once the worker is done. */
    void expect_exact_totals();

  private:
    olv_sim::framework &framework_;
    olv_sim::processor processor_;
    std::vector<olv_module_handle *> modules_;
    std::vector<twamp_responder_handle *> staying_;
    std::atomic<bool> is_done_{false};
    tally seen_; ///< By the worker.
    std::array<tally, staying_responders> seen_of_staying_;
};

} // namespace olv_races

#endif
