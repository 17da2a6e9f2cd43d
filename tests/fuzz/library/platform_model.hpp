/**
 * @file platform_model.hpp
 * The platform as the library's model sees it: small, and nothing shared with the software platform but names
 * and numbers. Every function is one platform call; a fault plan is asked first.
 */
#ifndef OLV_FUZZ_PLATFORM_MODEL_HPP
#define OLV_FUZZ_PLATFORM_MODEL_HPP

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "olv.h"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/statuses.hpp"

namespace olv_fuzz {

using olv_sim::call;

/** Answers "does the next call of X fail?" */
class fault_oracle {
  public:
    /** Nothing: whatever call comes. */
    void plan(std::optional<call> which, const olv_sim::fault &fault) { plans_[which] = {fault, 0}; }
    void clear() { plans_.clear(); }

    /** Count the call. @return The code that it fails with. */
    std::optional<std::uint32_t> next(call which)
    {
        const auto any = which != call::olv_lttng_fn_ptr_get ? count(std::nullopt) : std::nullopt;
        const auto own = count(which);
        return own ? own : any;
    }

  private:
    struct progress {
        olv_sim::fault plan;
        std::uint64_t calls = 0;
    };

    std::optional<std::uint32_t> count(std::optional<call> which)
    {
        const auto found = plans_.find(which);
        if (found == plans_.end()) {
            return std::nullopt;
        }
        const auto &[code, skip, times] = found->second.plan;
        const std::uint64_t number = found->second.calls++;
        const bool fires = number >= skip && (times == olv_sim::fault::forever || number - skip < times);
        return fires ? std::optional{code} : std::nullopt;
    }

    std::map<std::optional<call>, progress> plans_;
};

/** Bits, value; 0 bits for the entry without a key. */
using model_key = std::pair<std::uint32_t, std::uint32_t>;

struct model_entry {
    olv_ptn_action action{};
    std::uint32_t pattern_word = 0;
};

/** In the order of a listing: no key, 24 bits, the rest. */
struct listing_order {
    bool operator()(const model_key &left, const model_key &right) const
    {
        const auto rank = [](const model_key &key) { return key.first == 0 ? 0 : key.first == 24 ? 1 : 2; };
        return std::pair{rank(left), left} < std::pair{rank(right), right};
    }
};

using model_tree = std::map<model_key, model_entry, listing_order>;
using model_bytes = std::vector<std::uint8_t>;

/** A pattern of the framework; what a record refers to. */
struct model_pattern {
    bool known = false; ///< Made and not freed.
    model_key key{};
};

inline constexpr std::uint32_t no_block = 0;
inline constexpr std::uint32_t global_statistics = 0x7008C1;

class platform_model {
  public:
    using status = std::uint32_t;

    struct processor {
        processor(const olv_sim::classifier_program &loaded, std::uint32_t handle)
            : program(loaded), rte(handle)
        {
            const olv_sim::classifier_program::name_space &responders = program.namespaces.front();
            for (std::uint32_t id = 1; id <= responders.capacity; ++id) {
                free_ids.push_back(id);
                if (responders.state_length != 0) {
                    states[id] = model_bytes(60);
                }
            }
            if (program.global_statistics) {
                states[global_statistics] = model_bytes(128);
            }
            for (const olv_sim::classifier_program::tree_function &function : program.tree_functions) {
                if (function.classifier) {
                    trees[function.id] = {};
                }
            }
        }

        const olv_sim::classifier_program &program;
        std::uint32_t rte;
        std::uint64_t timer = 0;
        std::deque<std::uint32_t> free_ids;
        std::set<std::uint32_t> allocated;
        std::map<std::uint32_t, model_tree> trees;   ///< By tree ID.
        std::map<std::uint32_t, model_bytes> states; ///< By namespace ID.
    };

    fault_oracle faults;
    std::vector<processor> processors;
    std::set<std::uint32_t> semaphores;
    std::set<std::uint32_t> held;
    std::set<std::uint32_t> blocks; ///< Live ones.
    std::uint32_t violations = 0;
    std::uint32_t patterns = 0;

    processor *find(std::uint32_t rte)
    {
        const auto found = std::find_if(processors.begin(), processors.end(),
                                        [&](const processor &one) { return one.rte == rte; });
        return found == processors.end() ? nullptr : &*found;
    }

    status sem_wait(std::uint32_t lock)
    {
        return answer(call::olv_sys_sem_lock_wait, [&] {
            if (!semaphores.contains(lock)) {
                return breach(olv_sim::rte_invalid_semaphore);
            }
            held.insert(lock);
            return ok;
        });
    }

    status sem_post(std::uint32_t lock)
    {
        return answer(call::hyx_sem_post, [&] {
            held.erase(lock);
            return ok;
        });
    }

    std::uint32_t calloc()
    {
        if (faults.next(call::hyx_nvm_calloc)) {
            return no_block;
        }
        blocks.insert(++last_block_);
        return last_block_;
    }

    void free(std::uint32_t block) { violations += blocks.erase(block) == 0 ? 1 : 0; }

    /** A namespace's handle is the processor's and, from 1, the namespace's place in its program. */
    status rsrc_find(std::uint32_t rte, const std::string &name, std::uint32_t &handle)
    {
        return on_processor(call::hyx_rsrc_find, rte, [&](processor &owner) {
            const std::size_t place = place_of(name, owner.program.namespaces);
            handle = rte << 8 | static_cast<std::uint32_t>(place);
            return place == 0 ? status{olv_sim::rte_no_such_namespace} : ok;
        });
    }

