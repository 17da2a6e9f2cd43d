#include "platform_model.hpp"

#include <algorithm>

namespace olv_fuzz {
namespace {

/** Namespace handles: the processor's and, from 1, the namespace's place in its program. */
constexpr std::uint32_t namespace_bits = 8;
constexpr std::uint32_t responder_place = 1;
constexpr std::uint32_t session_place = 2;

} // namespace

bool fault_oracle::progress::fires()
{
    const std::uint64_t number = calls++;
    return number >= plan.skip && (plan.count == olv_sim::fault::forever || number - plan.skip < plan.count);
}

void fault_oracle::clear()
{
    single_.clear();
    any_.reset();
}

std::optional<std::uint32_t> fault_oracle::next(call which)
{
    const bool any_fires = which != call::olv_lttng_fn_ptr_get && any_ && any_->fires();
    const auto own = single_.find(which);
    if (own != single_.end() && own->second.fires()) {
        return own->second.plan.code;
    }
    return any_fires ? std::optional{any_->plan.code} : std::nullopt;
}

bool listing_order::operator()(const model_key &left, const model_key &right) const
{
    const auto rank = [](const model_key &key) { return key.first == 0 ? 0 : key.first == 24 ? 1 : 2; };
    return std::pair{rank(left), left} < std::pair{rank(right), right};
}

platform_model::processor *platform_model::find(std::uint32_t rte)
{
    const auto found = std::find_if(processors.begin(), processors.end(),
                                    [&](const processor &one) { return one.rte == rte; });
    if (found == processors.end()) {
        ++violations;
        return nullptr;
    }
    return &*found;
}

platform_model::processor *platform_model::of_namespace(std::uint32_t handle)
{
    const auto found = std::find_if(processors.begin(), processors.end(), [&](const processor &one) {
        return handle == (one.rte << namespace_bits | responder_place);
    });
    return found == processors.end() ? nullptr : &*found;
}

std::uint32_t platform_model::sem_wait(std::uint32_t lock)
{
    return answer(call::olv_sys_sem_lock_wait, [&]() -> std::uint32_t {
        if (!semaphores.contains(lock)) {
            ++violations;
            return olv_sim::rte_invalid_semaphore;
        }
        held.insert(lock);
        return 0;
    });
}

std::uint32_t platform_model::sem_post(std::uint32_t lock)
{
    return answer(call::hyx_sem_post, [&]() -> std::uint32_t {
        held.erase(lock);
        return 0;
    });
}

std::uint32_t platform_model::calloc()
{
    if (faults.next(call::hyx_nvm_calloc)) {
        return no_block;
    }
    blocks.insert(++last_block_);
    return last_block_;
}

void platform_model::free(std::uint32_t block)
{
    violations += blocks.erase(block) == 0 ? 1 : 0;
}

std::uint32_t platform_model::rsrc_find(std::uint32_t rte, const std::string &name, std::uint32_t &handle)
{
    return answer(call::hyx_rsrc_find, [&]() -> std::uint32_t {
        const processor *owner = find(rte);
        if (owner == nullptr) {
            return olv_sim::rte_invalid_instance;
        }
        if (name == "twamp_responder") {
            handle = rte << namespace_bits | responder_place;
        } else if (name == "twamp_reflector_session" && owner->description.session_namespace) {
            handle = rte << namespace_bits | session_place;
        } else {
            return olv_sim::rte_no_such_namespace;
        }
        return 0;
    });
}

std::uint32_t platform_model::rsrc_allocate(std::uint32_t handle, std::uint32_t &id)
{
    return answer(call::hyx_rsrc_allocate, [&]() -> std::uint32_t {
        processor *owner = of_namespace(handle);
        if (owner->free_ids.empty()) {
            return olv_sim::rte_namespace_exhausted;
        }
        id = owner->free_ids.front();
        owner->free_ids.pop_front();
        owner->allocated.insert(id);
        return 0;
    });
}

std::uint32_t platform_model::rsrc_free(std::uint32_t handle, std::uint32_t id)
{
    return answer(call::hyx_rsrc_free, [&]() -> std::uint32_t {
        processor *owner = of_namespace(handle);
        if (owner->allocated.erase(id) == 0) {
            ++violations;
            return olv_sim::rte_resource_not_allocated;
        }
        owner->free_ids.push_back(id);
        return 0;
    });
}

std::uint32_t platform_model::symbol_id(std::uint32_t rte, const std::string &name, std::uint32_t &id)
{
    return answer(call::hyx_ptn_symbol_get_id, [&]() -> std::uint32_t {
        const processor *owner = find(rte);
        if (owner == nullptr) {
            return olv_sim::rte_invalid_instance;
        }
        const std::map<std::string, std::uint32_t> ids{
            {"olv_twamp.twamp_to_ip_direct_imc", 0x101},
            {"olv_twamp.twamp_to_ipv6_indirect_imc", 0x102},
            {"olv_twamp.twamp_lli_processing", owner->description.lli_tree_id},
            {"olv_twamp.twamp_responder_lookup", 0x104},
            {"olv_twamp.twamp_bind_to_next_module", owner->description.bind_tree ? 0x105 : 0}};
        id = ids.at(name);
        return id == 0 ? std::uint32_t{olv_sim::rte_no_such_tree} : 0;
    });
}

std::uint32_t platform_model::timer(std::uint32_t rte, std::uint64_t &ticks)
{
    return answer(call::hyx_timer_get_timestamp, [&]() -> std::uint32_t {
        const processor *owner = find(rte);
        if (owner == nullptr) {
            return olv_sim::rte_invalid_instance;
        }
        ticks = owner->timer;
        return 0;
    });
}

std::uint32_t platform_model::state_set(std::uint32_t rte, std::uint32_t id, const model_bytes &bytes)
{
    return answer_on_state(call::hyx_se_state_set, rte, id, bytes.size(),
                           [&](model_bytes &entry) { std::copy(bytes.begin(), bytes.end(), entry.begin()); });
}

std::uint32_t platform_model::state_get(std::uint32_t rte, std::uint32_t id, std::size_t length,
                                        model_bytes &bytes)
{
    return answer_on_state(call::hyx_se_state_get, rte, id, length, [&](const model_bytes &entry) {
        bytes.assign(entry.begin(), entry.begin() + static_cast<std::ptrdiff_t>(length));
    });
}

std::uint32_t platform_model::ptn_new(model_pattern &pattern)
{
    return answer(call::olv_ptn_new, [&]() -> std::uint32_t {
        pattern = {.known = true};
        ++patterns;
        return 0;
    });
}

std::uint32_t platform_model::ptn_extend(model_pattern &pattern, std::uint32_t value, std::uint32_t bits)
{
    return answer(call::olv_ptn_extend, [&]() -> std::uint32_t {
        pattern.bits = bits;
        pattern.value = bits == 32 ? value : value & ((1u << bits) - 1);
        return 0;
    });
}

void platform_model::ptn_free(model_pattern &pattern)
{
    pattern.known = false;
    --patterns;
}

std::uint32_t platform_model::ptn_parse(const model_pattern &pattern, std::uint32_t &value)
{
    return answer(call::olv_ptn_parse, [&]() -> std::uint32_t {
        if (!pattern.known) {
            ++violations;
            return olv_sim::framework_invalid_pattern;
        }
        value = pattern.value;
        return 0;
    });
}

std::uint32_t platform_model::learn(std::uint32_t rte, std::uint32_t tree, const model_pattern &pattern,
                                    const model_entry &entry)
{
    return answer_on_tree(call::hyx_ptn_learn, rte, tree, [&](model_tree &entries) -> std::uint32_t {
        const bool added = entries.emplace(model_key{pattern.bits, pattern.value}, entry).second;
        return added ? 0 : std::uint32_t{olv_sim::rte_duplicate_entry};
    });
}

std::uint32_t platform_model::unlearn(std::uint32_t rte, std::uint32_t tree, const model_pattern &pattern)
{
    return answer_on_tree(call::hyx_ptn_unlearn, rte, tree, [&](model_tree &entries) -> std::uint32_t {
        const bool removed = entries.erase(model_key{pattern.bits, pattern.value}) != 0;
        return removed ? 0 : std::uint32_t{olv_sim::rte_no_such_entry};
    });
}

std::uint32_t platform_model::list(std::uint32_t rte, std::uint32_t tree,
                                   const std::function<void(const model_key &, const model_entry &)> &show)
{
    return answer_on_tree(call::hyx_ptn_list_ptns, rte, tree, [&](const model_tree &entries) -> std::uint32_t {
        for (const auto &[key, entry] : entries) {
            show(key, entry);
        }
        return 0;
    });
}

} // namespace olv_fuzz
