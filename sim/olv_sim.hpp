/**
 * @file olv_sim.hpp
 * The software platform: the framework (`olv_*`) and the runtime environment (`hyx_*`) in a process of a
 * workstation, with levers that the real ones do not have.
 *
 * The C symbols of olv.h and hyx.h are what a module uses. This header is for whoever drives the platform:
 * the control application, the software fast path and the tests.
 *
 *     olv_sim::processor processor{olv_sim::classifier_program::twamp()};
 *     olv_sim::framework framework;
 *     olv_module_handle *module = framework.create_module({.module_id = 7, .processor = &processor});
 *     olv_twamp_init(module);
 *
 * Several processors and frameworks can live in one process. Memory, semaphores, patterns, the tracer, the
 * fault plan and the call record belong to the process. Everything here may be used from several threads,
 * except where a comment says otherwise.
 */
#ifndef OLV_SIM_HPP
#define OLV_SIM_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hyx.h"
#include "olv.h"

namespace olv_sim {

// ---------------------------------------------------------------------------------------------------------
// Platform calls, faults, call record
// ---------------------------------------------------------------------------------------------------------

/** What a platform call is for; a call record keeps the kinds it is asked for. */
enum class call_kind : std::uint8_t {
    service = 1,    ///< Does or changes something: locks, memory, patterns, resources, trees, state, time.
    text = 2,       ///< Looks up a text: status texts, tree names.
    print = 4,      ///< Prints.
    trace = 8,      ///< Finds or calls the tracer.
    byte_order = 16 ///< Converts.
};

/**
 * Every platform call: name, kind, and whether it can be told to fail.
 * `entry_point_lookup` is the lookup that the framework's IPv4 and IPv6 modules put into
 * moduleMgrCpuServiceFn. olv_lttng_fn_ptr_get fails by leaving the slot untouched, hyx_nvm_calloc by
 * returning NULL, every other one by returning the fault's code.
 */
#define OLV_SIM_CALLS(X)                                                                                       \
    X(olv_sys_sem_lock_wait, service, true)                                                                    \
    X(olv_sys_status_get, text, false)                                                                         \
    X(olv_module_service_function_register, service, true)                                                     \
    X(olv_module_service_function_update, service, true)                                                       \
    X(olv_ptn_new, service, true)                                                                              \
    X(olv_ptn_extend, service, true)                                                                           \
    X(olv_ptn_free, service, false)                                                                            \
    X(olv_ptn_parse, service, true)                                                                            \
    X(olv_ptn_print, print, false)                                                                             \
    X(olv_ptn_action_print, print, false)                                                                      \
    X(olv_byte_string_print, print, false)                                                                     \
    X(olv_sif_fps_map, text, false)                                                                            \
    X(olv_lttng_fn_ptr_get, trace, true)                                                                       \
    X(olv_lttng_trace_sif_force_error, trace, false)                                                           \
    X(hyx_nvm_calloc, service, true)                                                                           \
    X(hyx_nvm_free, service, false)                                                                            \
    X(hyx_sem_post, service, true)                                                                             \
    X(hyx_status_get, text, false)                                                                             \
    X(hyx_gettime, service, false)                                                                             \
    X(hyx_timer_get_timestamp, service, true)                                                                  \
    X(hyx_rsrc_find, service, true)                                                                            \
    X(hyx_rsrc_allocate, service, true)                                                                        \
    X(hyx_rsrc_free, service, true)                                                                            \
    X(hyx_ptn_symbol_get_id, service, true)                                                                    \
    X(hyx_ptn_learn, service, true)                                                                            \
    X(hyx_ptn_unlearn, service, true)                                                                          \
    X(hyx_ptn_list_ptns, service, true)                                                                        \
    X(hyx_se_state_set, service, true)                                                                         \
    X(hyx_se_state_get, service, true)                                                                         \
    X(hyx_htons, byte_order, false)                                                                            \
    X(hyx_htonl, byte_order, false)                                                                            \
    X(hyx_ntohl, byte_order, false)                                                                            \
    X(entry_point_lookup, service, true)

/** The platform calls, an enumerator for each of #OLV_SIM_CALLS in its order. */
enum class call : std::uint8_t {
#define OLV_SIM_CALL_ENUMERATOR(name, kind, can_fail) name,
    OLV_SIM_CALLS(OLV_SIM_CALL_ENUMERATOR)
#undef OLV_SIM_CALL_ENUMERATOR
};

/** How many platform calls there are. */
inline constexpr std::size_t call_count = static_cast<std::size_t>(call::entry_point_lookup) + 1;

/** The name of the C symbol, or "entry_point_lookup". */
[[nodiscard]] std::string_view call_name(call which);
/** What a call is for. */
[[nodiscard]] call_kind kind_of(call which);
/** Whether a call can be told to fail. */
[[nodiscard]] bool can_fail(call which);
/** @return Nothing when no call has that name. */
[[nodiscard]] std::optional<call> call_by_name(std::string_view name);

/** When and how a call fails. */
struct fault {
    static constexpr std::uint32_t forever = UINT32_MAX; ///< `count` of a fault that does not end.

