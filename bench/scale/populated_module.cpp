#include "populated_module.hpp"
#include "hyx.h"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"

#include <algorithm>
#include <stdexcept>

namespace olv_bench {

namespace {

constexpr std::uint32_t spare_ids = populated_module::largest_group;
constexpr std::uint32_t keys_together = 1024; ///< Entries of so many keys, at least, share memory.

void require_ok(std::uint32_t status, const char *what)
{
    if (status != OLV_STATUS_OK) {
        throw std::runtime_error(std::string(what) + ": status " + std::to_string(status));
    }
}

memory_growth in_use(const olv_sim::processor &processor)
{
    const olv_sim::memory::usage blocks = olv_sim::memory::in_use();
    return {.library_bytes = blocks.live_bytes,
            .platform_bytes = processor.memory_bytes() + blocks.mapped_bytes};
}

} // namespace

populated_module::populated_module(std::uint32_t responders)
    : processor_(olv_sim::classifier_program::twamp(responders + spare_ids)),
      module_(framework_.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor_})),
      handles_(responders),
      group_(std::min<std::size_t>(responders, largest_group))
{
    require_ok(olv_twamp_init(module_), "init");
    const memory_growth before = in_use(processor_);
    for (twamp_responder_handle *&slot : handles_) {
        create(slot);
    }
    const memory_growth after = in_use(processor_);
    memory_ = {.library_bytes = after.library_bytes - before.library_bytes,
               .platform_bytes = after.platform_bytes - before.platform_bytes};
    reach_bind_tree();
}

populated_module::~populated_module()
{
    (void)olv_twamp_shutdown(module_); // the process is about to end
}

void populated_module::create(twamp_responder_handle *&slot)
{
    static constexpr olv_twamp_responder_info info{1, 2};
    require_ok(olv_twamp_responder_create(module_, &info, &slot), "create");
}

void populated_module::reach_bind_tree()
{
    for (std::uint32_t key = 0; key < responders(); key += keys_together) {
        const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &key);
        require_ok(olv_twamp_custom_bind(framework_.system(), &info), "bind");
        require_ok(olv_twamp_custom_unbind(framework_.system(), &info), "unbind");
    }
}

void populated_module::choose(visiting_order order)
{
    if (order == visiting_order::in_turn || group_ == handles_.size()) {
        choose_in_turn();
    } else {
        choose_at_random();
    }
    for (std::size_t index = 0; index < group_; ++index) {
        at_hand_[index] = handles_[places_[index]];
    }
}

void populated_module::choose_in_turn()
{
    for (std::size_t index = 0; index < group_; ++index) {
        places_[index] = next_;
        next_ = next_ + 1 == responders() ? 0 : next_ + 1;
    }
}

void populated_module::choose_at_random()
{
    std::uniform_int_distribution<std::uint32_t> anywhere{0, responders() - 1};
    const auto first = places_.begin();
    for (auto place = first; place != first + static_cast<std::ptrdiff_t>(group_); ++place) {
        do {
            *place = anywhere(random_);
        } while (std::find(first, place, *place) != place);
    }
}

void populated_module::read_chosen()
{
    olv_twamp_responder_stats stats{};
    for (std::size_t index = 0; index < group_; ++index) {
        require_ok(olv_twamp_responder_stats_get(module_, at_hand_[index], &stats), "read");
    }
}

void populated_module::delete_chosen()
{
    for (std::size_t index = 0; index < group_; ++index) {
        require_ok(olv_twamp_responder_delete(module_, at_hand_[index]), "delete");
        hyx_nvm_free(at_hand_[index]);
    }
}

void populated_module::create_chosen()
{
    for (std::size_t index = 0; index < group_; ++index) {
        create(at_hand_[index]);
    }
    for (std::size_t index = 0; index < group_; ++index) {
        handles_[places_[index]] = at_hand_[index];
    }
}

void populated_module::bind_chosen()
{
    for (std::size_t index = 0; index < group_; ++index) {
        const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &places_[index]);
        require_ok(olv_twamp_custom_bind(framework_.system(), &info), "bind");
    }
}

void populated_module::unbind_chosen()
{
    for (std::size_t index = 0; index < group_; ++index) {
        const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &places_[index]);
        require_ok(olv_twamp_custom_unbind(framework_.system(), &info), "unbind");
    }
}

void populated_module::look_up()
{
    static constexpr std::uint32_t key = 1;
    const olv_bind_info info = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &key);
    for (std::size_t index = 0; index < group_; ++index) {
        std::uint32_t imc = 0;
        require_ok(olv_twamp_get_imc(module_, &info, &imc), "look up");
    }
}

} // namespace olv_bench
