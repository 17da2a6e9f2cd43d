#include "populated_module.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "olv_sim/resources.hpp"

namespace olv_bench {

namespace {

/** A deleted responder's ID is not given again at once. */
constexpr std::uint32_t spare_ids = populated_module::largest_group;
constexpr std::uint32_t keys_together = 1024; ///< Entries of at least so many keys share memory.

void run_one(const operation &operation, measured_module &module)
{
    if (const std::uint32_t status = operation.run(module); status != OLV_STATUS_OK) {
        throw std::runtime_error(std::string(operation.name) + ": status " + std::to_string(status));
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
    : responders_(responders), module_(responders + spare_ids)
{
    const memory_growth before = in_use(module_.processor);
    populate();
    const memory_growth after = in_use(module_.processor);
    memory_ = {.library_bytes = after.library_bytes - before.library_bytes,
               .platform_bytes = after.platform_bytes - before.platform_bytes};
    reach_bind_tree();
}

void populated_module::populate()
{
    for (std::uint32_t index = 0; index < responders_; ++index) {
        module_.select(index);
        run_one(library::create, module_);
    }
}

void populated_module::reach_bind_tree()
{
    for (std::uint32_t key = 0; key < responders_; key += keys_together) {
        module_.select(key);
        run_one(library::bind, module_);
        run_one(library::unbind, module_);
    }
}

void populated_module::choose(visiting_order order)
{
    keep_handles();
    group_ = std::min<std::size_t>(responders_, largest_group);
    if (order == visiting_order::in_turn || group_ == responders_) {
        choose_in_turn();
    } else {
        choose_at_random();
    }
    for (std::size_t index = 0; index < group_; ++index) {
        at_hand_[index] = module_.responders[places_[index]];
    }
}

/** Of responders that were created in the place of others. */
void populated_module::keep_handles()
{
    for (std::size_t index = 0; index < group_; ++index) {
        module_.responders[places_[index]] = at_hand_[index];
    }
}

void populated_module::choose_in_turn()
{
    for (std::size_t index = 0; index < group_; ++index) {
        places_[index] = next_;
        next_ = next_ + 1 == responders_ ? 0 : next_ + 1;
    }
}

void populated_module::choose_at_random()
{
    std::uniform_int_distribution<std::uint32_t> anywhere{0, responders_ - 1};
    const auto first = places_.begin();
    for (auto place = first; place != first + static_cast<std::ptrdiff_t>(group_); ++place) {
        do {
            *place = anywhere(random_);
        } while (std::find(first, place, *place) != place);
    }
}

void populated_module::run(const operation &operation)
{
    for (std::size_t index = 0; index < group_; ++index) {
        module_.slot = &at_hand_[index];
        module_.bind_key = places_[index];
        run_one(operation, module_);
    }
}

} // namespace olv_bench