    std::uint32_t code = 0;  ///< Returned by the call; not 0 where a status is returned.
    std::uint32_t skip = 0;  ///< Calls that succeed first.
    std::uint32_t count = 1; ///< Calls that fail then, or `forever`.
};

/** The process's fault plan. Off, a call pays one relaxed load for it and the call record together. */
namespace faults {

/** Plan a fault for one call, replacing the one it had. @return false when the call cannot fail. */
bool set(call which, const fault &plan);
/**
 * Plan a fault for whatever call comes: calls that can fail are counted together, in the order in which
 * they are made. olv_lttng_fn_ptr_get, which comes with every message, is left out. A code of 0 stands for a
 * plausible code of the call's own. Beside it, faults of single calls stay in force.
 */
void set_any(const fault &plan);
/** A further fault beside that of set_any(), with a count of its own over the same calls. */
void add_any(const fault &plan);
/** Take one call's fault out of the plan. */
void clear(call which);
/** Take every fault out of the plan. */
void clear_all();
/** The planned fault as it was set. */
[[nodiscard]] std::optional<fault> planned(call which);
/** How often the fault of this call has fired since it was set. */
[[nodiscard]] std::uint32_t hits(call which);
/** How often the faults of set_any() and add_any() have fired since the first of them was set. */
[[nodiscard]] std::uint32_t hits_of_any();
/** How many calls the fault of set_any() has counted since it was set. */
[[nodiscard]] std::uint32_t calls_of_any();

} // namespace faults

/** A platform call that was made. */
struct recorded_call {
    call which;            ///< The call.
    std::string arguments; ///< As text, comma-separated, such as "rte=1, tree=0x101, key=0x000001/24, ...".
    std::uint32_t result;  ///< Status returned; 0 for calls that return none.
    bool injected;         ///< A fault made it fail.
};

/** The process's call record. */
namespace call_record {

/** Forget what was recorded and record calls of these kinds from now on (a sum of call_kind values). */
void start(unsigned kinds = static_cast<unsigned>(call_kind::service));
/** Record no more; what was recorded stays. */
void stop();
/** The recorded calls, in the order in which they were made. */
[[nodiscard]] std::vector<recorded_call> calls();
/** The recorded names alone, in order. */
[[nodiscard]] std::vector<std::string> names();

} // namespace call_record

/**
 * Breaches of the platform's contract by its users: double free, free of a foreign block, post without a
 * wait, use of a pattern after it was freed, a pattern extended beyond its width, unknown handles and the
 * like. The call itself returns an error where it can; the breach is also written to standard error.
 */
namespace violations {

/** The breaches so far, each as a text. */
[[nodiscard]] std::vector<std::string> list();
/** How many breaches there were. */
[[nodiscard]] std::size_t count();
/** Forget the breaches. */
void clear();
/** Write each breach to standard error when it happens (on by default). */
void set_echo(bool on);

} // namespace violations

// ---------------------------------------------------------------------------------------------------------
// RTE error codes
// ---------------------------------------------------------------------------------------------------------

/** Error codes of the software runtime environment; hyx_status_get() has a text for each. */
enum rte_status : std::uint32_t {
    rte_ok = 0,                         ///< Success.
    rte_invalid_instance = 0x101,       ///< No processor has this rte_handle.
    rte_null_pointer = 0x102,           ///< A required pointer is NULL.
    rte_invalid_semaphore = 0x103,      ///< No semaphore has this handle.
    rte_semaphore_not_held = 0x104,     ///< Post without a wait.
    rte_invalid_timer = 0x105,          ///< No timer has this number.
    rte_no_such_namespace = 0x106,      ///< No namespace has this name or handle.
    rte_namespace_exhausted = 0x107,    ///< Not so many resources left, in a row.
    rte_resource_not_allocated = 0x108, ///< Not all of the resources are allocated.
    rte_no_such_tree = 0x109,           ///< No tree has this name or ID.
    rte_invalid_pattern = 0x10A,        ///< Freed or foreign pattern, or not of the tree's key width.
    rte_duplicate_entry = 0x10B,        ///< The tree has an entry of this key.
    rte_no_such_entry = 0x10C,          ///< The tree has no entry of this key.
    rte_no_such_state = 0x10D,          ///< No state entry at this namespace ID and index.
    rte_state_length = 0x10E,           ///< Longer than the state entry, or 0.
    rte_invalid_count = 0x10F,          ///< A count that the call does not take.
    rte_injected = 0x1FF                ///< Default code of a planned fault.
};

/** Every RTE code that has a text of its own. */
[[nodiscard]] std::span<const std::uint32_t> rte_statuses();

/** Framework statuses of the software framework's own services (module number 2). */
enum framework_status : std::uint32_t {
    framework_invalid_handle = 0x20001,   ///< Not a module or system record of a framework.
    framework_null_pointer = 0x20002,     ///< A required pointer is NULL.
    framework_not_registered = 0x20003,   ///< Update or use of service functions that are not there.
    framework_invalid_width = 0x20004,    ///< Pattern or field width 0 or too large.
    framework_pattern_overflow = 0x20005, ///< Extended beyond the pattern's width.
    framework_invalid_pattern = 0x20006,  ///< Freed or foreign pattern.
    framework_no_pattern = 0x20007,       ///< No pattern left.
    framework_injected = 0x201FF          ///< Default code of a planned fault.
};

// ---------------------------------------------------------------------------------------------------------
// Semaphores, memory, patterns, console
// ---------------------------------------------------------------------------------------------------------

namespace semaphores {

/** A binary semaphore, free. @return Its handle, not 0. */
[[nodiscard]] std::uint32_t create();
/** Destroy a semaphore; its handle is unknown from then on. */
void destroy(std::uint32_t semaphore);
/** Waits not yet posted: 1 while held. */
[[nodiscard]] std::uint32_t held(std::uint32_t semaphore);

} // namespace semaphores

namespace memory {

/** Memory of hyx_nvm_calloc(). */
struct usage {
    std::size_t live_blocks;  ///< Blocks handed out and not freed.
    std::size_t live_bytes;   ///< Bytes asked for in them.
    std::size_t mapped_bytes; ///< All that was ever taken from the system; freed blocks stay mapped.
};

/** What the process has in use now. */
[[nodiscard]] usage in_use();
/** Whether this block was handed out and is not freed. */
[[nodiscard]] bool is_live(const void *block);

} // namespace memory

namespace patterns {

/** Patterns made and not yet freed. */
[[nodiscard]] std::size_t live();

} // namespace patterns

// ---------------------------------------------------------------------------------------------------------
// Tracer
// ---------------------------------------------------------------------------------------------------------

/** What a trace event tells, each kind with what it carries. */
namespace trace_details {

/** A text alone, made from a format. */
struct message {};

/** An operation of the module begins. */
struct function_entry {
    std::string operation; ///< Exported name.
};

/** An operation of the module ends. */
struct function_exit {
    std::string operation; ///< Exported name.
};

/** State memory is about to be written. */
struct state_write {
    std::uint32_t namespace_id;                     ///< Of the state entry, with the index.
    std::uint32_t index;                            ///< Of the state entry.
    std::optional<std::vector<std::uint8_t>> bytes; ///< Nothing where the caller passed NULL.
    std::uint32_t length;                           ///< In bytes.
};

/** A classifier entry was learnt. */
struct entry_learnt {
    std::string tree;                 ///< Name of its tree function.
    olv_ptn pattern;                  ///< Its pattern's record.
    olv_ptn_action action;            ///< Its action.
    std::optional<std::uint32_t> key; ///< Nothing where no pattern with a key of up to 32 bits lives.
    std::uint32_t key_width;          ///< In bits; 0 where there is no key.
};

/** A classifier entry was removed. */
struct entry_removed {
    std::string tree;                 ///< Name of its tree function.
    olv_ptn pattern;                  ///< Its pattern's record.
    olv_ptn_action action;            ///< Its action.
    std::optional<std::uint32_t> key; ///< As above.
    std::uint32_t key_width;          ///< In bits, as the caller says.
};

/** A text and trace_event::first_word. */
struct forced_error {};

/** One of them. */
using any = std::variant<message, function_entry, function_exit, state_write, entry_learnt, entry_removed,
                         forced_error>;

} // namespace trace_details

/** An event as a trace function received it. */
struct trace_event {
    static constexpr std::uint32_t forced_error = UINT32_MAX; ///< `level` of a forced error.

