/**
 * @file platform_model.hpp
 * The platform as the library's model sees it: small, and nothing shared with the software platform but names
 * and numbers. Every function is one platform call; a fault plan is asked first.
 */
#ifndef OLV_FUZZ_PLATFORM_MODEL_HPP
#define OLV_FUZZ_PLATFORM_MODEL_HPP

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/statuses.hpp"

namespace olv_fuzz {

using olv_sim::call;

/** Answers "does the next call of X fail?" */
class fault_oracle {
  public:
    void plan(call which, const olv_sim::fault &fault) { single_[which] = {fault, 0}; }
    void plan_any(const olv_sim::fault &fault) { any_ = progress{fault, 0}; }
    void clear();
    /** Count the call. @return The code that it fails with. */
    std::optional<std::uint32_t> next(call which);

  private:
    struct progress {
        olv_sim::fault plan;
        std::uint64_t calls = 0;

        bool fires();
    };

    std::map<call, progress> single_;
    std::optional<progress> any_;
};

/** What a processor of the tests is made of. */
struct processor_description {
    std::uint32_t responders = 4;
    bool session_namespace = true;
    bool responder_state = true;
    bool responder_tree_has_entries = true;
    bool bind_tree = true;
    bool global_statistics = true;
    std::uint32_t lli_tree_id = 0x103;
};

/** Bits, value; 0 bits for the entry without a key. */
using model_key = std::pair<std::uint32_t, std::uint32_t>;

struct model_entry {
    std::array<std::uint32_t, 3> action{};
    std::uint32_t pattern_word = 0;
};

/** In the order of a listing: no key, 24 bits, the rest. */
struct listing_order {
    bool operator()(const model_key &left, const model_key &right) const;
};

using model_tree = std::map<model_key, model_entry, listing_order>;
using model_bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t no_block = 0;

/** A pattern of the framework; what a record refers to. */
struct model_pattern {
    bool known = false; ///< Made and not freed.
    std::uint32_t bits = 0;
    std::uint32_t value = 0;
};

class platform_model {
  public:
    struct processor {
        processor_description description;
        std::uint32_t rte = 0;
        std::uint64_t timer = 0;
        std::deque<std::uint32_t> free_ids{};
        std::set<std::uint32_t> allocated{};
        std::map<std::uint32_t, model_tree> trees{};   ///< By tree ID.
        std::map<std::uint32_t, model_bytes> states{}; ///< By namespace ID.
    };

    fault_oracle faults;
    std::vector<processor> processors;
    std::set<std::uint32_t> semaphores;
    std::set<std::uint32_t> held;
    std::set<std::uint32_t> blocks; ///< Live ones.
    std::uint32_t violations = 0;
    std::uint32_t patterns = 0;

    std::uint32_t sem_wait(std::uint32_t lock);
    std::uint32_t sem_post(std::uint32_t lock);
    std::uint32_t calloc();
    void free(std::uint32_t block);
    std::uint32_t rsrc_find(std::uint32_t rte, const std::string &name, std::uint32_t &handle);
    std::uint32_t rsrc_allocate(std::uint32_t handle, std::uint32_t &id);
    std::uint32_t rsrc_free(std::uint32_t handle, std::uint32_t id);
    std::uint32_t symbol_id(std::uint32_t rte, const std::string &name, std::uint32_t &id);
    std::uint32_t timer(std::uint32_t rte, std::uint64_t &ticks);
    std::uint32_t state_set(std::uint32_t rte, std::uint32_t id, const model_bytes &bytes);
    std::uint32_t state_get(std::uint32_t rte, std::uint32_t id, std::size_t length, model_bytes &bytes);
    std::uint32_t ptn_new(model_pattern &pattern);
    std::uint32_t ptn_extend(model_pattern &pattern, std::uint32_t value, std::uint32_t bits);
    void ptn_free(model_pattern &pattern);
    std::uint32_t ptn_parse(const model_pattern &pattern, std::uint32_t &value);
    std::uint32_t learn(std::uint32_t rte, std::uint32_t tree, const model_pattern &pattern,
                        const model_entry &entry);
    std::uint32_t unlearn(std::uint32_t rte, std::uint32_t tree, const model_pattern &pattern);
    std::uint32_t list(std::uint32_t rte, std::uint32_t tree,
                       const std::function<void(const model_key &, const model_entry &)> &show);

    /** NULL, and a breach of the contract, where no processor has the handle. */
    processor *find(std::uint32_t rte);
    [[nodiscard]] processor *of_namespace(std::uint32_t handle);

  private:
    /** The status of a call: the fault's, or what the work answers. */
    template <typename Work> std::uint32_t answer(call which, Work &&work)
    {
        const std::optional<std::uint32_t> code = faults.next(which);
        return code ? *code : work();
    }

    /** The status of a call on a tree: what the work makes of the tree, if it is there. */
    template <typename Work>
    std::uint32_t answer_on_tree(call which, std::uint32_t rte, std::uint32_t tree, Work &&work)
    {
        return answer(which, [&]() -> std::uint32_t {
            processor *owner = find(rte);
            if (owner == nullptr) {
                return olv_sim::rte_invalid_instance;
            }
            const auto found = owner->trees.find(tree);
            return found == owner->trees.end() ? olv_sim::rte_no_such_tree : work(found->second);
        });
    }

    /** The same for a state entry that has so many bytes. */
    template <typename Work>
    std::uint32_t answer_on_state(call which, std::uint32_t rte, std::uint32_t id, std::size_t length,
                                  Work &&work)
    {
        return answer(which, [&]() -> std::uint32_t {
            processor *owner = find(rte);
            if (owner == nullptr) {
                return olv_sim::rte_invalid_instance;
            }
            const auto entry = owner->states.find(id);
            if (entry == owner->states.end()) {
                return olv_sim::rte_no_such_state;
            }
            if (length > entry->second.size()) {
                return olv_sim::rte_state_length;
            }
            work(entry->second);
            return 0;
        });
    }

    std::uint32_t last_block_ = no_block;
};

} // namespace olv_fuzz

#endif
