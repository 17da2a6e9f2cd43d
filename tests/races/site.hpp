/**
 * @file site.hpp
 * A processor with a module, responders that stay and a worker that reflects packets without end, for threads
 * that work on it meanwhile.
 */
#ifndef OLV_TWAMP_RACES_SITE_HPP
#define OLV_TWAMP_RACES_SITE_HPP

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "fastpath/core/reflector.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"
#include "program_names.hpp"

namespace olv_races {

using olv_test::bind_tree;
using olv_test::responder_namespace;
using olv_test::responder_tree;

/** What became of packets, by the counters' names. */
struct tally {
    std::uint32_t received = 0;
    std::uint32_t transmitted = 0;
    std::uint32_t no_responder = 0;
    std::uint32_t no_bind = 0;
    std::uint32_t length = 0;
    std::uint32_t sessions = 0; ///< Refused for want of a session.

    void add(olv_fastpath::outcome result);
};

class site {
  public:
    static constexpr std::uint32_t staying_responders = 2; ///< IDs 1 and 2.
    static constexpr std::uint32_t first_free_id = 3;
    static constexpr std::uint32_t last_id = 12; ///< Of the namespace.
    static constexpr std::uint32_t staying_key = 1;

    /** @param modules  On this processor; the responders that stay are the first one's. */
    site(olv_sim::framework &framework, std::uint32_t modules);
    ~site();
    site(const site &) = delete;
    site &operator=(const site &) = delete;

    [[nodiscard]] olv_module_handle *module(std::size_t index) const { return modules_.at(index); }
    [[nodiscard]] twamp_responder_handle *staying(std::size_t index) const { return staying_.at(index); }
    [[nodiscard]] const olv_sim::processor &processor() const { return processor_; }

    /** Reflect so many packets in a thread of its own: half of them to the responders that stay, half to IDs
     * and keys that come and go. */
    void start(std::uint32_t packets);
    [[nodiscard]] bool running() const { return running_; }
    void wait();

    /** Fails the test unless the counters of the module and of the responders that stay are what the worker
     * saw, and nothing but what stays is left. Once the worker is done. */
    void expect_exact_totals() const;

  private:
    void reflect(std::uint32_t packets);

    olv_sim::framework &framework_;
    olv_sim::processor processor_;
    std::vector<olv_module_handle *> modules_;
    std::vector<twamp_responder_handle *> staying_;
    std::thread worker_;
    std::atomic<bool> running_{false};
    tally all_; ///< What the worker saw.
    std::vector<tally> staying_tally_;
};

} // namespace olv_races

#endif