    std::uint32_t level;      ///< Trace level, or forced_error.
    std::uint32_t first_word; ///< Of a forced error, otherwise 0.
    const void *record;       ///< Module or system record; NULL for a forced error.
    /** Source line. */
    std::uint32_t line;
    /** Source file name. */
    std::string file;
    std::optional<std::string> format; ///< Nothing where the format was NULL.
    /** The formatted message; where the format was NULL the arguments, separated by blanks: names as they
     *  are, words as "0x%08x", key width, index and length in decimal, bytes in hexadecimal. */
    std::string text;
    std::string module{};         ///< Log name of the record; empty where it is no framework's.
    trace_details::any details{}; ///< What it tells, typed.
};

/** Where trace events go. Called by one thread at a time. */
class trace_sink {
  public:
    virtual ~trace_sink() = default;
    virtual void event(const trace_event &event) = 0; ///< Take an event.
};

namespace tracer {

/** Send events to @p sink from now on; NULL: nowhere. The sink has to live until it is replaced. */
void set_sink(trace_sink *sink);

/**
 * A sink that hands events to LTTng-UST as those of the provider olv_twamp (docs/tracing.md). Nothing of
 * LTTng-UST is in the process before the first call; from then on it stays until the process ends.
 * @throw std::runtime_error  One line: which library is missing, and what brings it.
 */
[[nodiscard]] std::unique_ptr<trace_sink> load_lttng();

} // namespace tracer

/** Writes one line an event. */
class text_trace_sink : public trace_sink {
  public:
    /** @param stream  Written to; stays the caller's. */
    explicit text_trace_sink(std::FILE *stream) : stream_(stream) {}
    void event(const trace_event &event) override; ///< Write it.

