#include "control.hpp"
#include "hyx.h"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"

#include <algorithm>
#include <array>
#include <sstream>

namespace olv_soak {

namespace {

constexpr std::uint32_t lock_failed = 0x300A5;
constexpr std::uint32_t bind_keys = 64;

std::string hexadecimal(std::uint32_t value)
{
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

std::uint32_t word_of(const olv_sim::state_words &words, std::size_t index)
{
    return hyx_ntohl(words[index].load());
}

} // namespace

void require(bool holds, const std::string &what)
{
    if (!holds) {
        throw wrong{what};
    }
}

control::control(olv_sim::framework &framework, const olv_sim::processor &processor, std::uint32_t responders,
                 std::uint64_t seed)
    : framework_(framework),
      processor_(processor),
      responders_(responders),
      module_(framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor})),
      random_(seed)
{}

void control::begin()
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

void control::step()
{
    struct weighted {
        operation work;
        std::uint32_t weight;
    };
    static constexpr weighted operations[] = {
        {&control::create, 30},   {&control::remove, 28}, {&control::read, 20},
        {&control::bind, 8},      {&control::unbind, 8},  {&control::look_up, 4},
        {&control::set_level, 4}, {&control::misuse, 4},  {&control::dump, 1},
    };
    std::uint32_t total = 0;
    for (const weighted &each : operations) {
        total += each.weight;
    }
    std::uint32_t chosen = below(total);
    const weighted *next = operations;
    while (chosen >= next->weight) {
        chosen -= next->weight;
        ++next;
    }
    if (below(4) == 0) {
        plan_a_fault();
    }
    (this->*next->work)();
    ++operations_;
    expect_consistent();
}

/** Any call, or a call by name; sooner or later, once, a few times or for good. */
void control::plan_a_fault()
{
    const olv_sim::fault plan{.skip = below(12),
                              .count = below(8) == 0 ? olv_sim::fault::forever : 1 + below(2)};
    if (below(2) == 0) {
        olv_sim::faults::set_any(plan);
        return;
    }
    const auto which = static_cast<olv_sim::call>(below(olv_sim::call_count));
    olv_sim::fault of_one = plan;
    of_one.skip = below(2);
    (void)olv_sim::faults::set(which, of_one); // Calls that cannot fail are left as they are.
}

void control::note(std::uint32_t status, const std::set<std::uint32_t> &allowed, const char *what)
{
    olv_sim::faults::clear_all(); // What follows is bookkeeping.
    ++statuses_[status];
    failures_ += status != 0 ? 1 : 0;
    require(status == 0 || status == lock_failed || allowed.contains(status),
            std::string(what) + ": status " + hexadecimal(status));
    release_lock();
}

/** A release that failed leaves the lock held. Another control's fault may hit this one, too. */
void control::release_lock() const
{
    while (olv_sim::semaphores::held(module_->lock) != 0) {
        (void)hyx_sem_post(module_->lock);
    }
}

void control::return_id(std::uint32_t id) const
{
    std::uint32_t space = 0;
    while (hyx_rsrc_find(module_->rte_handle, 0, responder_namespace, &space) != 0) {
    }
    while (hyx_rsrc_free(space, id, 1) != 0) {
        require(processor_.is_allocated(responder_namespace, id), "an ID is gone");
    }
}