    /** Of the responders' namespace, as the next one. */
    status rsrc_allocate(std::uint32_t handle, std::uint32_t &id)
    {
        return answer(call::hyx_rsrc_allocate, [&] {
            processor &owner = *find(handle >> 8);
            if (owner.free_ids.empty()) {
                return status{olv_sim::rte_namespace_exhausted};
            }
            id = owner.free_ids.front();
            owner.free_ids.pop_front();
            owner.allocated.insert(id);
            return ok;
        });
    }

    status rsrc_free(std::uint32_t handle, std::uint32_t id)
    {
        return answer(call::hyx_rsrc_free, [&] {
            processor &owner = *find(handle >> 8);
            if (owner.allocated.erase(id) == 0) {
                return breach(olv_sim::rte_resource_not_allocated);
            }
            owner.free_ids.push_back(id);
            return ok;
        });
    }

    status symbol_id(std::uint32_t rte, const std::string &name, std::uint32_t &id)
    {
        return on_processor(call::hyx_ptn_symbol_get_id, rte, [&](processor &owner) {
            const std::size_t place = place_of(name, owner.program.tree_functions);
            id = place == 0 ? 0 : owner.program.tree_functions[place - 1].id;
            return place == 0 ? status{olv_sim::rte_no_such_tree} : ok;
        });
    }

    status timer(std::uint32_t rte, std::uint64_t &ticks)
    {
        return on_processor(call::hyx_timer_get_timestamp, rte, [&](processor &owner) {
            ticks = owner.timer;
            return ok;
        });
    }

    status state_set(std::uint32_t rte, std::uint32_t id, const model_bytes &bytes)
    {
        return on_state(call::hyx_se_state_set, rte, id, bytes.size(),
                        [&](model_bytes &entry) { std::copy(bytes.begin(), bytes.end(), entry.begin()); });
    }

    status state_get(std::uint32_t rte, std::uint32_t id, std::size_t length, model_bytes &bytes)
    {
        return on_state(call::hyx_se_state_get, rte, id, length, [&](const model_bytes &entry) {
            bytes.assign(entry.begin(), entry.begin() + static_cast<std::ptrdiff_t>(length));
        });
    }

    status ptn_new(model_pattern &pattern)
    {
        return answer(call::olv_ptn_new, [&] {
            pattern = {.known = true};
            ++patterns;
            return ok;
        });
    }

    /** By the 24 bits of a key. */
    status ptn_extend(model_pattern &pattern, std::uint32_t value)
    {
        return answer(call::olv_ptn_extend, [&] {
            pattern.key = {24, value & 0xFFFFFF};
            return ok;
        });
    }

    void ptn_free(model_pattern &pattern)
    {
        pattern.known = false;
        --patterns;
    }

    status ptn_parse(const model_pattern &pattern, std::uint32_t &value)
    {
        return answer(call::olv_ptn_parse, [&] {
            value = pattern.key.second;
            return pattern.known ? ok : breach(olv_sim::framework_invalid_pattern);
        });
    }

    status learn(std::uint32_t rte, std::uint32_t tree, const model_key &key, const model_entry &entry)
    {
        return on_tree(call::hyx_ptn_learn, rte, tree, [&](model_tree &entries) {
            return entries.emplace(key, entry).second ? ok : status{olv_sim::rte_duplicate_entry};
        });
    }

    status unlearn(std::uint32_t rte, std::uint32_t tree, const model_key &key)
    {
        return on_tree(call::hyx_ptn_unlearn, rte, tree, [&](model_tree &entries) {
            return entries.erase(key) != 0 ? ok : status{olv_sim::rte_no_such_entry};
        });
    }

    /** @param show  Called with key and entry. */
    template <typename Show> status list(std::uint32_t rte, std::uint32_t tree, Show &&show)
    {
        return on_tree(call::hyx_ptn_list_ptns, rte, tree, [&](const model_tree &entries) {
            for (const auto &[key, entry] : entries) {
                show(key, entry);
            }
            return ok;
        });
    }

  private:
    static constexpr status ok = 0;

    /** From 1; 0: there is none of that name. */
    template <typename Named> static std::size_t place_of(const std::string &name, const Named &all)
    {
        const auto found =
            std::find_if(all.begin(), all.end(), [&](const auto &one) { return one.name == name; });
        return found == all.end() ? 0 : static_cast<std::size_t>(found - all.begin()) + 1;
    }

    /** A call that breaks the platform's contract. */
    status breach(status code)
    {
        ++violations;
        return code;
    }

    /** The status of a call: the fault's, or what the work answers. */
    template <typename Work> status answer(call which, Work &&work)
    {
        const std::optional<status> code = faults.next(which);
        return code ? *code : work();
    }

    /** The same for the work on a processor, if it is there. */
    template <typename Work> status on_processor(call which, std::uint32_t rte, Work &&work)
    {
        return answer(which, [&] {
            processor *const owner = find(rte);
            return owner == nullptr ? breach(olv_sim::rte_invalid_instance) : work(*owner);
        });
    }

    template <typename Work> status on_tree(call which, std::uint32_t rte, std::uint32_t tree, Work &&work)
    {
        return on_processor(which, rte, [&](processor &owner) {
            const auto found = owner.trees.find(tree);
            return found == owner.trees.end() ? status{olv_sim::rte_no_such_tree} : work(found->second);
        });
    }

    /** On a state entry that has so many bytes. */
    template <typename Work>
    status on_state(call which, std::uint32_t rte, std::uint32_t id, std::size_t length, Work &&work)
    {
        return on_processor(which, rte, [&](processor &owner) {
            const auto entry = owner.states.find(id);
            if (entry == owner.states.end() || length > entry->second.size()) {
                return entry == owner.states.end() ? status{olv_sim::rte_no_such_state}
                                                   : status{olv_sim::rte_state_length};
            }
            work(entry->second);
            return ok;
        });
    }

    std::uint32_t last_block_ = no_block;
};

} // namespace olv_fuzz

#endif