  private:
    std::FILE *stream_;
};

/** Keeps events. */
class capturing_trace_sink : public trace_sink {
  public:
    /** Keep it. */
    void event(const trace_event &event) override { events_.push_back(event); }
    /** The events kept, in the order in which they came. */
    [[nodiscard]] const std::vector<trace_event> &events() const { return events_; }
    /** Forget them. */
    void clear() { events_.clear(); }

  private:
    std::vector<trace_event> events_;
};

// ---------------------------------------------------------------------------------------------------------
// Processor: classifier program, trees, namespaces, state memory, timer
// ---------------------------------------------------------------------------------------------------------

inline constexpr std::uint32_t key_bits = 24;                   ///< Key width of every classifier tree.
inline constexpr std::uint32_t global_statistics_id = 0x7008C1; ///< Namespace ID of the statistics block.
inline constexpr std::uint32_t global_statistics_length = 128;  ///< Its bytes.
inline constexpr std::uint32_t responder_state_length = 60;     ///< Bytes of a responder's state entry.

/** What a processor provides once its program is loaded. Leave things out or rename them to try failures. */
struct classifier_program {
    /** Resources that are allocated by number. */
    struct name_space {
        std::string name;               ///< For hyx_rsrc_find().
        std::uint32_t first = 1;        ///< Value of the first resource.
        std::uint32_t capacity = 0;     ///< Resources that can be allocated at the same time.
        std::uint32_t state_length = 0; ///< Bytes of a state entry for each resource value, 0: none.
    };
    /** A function of the program. */
    struct tree_function {
        std::string name;        ///< For hyx_ptn_symbol_get_id().
        std::uint32_t id = 0;    ///< What hyx_ptn_symbol_get_id() tells.
        bool classifier = false; ///< A tree with entries, not only code.
    };

    std::vector<name_space> namespaces;        ///< What hyx_rsrc_find() finds.
    std::vector<tree_function> tree_functions; ///< What hyx_ptn_symbol_get_id() finds.
    bool global_statistics = true;             ///< The block at global_statistics_id, index 0.

    /** The TWAMP program: both namespaces, the five tree functions and the global statistics block.
     *  A responder namespace that reaches over global_statistics_id leaves that value out. */
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

/** One network processor with its runtime environment. */
class processor {
  public:
    /** A processor with its program loaded and nothing allocated. */
    explicit processor(classifier_program program);
    ~processor();
    processor(const processor &) = delete;
    processor &operator=(const processor &) = delete;

    /** The handle for every `hyx_` call to this processor, not 0. */
    [[nodiscard]] std::uint32_t rte_handle() const;