/** A creation that failed tried to return its ID, which may have failed as well. */
void control::return_lost_ids(std::size_t expected)
{
    if (processor_.allocated(responder_namespace) == expected) {
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

void control::create()
{
    const olv_twamp_responder_info info{static_cast<std::uint16_t>(random_()),
                                        static_cast<std::uint16_t>(random_())};
    twamp_responder_handle *created = nullptr;
    const std::uint32_t status = olv_twamp_responder_create(module_, &info, &created);
    note(status, {0x30012, 0x3001D, 0x3002C, 0x30040, 0x201FF}, "create");
    if (created == nullptr) {
        require(status != 0, "a creation without a record");
        return_lost_ids(live_.size());
        return;
    }
    require(status == 0 || status == lock_failed, "a record of a creation that failed");
    live_.push_back(created);
    const auto words = processor_.state(created->responder_id);
    require(processor_.tree(responder_tree)->lookup(created->responder_id).has_value(), "no entry");
    require(word_of(words, 1) == (info.param_b | 0x80000000), "another state entry");
}

void control::forget(std::size_t position)
{
    hyx_nvm_free(live_[position]);
    live_[position] = live_.back();
    live_.pop_back();
}

void control::remove()
{
    if (live_.size() <= staying_responders) {
        return;
    }
    const std::size_t position =
        staying_responders + below(static_cast<std::uint32_t>(live_.size() - staying_responders));
    const std::uint32_t id = live_[position]->responder_id;
    const std::uint32_t status = olv_twamp_responder_delete(module_, live_[position]);
    note(status, {0x30040, 0x3001E, 0x3002C, 0x201FF}, "delete");
    if (processor_.tree(responder_tree)->lookup(id)) {
        require(status != 0, "an entry after a deletion");
        return;
    }
    const bool id_is_kept = processor_.is_allocated(responder_namespace, id);
    require(id_is_kept ? status == 0x3001E || status == lock_failed : status != 0x3001E,
            "the ID after a deletion");
    if (id_is_kept) {
        return_id(id);
    }
    forget(position);
}

void control::read()
{
    twamp_responder_handle *responder = live_[below(static_cast<std::uint32_t>(live_.size()))];
    olv_twamp_responder_stats stats{};
    olv_twamp_global_stats global{};
    switch (below(4)) {
    case 0:
        note(olv_twamp_responder_stats_get(module_, responder, &stats), {0x3002B}, "statistics");
        break;
    case 1:
        note(olv_twamp_global_stats_get(module_, &global), {0x3002B}, "global statistics");
        break;
    case 2:
        note(olv_twamp_responder_stats_print(module_, responder), {}, "print of statistics");
        break;
    default:
        note(olv_twamp_global_stats_print(module_), {}, "print of global statistics");
        break;
    }
}

void control::bind()
{
    const std::uint32_t key = 2 + below(bind_keys);
    const olv_bind_info info = olv_sim::make_bind_info(
        module_, below(2) == 0 ? framework_.ipv4_module() : framework_.ipv6_module(), &key);
    note(olv_twamp_custom_bind(framework_.system(), &info), {0x3000D, 0x30012, 0x301FF, 0x30040}, "bind");
    if (processor_.tree(bind_tree)->lookup(key)) {
        bound_.insert(key);
    }
}

void control::unbind()
{
    const std::uint32_t key = 2 + below(bind_keys);
    const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &key);
    note(olv_twamp_custom_unbind(framework_.system(), &info), {0x3000D, 0x30012, 0x30041}, "unbind");
    if (!processor_.tree(bind_tree)->lookup(key)) {
        bound_.erase(key);
    }
}

void control::look_up()
{
    std::uint32_t imc = 0;
    const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv6_module(), &staying_key);
    const std::uint32_t status = olv_twamp_get_imc(module_, &info, &imc);
    note(status, {}, "inter-module call");
    require(status != 0 || imc != 0, "no tree function");
    note(olv_twamp_service_function_update(module_), {0x201FF}, "service-function update");
}

void control::dump()
{
    note(olv_twamp_tables_dump(module_, 1 + below(3)), {0x3007E}, "dump");
}

void control::set_level()
{
    constexpr std::uint32_t levels[] = {0, 1, 3, 7, 15, 2};
    note(olv_twamp_sys_log(module_, levels[below(6)]), {15}, "log level");
}

/** What has to be refused without a trace of it in the platform. */
void control::misuse()
{
    olv_module_handle foreign = *module_;
    foreign.magic = below(0x10000);
    twamp_responder_handle forged{1, module_, 0x43215679, {0, 0}};
    twamp_responder_handle *slot = nullptr;
    note(olv_twamp_init(module_), {}, "second init");
    note(olv_twamp_shutdown(&foreign), {1}, "shutdown of a foreign record");
    note(olv_twamp_responder_delete(module_, &forged), {1}, "delete of a forged responder");
    note(olv_twamp_responder_delete(&foreign, live_.front()), {1}, "delete by a foreign record");
    note(olv_twamp_responder_create(module_, nullptr, &slot), {0x30008}, "create of nothing");
    note(olv_twamp_custom_bind(framework_.system(), nullptr), {8}, "bind of nothing");
    note(olv_twamp_tables_dump(module_, 4), {0x30008}, "dump of no group");
}

void control::expect_consistent() const
{
    require(processor_.allocated(responder_namespace) == live_.size(), "IDs and responders differ");
    require(processor_.tree(responder_tree)->size() == live_.size(), "entries and responders differ");
    require(processor_.tree(bind_tree)->size() == bound_.size() + 1, "binds differ");
    require(olv_twamp_valid_module_handle(module_) == 1, "the module is not valid");
}

olv_twamp_global_stats control::global_statistics() const
{
    olv_twamp_global_stats stats{};
    require(olv_twamp_global_stats_get(module_, &stats) == 0, "the global statistics cannot be read");
    return stats;
}

void control::expect_staying_counters() const
{
    for (std::size_t index = 0; index < staying_responders; ++index) {
        olv_twamp_responder_stats stats{};
        require(olv_twamp_responder_stats_get(module_, live_[index], &stats) == 0, "counters cannot be read");
        require(stats.received > 0, "a staying responder has seen no packet");
        require(stats.received == stats.transmitted + stats.drop_length_check + stats.drop_max_sessions,
                "received is not transmitted and dropped");
    }
}

void control::finish()
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

} // namespace olv_soak
