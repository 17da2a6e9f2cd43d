/**
 * @file control.hpp
 * A control application that does anything, at random, while calls of the platform fail at random, and knows
 * after each operation what must be there.
 */
#ifndef OLV_TWAMP_SOAK_CONTROL_HPP
#define OLV_TWAMP_SOAK_CONTROL_HPP

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"
#include "program_names.hpp"

namespace olv_soak {

using olv_test::bind_tree;
using olv_test::responder_namespace;
using olv_test::responder_tree;

/** Something is not as it must be. */
class wrong : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** @throw wrong  Unless @p holds. */
void require(bool holds, const std::string &what);

/**
 * The control side of one processor, whose only user it is. All calls from one thread.
 * Faults are the process's own: those that one control plans may hit the others' calls.
 */
class control {
  public:
    control(olv_sim::framework &framework, const olv_sim::processor &processor, std::uint32_t responders,
            std::uint64_t seed);

    /** Responders that stay until finish(), IDs 1, 2, ..., and the bind that they use, of key 1. */
    static constexpr std::uint32_t staying_responders = 4;
    static constexpr std::uint32_t staying_key = 1;

    /** Bring the module up and fill half of the namespace, without faults. */
    void begin();
    /** One operation, sometimes with a fault, and everything that it must have left. @throw wrong */
    void step();
    /** Read the staying responders' counters, delete everything, go down, without faults. @throw wrong */
    void finish();

    [[nodiscard]] std::uint64_t operations() const { return operations_; }
    [[nodiscard]] std::uint64_t failures() const { return failures_; } ///< Operations that returned a failure.
    [[nodiscard]] const std::map<std::uint32_t, std::uint64_t> &statuses() const { return statuses_; }
    [[nodiscard]] olv_twamp_global_stats global_statistics() const;

  private:
    using operation = void (control::*)();

    void create();
    void remove();
    void read();
    void bind();
    void unbind();
    void look_up();
    void dump();
    void set_level();
    void misuse();

    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    void plan_a_fault();
    /** Note a status. @throw wrong  Unless it is 0 or one of these. */
    void note(std::uint32_t status, const std::set<std::uint32_t> &allowed, const char *what);
    void release_lock() const;
    void return_lost_ids(std::size_t expected);
    void return_id(std::uint32_t id) const;
    void forget(std::size_t position);
    void expect_consistent() const;
    void expect_staying_counters() const;

    olv_sim::framework &framework_;
    const olv_sim::processor &processor_;
    std::uint32_t responders_;
    olv_module_handle *module_;
    std::mt19937_64 random_;
    std::vector<twamp_responder_handle *> live_; ///< The staying ones first.
    std::set<std::uint32_t> bound_;
    std::uint64_t operations_ = 0;
    std::uint64_t failures_ = 0;
    std::map<std::uint32_t, std::uint64_t> statuses_;
};

} // namespace olv_soak

#endif
