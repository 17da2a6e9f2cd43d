/**
 * @file control.hpp
 * A control application that does anything, at random, while calls of the platform fail at random, and knows
 * after each operation what must be there.
 */
#ifndef OLV_TWAMP_SOAK_CONTROL_HPP
#define OLV_TWAMP_SOAK_CONTROL_HPP

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/common/formatted.hpp"
#include "fastpath/core/drop_reasons.hpp"
#include "hyx.h"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_twamp.h"
#include "program_names.hpp"

namespace olv_soak {

using namespace olv_test; // what the program calls its trees and namespaces

/** Something is not as it must be. */
struct wrong : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** @throw wrong  Unless @p holds. */
inline void require(bool holds, const std::string &what)
{
    if (!holds) {
        throw wrong{what};
    }
}

/** What has been done. */
struct totals {
    std::uint64_t operations = 0;
    std::uint64_t failures = 0; ///< Operations that returned a failure.
    std::set<std::uint32_t> statuses;
    std::uint64_t sent = 0;
    std::uint64_t replies = 0;

    void add(const totals &other)
    {
        operations += other.operations;
        failures += other.failures;
        statuses.insert(other.statuses.begin(), other.statuses.end());
        sent += other.sent;
        replies += other.replies;
    }
};

/**
 * The control side of one processor, whose only user it is. All calls from one thread.
 * Faults are the process's own: those that one control plans may hit the others' calls.
 */
class control {
  public:
    control(olv_sim::framework &framework, const olv_sim::processor &processor, std::uint32_t responders,
            std::uint64_t seed)
        : framework_(framework),
          processor_(processor),
          responders_(responders),
          module_(framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor})),
          random_(seed)
    {}

    /** Responders that stay until finish(), IDs 1, 2, ..., and the bind that they use, of key 1. */
    static constexpr std::uint32_t staying_responders = 4;
    static constexpr std::uint32_t staying_key = 1;

    /** Bring the module up and fill half of the namespace, without faults. */
    void begin()
    {
        require(olv_twamp_init(module_) == 0, "the module does not come up");
        while (live_.size() < std::max(staying_responders, responders_ / 2)) {
            const olv_twamp_responder_info info{static_cast<std::uint16_t>(live_.size()), 0};
            twamp_responder_handle *created = nullptr;
            require(olv_twamp_responder_create(module_, &info, &created) == 0, "no responder at the beginning");
            live_.push_back(created);
        }
        const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &staying_key);
        require(olv_twamp_custom_bind(framework_.system(), &info) == 0, "no bind at the beginning");
    }

    /** One operation, sometimes with a fault, and everything that it must have left. @throw wrong */
    void step()
    {
        static constexpr std::array operations{&control::create,    &control::remove, &control::read,
                                               &control::bind,      &control::unbind, &control::look_up,
                                               &control::set_level, &control::misuse, &control::dump};
        std::discrete_distribution<std::size_t> next{30, 28, 20, 8, 8, 4, 4, 4, 1};
        const auto operation = operations[next(random_)];
        if (below(4) == 0) {
            plan_a_fault();
        }
        (this->*operation)();
        ++done_.operations;
        expect_consistent();
    }

    /** Read the staying responders' counters, delete everything, go down, without faults. @throw wrong */
    void finish()
    {
        release_lock();
        expect_consistent();
        expect_staying_counters();
        while (!live_.empty()) {
            require(olv_twamp_responder_delete(module_, live_.back()) == 0, "a responder cannot be deleted");
            forget(live_.size() - 1);
        }
        bound_.insert(staying_key);
        for (const std::uint32_t key : bound_) {
            // The entry goes by its key, whatever module it leads to.
            const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &key);
            require(olv_twamp_custom_unbind(framework_.system(), &info) == 0, "a bind cannot be removed");
        }
        require(olv_twamp_shutdown(module_) == 0, "the module does not go down");
        require(processor_.allocated(responder_namespace) == 0, "IDs are left");
        require(processor_.tree(responder_tree)->size() == 0, "responder entries are left");
        require(processor_.tree(bind_tree)->size() == 0, "bind entries are left");
        require(olv_sim::semaphores::held(module_->lock) == 0, "the lock is held");
    }

    [[nodiscard]] const totals &done() const { return done_; }
    [[nodiscard]] olv_twamp_global_stats global_statistics() const
    {
        olv_twamp_global_stats stats{};
        require(olv_twamp_global_stats_get(module_, &stats) == 0, "the global statistics cannot be read");
        return stats;
    }

  private:
    static constexpr std::uint32_t lock_failed = 0x300A5;
    static constexpr std::uint32_t bind_keys = 64;

    /** Any call, or a call by name; sooner or later, once, a few times or for good. */
    void plan_a_fault()
    {
        const std::uint32_t count = below(8) == 0 ? olv_sim::fault::forever : 1 + below(2);
        if (below(2) == 0) {
            olv_sim::faults::set_any({.skip = below(12), .count = count});
            return;
        }
        const auto which = static_cast<olv_sim::call>(below(olv_sim::call_count));
        (void)olv_sim::faults::set(which, {.skip = below(2), .count = count}); // not where it cannot fail
    }

    /** Note a status. @throw wrong  Unless it is 0 or one of these. */
    void note(std::uint32_t status, const std::set<std::uint32_t> &allowed, const char *what)
    {
        olv_sim::faults::clear_all(); // What follows is bookkeeping.
        done_.statuses.insert(status);
        done_.failures += status != 0 ? 1 : 0;
        require(status == 0 || status == lock_failed || allowed.contains(status),
                olv_apps::formatted("%s: status 0x%X", what, status));
        release_lock();
    }

    /** A release that failed leaves the lock held. Another control's fault may hit this one, too. */
    void release_lock() const
    {
        while (olv_sim::semaphores::held(module_->lock) != 0) {
            (void)hyx_sem_post(module_->lock);
        }
    }

    void return_id(std::uint32_t id) const
    {
        std::uint32_t space = 0;
        while (hyx_rsrc_find(module_->rte_handle, 0, responder_namespace, &space) != 0) {
        }
        while (hyx_rsrc_free(space, id, 1) != 0) {
            require(processor_.is_allocated(responder_namespace, id), "an ID is gone");
        }
    }

    /** A creation that failed tried to return its ID, which may have failed as well. */
    void return_lost_ids()
    {
        if (processor_.allocated(responder_namespace) == live_.size()) {
            return;
        }
        std::set<std::uint32_t> known;
        for (const twamp_responder_handle *each : live_) {
            known.insert(each->responder_id);
        }
        for (std::uint32_t id = 1; id <= responders_; ++id) {
            if (processor_.is_allocated(responder_namespace, id) && !known.contains(id)) {
                require(!processor_.tree(responder_tree)->lookup(id), "an entry of a creation that failed");
                return_id(id);
            }
        }
    }

    void create()
    {
        const olv_twamp_responder_info info{7, static_cast<std::uint16_t>(random_())};
        twamp_responder_handle *created = nullptr;
        const std::uint32_t status = olv_twamp_responder_create(module_, &info, &created);
        note(status, {0x30012, 0x3001D, 0x3002C, 0x30040, 0x201FF}, "create");
        if (created == nullptr) {
            require(status != 0, "a creation without a record");
            return return_lost_ids();
        }
        require(status == 0 || status == lock_failed, "a record of a creation that failed");
        live_.push_back(created);
        require(processor_.tree(responder_tree)->lookup(created->responder_id).has_value(), "no entry");
        const std::uint32_t flags = hyx_ntohl(processor_.state(created->responder_id)[1].load());
        require(flags == (info.param_b | 0x80000000), "another state entry");
    }

    void forget(std::size_t position)
    {
        hyx_nvm_free(live_[position]);
        live_[position] = live_.back();
        live_.pop_back();
    }

    void remove()
    {
        if (live_.size() <= staying_responders) {
            return;
        }
        const auto live = static_cast<std::uint32_t>(live_.size());
        const std::uint32_t position = staying_responders + below(live - staying_responders);
        const std::uint32_t id = live_[position]->responder_id;
        const std::uint32_t status = olv_twamp_responder_delete(module_, live_[position]);
        note(status, {0x30040, 0x3001E, 0x3002C, 0x201FF}, "delete");
        if (processor_.tree(responder_tree)->lookup(id)) {
            require(status != 0, "an entry after a deletion");
            return;
        }
        const bool is_kept = processor_.is_allocated(responder_namespace, id);
        require(is_kept ? status == 0x3001E || status == lock_failed : status != 0x3001E, "ID of a deletion");
        if (is_kept) {
            return_id(id);
        }
        forget(position);
    }

    void read()
    {
        twamp_responder_handle *responder = live_[below(static_cast<std::uint32_t>(live_.size()))];
        olv_twamp_responder_stats stats{};
        olv_twamp_global_stats global{};
        switch (below(4)) {
        case 0:
            return note(olv_twamp_responder_stats_get(module_, responder, &stats), {0x3002B}, "statistics");
        case 1:
            return note(olv_twamp_global_stats_get(module_, &global), {0x3002B}, "global statistics");
        case 2:
            return note(olv_twamp_responder_stats_print(module_, responder), {}, "print of statistics");
        default:
            return note(olv_twamp_global_stats_print(module_), {}, "print of global statistics");
        }
    }

    void bind()
    {
        const std::uint32_t key = 2 + below(bind_keys);
        const olv_bind_info info = olv_sim::make_bind_info(
            module_, below(2) == 0 ? framework_.ipv4_module() : framework_.ipv6_module(), &key);
        note(olv_twamp_custom_bind(framework_.system(), &info), {0x3000D, 0x30012, 0x301FF, 0x30040}, "bind");
        if (processor_.tree(bind_tree)->lookup(key)) {
            bound_.insert(key);
        }
    }

    void unbind()
    {
        const std::uint32_t key = 2 + below(bind_keys);
        const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &key);
        note(olv_twamp_custom_unbind(framework_.system(), &info), {0x3000D, 0x30012, 0x30041}, "unbind");
        if (!processor_.tree(bind_tree)->lookup(key)) {
            bound_.erase(key);
        }
    }

    void look_up()
    {
        std::uint32_t imc = 0;
        const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv6_module(), &staying_key);
        const std::uint32_t status = olv_twamp_get_imc(module_, &info, &imc);
        note(status, {}, "inter-module call");
        require(status != 0 || imc != 0, "no tree function");
        note(olv_twamp_service_function_update(module_), {0x201FF}, "service-function update");
    }

    void dump() { note(olv_twamp_tables_dump(module_, 1 + below(3)), {0x3007E}, "dump"); }

    void set_level() { note(olv_twamp_sys_log(module_, below(16)), {15}, "log level"); }

    /** What has to be refused without a trace of it in the platform. */
    void misuse()
    {
        olv_module_handle foreign{};
        twamp_responder_handle forged{1, module_, 0x43215679, {0, 0}};
        twamp_responder_handle *slot = nullptr;
        note(olv_twamp_init(module_), {}, "second init");
        note(olv_twamp_shutdown(&foreign), {1}, "shutdown of a foreign record");
        note(olv_twamp_responder_delete(module_, &forged), {1}, "delete of a forged responder");
        note(olv_twamp_responder_create(module_, nullptr, &slot), {0x30008}, "create of nothing");
        note(olv_twamp_custom_bind(framework_.system(), nullptr), {8}, "bind of nothing");
        note(olv_twamp_tables_dump(module_, 4), {0x30008}, "dump of no group");
    }

    void expect_consistent() const
    {
        require(processor_.allocated(responder_namespace) == live_.size(), "IDs and responders differ");
        require(processor_.tree(responder_tree)->size() == live_.size(), "entries and responders differ");
        require(processor_.tree(bind_tree)->size() == bound_.size() + 1, "binds differ");
        require(olv_twamp_valid_module_handle(module_) == 1, "the module is not valid");
    }

    void expect_staying_counters() const
    {
        for (std::size_t index = 0; index < staying_responders; ++index) {
            olv_twamp_responder_stats stats{};
            require(olv_twamp_responder_stats_get(module_, live_[index], &stats) == 0 && stats.received > 0,
                    "a staying responder has seen no packet");
            require(stats.received == stats.transmitted + olv_fastpath::drops_in(stats).sum(),
                    "received is not transmitted and dropped");
        }
    }

    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }

    olv_sim::framework &framework_;
    const olv_sim::processor &processor_;
    std::uint32_t responders_;
    olv_module_handle *module_;
    std::mt19937_64 random_;
    std::vector<twamp_responder_handle *> live_; ///< The staying ones first.
    std::set<std::uint32_t> bound_;
    totals done_;
};

} // namespace olv_soak

#endif