    /** NULL where the program has no such tree. The tree lives as long as the processor. */
    [[nodiscard]] classifier_tree *tree(std::string_view name) const;
    /** Add or replace an entry without a key ("*"). */
    void set_default_entry(std::string_view tree_name, const tree_action &action);
    /** Remove the entry without a key. */
    void clear_default_entry(std::string_view tree_name);

    /** The words of a state entry, empty where there is none. Constant time, no lock. They live as long as
     *  the processor. */
    [[nodiscard]] state_words state(std::uint32_t namespace_id, std::uint32_t index = 0) const;

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

/** Make hyx_gettime() return this instant; nothing: the wall clock. */
void set_wall_clock(std::optional<hyx_time> instant);

// ---------------------------------------------------------------------------------------------------------
// Framework: the module manager
// ---------------------------------------------------------------------------------------------------------

/** How a module record is made. */
struct module_options {
    std::uint32_t module_id = 0;                   ///< Below module_id_limit.
    const olv_sim::processor *processor = nullptr; ///< Its rte_handle goes into the record; NULL: 0.
    std::string log_name = "twamp";                ///< Copied.
    std::uint32_t log_flags = 0;                   ///< Log word, see OLV_LOG_LEVEL_MASK and those below it.
    bool locked = true;                            ///< false: `lock` is 0.
    bool system = true;                            ///< false: `system` is NULL.
    std::uint16_t default_entry_point = 0;         ///< 0: none.
};

/** Entries of moduleMgrCpuServiceFn. */
inline constexpr std::uint32_t module_id_limit = 64;
/** The identifier that the software framework gives the TWAMP module. */
inline constexpr std::uint32_t module_id_twamp = 3;
/** Locations of the two ends of a bind request. */
inline constexpr std::uint32_t location_cpu = 1;
/** See location_cpu. */
inline constexpr std::uint32_t location_fast_path = 2;
/** Entry point that the lookup of the IPv4 module answers with. */
inline constexpr std::uint32_t entry_point_ipv4 = 0x00000401;
/** Entry point that the lookup of the IPv6 module answers with. */
inline constexpr std::uint32_t entry_point_ipv6 = 0x00000601;

/** The module manager: owns the system record and the module records, keeps the registered service
 *  functions, drives modules through them. While one lives, moduleMgrCpuServiceFn has the entries of the
 *  IPv4 module (1) and the IPv6 module (11). */
class framework {
  public:
    /** A framework with a system record and records of the IPv4 and the IPv6 module. */
    explicit framework(std::string system_log_name = "system");
    ~framework();
    framework(const framework &) = delete;
    framework &operator=(const framework &) = delete;

    /** The system record. */
    [[nodiscard]] olv_system_handle *system() const;
    /** The record belongs to the framework and lives as long. Its lock is created free. */
    olv_module_handle *create_module(const module_options &options);
    [[nodiscard]] olv_module_handle *ipv4_module() const; ///< The IPv4 module's, a destination of a bind.
    [[nodiscard]] olv_module_handle *ipv6_module() const; ///< The IPv6 module's, a destination of a bind.

    /** The table registered for a module; nothing when none is, or when it was withdrawn. */
    [[nodiscard]] std::optional<olv_service_function_table> registered(const olv_module_handle *module) const;
    /** The table of the last register or update call that the framework accepted, all-zero ones included. */
    [[nodiscard]] std::optional<olv_service_function_table> last_table(const olv_module_handle *module) const;

    /** Call a module's registered service function, slot 0, as the ones below call theirs.
     *  @return Its status; framework_not_registered where there is none. */
    std::uint32_t shutdown(olv_module_handle *module);
    /** Slot 5 of the request's source module. */
    std::uint32_t bind(const olv_bind_info &info);
    /** Slot 6 of the request's source module. */
    std::uint32_t unbind(const olv_bind_info &info);
    /** Slot 10. */
    std::uint32_t get_imc(olv_module_handle *module, const olv_bind_info &info, std::uint32_t *imc);
    /** Slot 16. */
    std::uint32_t set_log_level(olv_module_handle *module, std::uint32_t level);

    struct implementation;

  private:
    std::unique_ptr<implementation> implementation_;
};

/** A bind request from @p source to @p destination as the framework fills it, both on the fast path.
 *  @p bind_key has to live as long as the request. */
[[nodiscard]] olv_bind_info make_bind_info(olv_module_handle *source, olv_module_handle *destination,
                                           const std::uint32_t *bind_key);

/** Reset the process-wide levers: faults, record, violations, sink, wall clock. */
void reset_levers();

} // namespace olv_sim

#endif
