/**
 * @file processor.hpp
 * A network processor: its classifier program, trees, namespaces, state memory and timer.
 */
#ifndef OLV_SIM_PROCESSOR_HPP
#define OLV_SIM_PROCESSOR_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace olv_sim {

/** What a processor provides once its program is loaded. Leave things out or rename them to try failures. */
struct classifier_program {
    /** Resources that are allocated by number. */
    struct name_space {
        std::string name;               ///< For hyx_rsrc_find().
        std::uint32_t first = 1;        ///< Value of the first resource.
        std::uint32_t capacity = 0;     ///< Resources that can be allocated at the same time.
        std::uint32_t state_length = 0; ///< Bytes of a state entry for each resource value, 0: none.

        /** How many values there are from the first to the last, one that is left out included. */
        [[nodiscard]] std::uint32_t values() const;
    };
    /** A function of the program. */
    struct tree_function {
        std::string name;        ///< For hyx_ptn_symbol_get_id().
        std::uint32_t id = 0;    ///< What hyx_ptn_symbol_get_id() tells.
        bool classifier = false; ///< A tree with entries, not only code.
    };

    std::vector<name_space> namespaces;        ///< What hyx_rsrc_find() finds.
    std::vector<tree_function> tree_functions; ///< What hyx_ptn_symbol_get_id() finds.
    bool global_statistics = true;             ///< The module's counters, at #GLOBAL_STATS_NS_ID.

    /** The TWAMP program: both namespaces, the five tree functions and the global statistics block.
     *  A responder namespace that reaches over #GLOBAL_STATS_NS_ID leaves that value out. */
    static classifier_program twamp(std::uint32_t responders = (1u << 24) - 2, std::uint32_t sessions = 65536);
};

/** An entry's action as the fast path reads it. */
struct tree_action {
    std::uint32_t word[3]; ///< Word 0 is the return value.
};

/** A classifier tree. Lookups take no lock and see every entry either whole or not at all. */
class classifier_tree {
  public:
    virtual ~classifier_tree() = default;

    /** The entry with this key, or else the entry without a key. */
    [[nodiscard]] std::optional<tree_action> lookup(std::uint32_t key) const
    {
        tree_action action{};
        return find(key, action) ? std::optional{action} : std::nullopt;
    }
    /** The same, for each packet. @return false: there is none, @p action may have changed. */
    [[nodiscard]] virtual bool find(std::uint32_t key, tree_action &action) const = 0;
    [[nodiscard]] virtual std::size_t size() const = 0;        ///< Entries, one without a key included.
    [[nodiscard]] virtual std::uint32_t id() const = 0;        ///< The tree function's ID.
    [[nodiscard]] virtual const std::string &name() const = 0; ///< The tree function's name.
};

/** State memory words as the fast path reaches them: the bytes of the entry, in words of four, each whole.
 *  Word N holds the bytes 4N to 4N+3 in the order in which they stand in memory. */
using state_words = std::span<std::atomic<std::uint32_t>>;

struct provided_state;
class processor_observer;

/** One network processor with its runtime environment. */
class processor {
  public:
    /** A processor with its program loaded and nothing allocated. */
    explicit processor(classifier_program program);
    /** The same with state in memory that a fast path provides, see fast_path_seam.hpp.
     *  @throw std::invalid_argument  The program has no such state, or it does not fit the memory. */
    processor(classifier_program program, const provided_state &memory);
    ~processor();
    processor(const processor &) = delete;
    processor &operator=(const processor &) = delete;

    /** The handle for every `hyx_` call to this processor, not 0. */
    [[nodiscard]] std::uint32_t rte_handle() const;

    /** NULL where the program has no such tree. The tree lives as long as the processor. */
    [[nodiscard]] classifier_tree *tree(std::string_view name) const;

    /** The words of a state entry, empty where there is none. Constant time, no lock. They live as long as
     *  the processor. */
    [[nodiscard]] state_words state(std::uint32_t namespace_id, std::uint32_t index = 0) const;

    /**
     * Tell an observer of every change from now on, see fast_path_seam.hpp; first, of the entries that the
     * trees have and of the state entries that are not all zeros, except those in provided memory. One observer
     * at a time: it takes the place of the one before. NULL: nobody is told. When this returns, no call of the
     * one before is under way, nor will one come; until then it has to live.
     */
    void set_observer(processor_observer *observer);

    /** Resources of a namespace that are allocated now. */
    [[nodiscard]] std::size_t allocated(std::string_view namespace_name) const;
    /** Whether one resource of a namespace is allocated now. */
    [[nodiscard]] bool is_allocated(std::string_view namespace_name, std::uint32_t resource) const;

    /** Ticks of timer 0 in a second. */
    [[nodiscard]] std::uint64_t timer_frequency() const;
    /** Timer 0 now. Runs by itself, or stands at the value that was set. */
    [[nodiscard]] std::uint64_t timer_now() const;
    void set_timer(std::uint64_t ticks);   ///< Stop timer 0 at a value.
    void run_timer();                      ///< Let timer 0 run by itself again.
    [[nodiscard]] bool timer_runs() const; ///< Whether it runs by itself.

    /** Bytes that trees, namespaces and state memory take. */
    [[nodiscard]] std::size_t memory_bytes() const;

    struct implementation;

  private:
    std::unique_ptr<implementation> implementation_;
};

} // namespace olv_sim

#endif
