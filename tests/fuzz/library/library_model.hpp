/**
 * @file library_model.hpp
 * An independent model of the module: for each exported operation the status, the console, the trace events and
 * what it changes, under any fault plan. It shares no code with the library and knows it by its interface
 * alone.
 *
 * Left out, because the interface leaves it open what happens:
 *  - init of a module without a system record when the message would be logged through that record;
 *  - valid_module_handle with a NULL module: its callers have looked;
 *  - texts for a NULL destination, source instance, request of get_imc, result word and module of dump_tables:
 * their statuses are checked, see library_run::call_with_null;
 *  - calling olv_twamp_table_entry_dump_fn directly: its context is the walk's own. The walk reaches it.
 */
#ifndef OLV_FUZZ_LIBRARY_MODEL_HPP
#define OLV_FUZZ_LIBRARY_MODEL_HPP

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "hyx.h"
#include "platform_model.hpp"

namespace olv_fuzz {

inline constexpr std::uint32_t module_magic = 0x53248791;
inline constexpr std::uint32_t context_magic = 0x18496124;
inline constexpr std::uint32_t responder_magic = 0x43215678;
inline constexpr std::uint32_t global_statistics = 0x7008C1;

/** Statuses and texts that a test can change, to see that a difference is noticed. */
struct model_constants {
    std::uint32_t lock_failed = 0x300A5;
    std::uint32_t unbind_unsupported = 0x30009;
    std::string create_failed = "TWAMP Failed to create responder";
    std::uint8_t state_byte_3 = 2;
    std::uint32_t exit_level = 9;
    bool delete_frees_id = true;
};

/** The interface leaves open what the operation would do from here on. */
struct out_of_contract : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class trace_record : std::uint8_t { none, module, system };

struct model_event {
    std::uint32_t level = 0;
    trace_record record = trace_record::module;
    std::string file;
    std::optional<std::string> format;
    std::string text;

    bool operator==(const model_event &) const = default;
};

struct model_context {
    std::uint32_t magic = 0;
    std::uint32_t block = no_block;
    std::uint32_t lli_tree = 0, ip_direct_tree = 0, ipv6_indirect_tree = 0, responder_tree = 0, bind_tree = 0;
    std::uint32_t responder_namespace = 0, session_namespace = 0;
    std::uint32_t created = 0;
};

/** A log word and a name: the system record, as far as the module reads it. */
struct model_system {
    std::uint32_t log_flags = 0;
    std::string log_name;
};

/** What the framework has registered for a module. */
enum class registration : std::uint8_t { none, by_init, by_update };

struct model_module {
    std::uint32_t address = 0; ///< Low 32 bits, as messages show it.
    std::uint32_t magic = 0;
    std::uint32_t log_flags = 0;
    std::string log_name;
    std::uint32_t lock = 0;
    model_system *system = nullptr;
    std::uint32_t rte = 0;
    int context = -1; ///< Index, -1: NULL.
    bool known_to_framework = true;
    registration registered = registration::none;
    std::uint16_t registered_lli = 0;
};

struct model_responder {
    std::uint32_t address = 0;
    std::uint32_t block = no_block;
    std::uint32_t id = 0;
    const model_module *module = nullptr;
    std::uint32_t magic = 0;
};

/** How the framework's table answers for the entry point of a module ID. */
enum class entry_point_kind : std::uint8_t { none, platform, zero, fixed, failing };

struct model_destination {
    std::uint32_t module_id = 0;
    std::uint16_t default_entry_point = 0;
    bool genuine = true; ///< Its magic is right.
};

struct model_bind_info {
    std::uint32_t type = 2, subtype = 0, path = 1, source_location = 2, destination_location = 2, key = 0;
    model_module *source = nullptr;
    const model_destination *destination = nullptr;
    bool custom = true;
};

struct responder_request {
    std::uint16_t param_a = 0;
    std::uint16_t param_b = 0;
};

struct pattern_argument {
    std::uint32_t length = 0; ///< Word 1.
    model_pattern pattern;
};

inline constexpr std::uint32_t fixed_entry_point = 0x777;
inline constexpr std::uint32_t failing_entry_point_status = 0x20042;

class library_model {
  public:
    explicit library_model(model_constants constants = {}) : constants_(std::move(constants)) {}

    platform_model platform;
    std::vector<model_context> contexts;
    std::vector<model_responder> responders;
    std::map<std::uint32_t, entry_point_kind> entry_points; ///< By module ID.
    hyx_time wall_clock{};
    std::int64_t day_seconds = 0;
    std::int64_t day_microseconds = 0;

    // What the operation in progress has shown.
    std::string console;
    std::vector<model_event> events;

    // The operations. NULL stands for NULL.
    std::uint32_t valid_module_handle(const model_module &module) const;
    std::uint32_t init(model_module *module);
    std::uint32_t shutdown(model_module *module);
    std::uint32_t service_function_update(model_module *module);
    std::uint32_t sys_log(model_module *module, std::uint32_t level);
    std::uint32_t map_sys_log(model_module *module, std::uint32_t level, std::uint32_t &mapped);
    std::uint32_t responder_create(model_module *module, const responder_request *info, int *slot);
    std::uint32_t responder_delete(model_module *module, int responder);
    std::uint32_t responder_stats_get(model_module *module, int responder, std::array<std::uint32_t, 5> *stats);
    std::uint32_t responder_stats_print(model_module *module, int responder);
    std::uint32_t custom_bind(const model_system *system, const model_bind_info *info);
    std::uint32_t custom_unbind(const model_system *system, const model_bind_info *info);
    std::uint32_t get_imc(model_module *module, const model_bind_info &info, std::uint32_t &imc);
    std::uint32_t global_stats_get(model_module *module, std::array<std::uint32_t, 6> *stats);
    std::uint32_t global_stats_print(model_module *module);
    std::uint32_t tables_dump(model_module *module, std::uint32_t group);
    std::uint32_t dump_tables(model_module &module, std::uint32_t group);
    // No value: no action.
    void table_entry_dump(std::uint32_t tree_index, const pattern_argument *pattern,
                          std::optional<std::uint32_t> value);
    int responder_entry_dump(const pattern_argument *pattern, std::optional<std::uint32_t> value);

  private:
    enum class severity : std::uint8_t { fatal, error, info };

    /** Whose name and level words a message goes out under, and from which file. */
    struct speaker {
        std::uint32_t own_flags = 0;
        std::optional<std::uint32_t> system_flags;
        std::string name;
        trace_record record = trace_record::module;
        const char *file = "";
    };

    /** A module's operation in progress. The flags are read when a message is logged. */
    struct operation {
        model_module *module = nullptr;
        const model_system *system = nullptr;
        const char *name = "";
        const char *file = "";
    };

    [[nodiscard]] bool usable(const model_module *module) const;
    [[nodiscard]] model_context &context_of(const model_module &module);
    [[nodiscard]] static speaker speaker_of(const operation &current);
    [[nodiscard]] static operation operation_of(model_module &module, const char *name, const char *file);

    [[gnu::format(printf, 2, 3)]] void print(const char *format, ...);
    /** An event, unless the look-up of the trace function fails. */
    void trace(const model_event &event);
    void say_text(const speaker &by, severity how, const char *format, const std::string &text);
    [[gnu::format(printf, 4, 5)]] void say(const speaker &by, severity how, const char *format, ...);
    void report(const speaker &by, severity how, std::uint32_t status);
    /** An error and the text of its status, which is returned. */
    [[gnu::format(printf, 4, 5)]] std::uint32_t fail(const speaker &by, std::uint32_t status,
                                                     const char *format, ...);
    /** The same, fatal. */
    [[gnu::format(printf, 4, 5)]] std::uint32_t fail_fatally(const speaker &by, std::uint32_t status,
                                                             const char *format, ...);
    std::uint32_t fail_with(severity how, const speaker &by, std::uint32_t status, const char *format,
                            const std::string &text);
    void say_unknown_text(const char *file, const char *format, const std::string &text);
    /** A message in the unknown-handle form. */
    [[gnu::format(printf, 3, 4)]] void say_unknown(const char *file, const char *format, ...);
    /** An operation refuses a module's handle. @return 1. */
    std::uint32_t refuse(const char *file, const model_module *module, const char *failed);
    void function_line(const operation &current, bool entering);
    void pattern_line(const operation &current, const char *word, bool with_place, const char *tree,
                      const model_pattern &key, const model_entry &entry);
    bool takes_lock(const operation &current);
    std::uint32_t released(const operation &current, std::uint32_t result);
    /** Entry line, lock, work, unlock, exit line. */
    std::uint32_t framed(const operation &current, const std::function<std::uint32_t()> &work);

    std::uint32_t init_work(model_module &module, model_context &context);
    std::uint32_t find_namespaces(model_module &module, model_context &context, const speaker &by);
    std::uint32_t find_tree(const model_module &module, const char *name, std::uint32_t &id, const speaker &by);
    std::uint32_t register_functions(model_module &module, registration how, std::uint16_t lli, bool update);
    std::uint32_t create_work(const operation &current, const responder_request *info, int *slot);
    std::uint32_t create_steps(const operation &current, const responder_request &info, int *slot);
    /** Whether the handles of deletion and statistics are usable; says so where they are not. */
    bool accepts(const model_module *module, int responder);
    std::uint32_t with_responder_key(const operation &current, std::uint32_t id,
                                     const std::function<std::uint32_t(model_pattern &)> &work);
    std::uint32_t learn_responder(const operation &current, const model_pattern &pattern);
    std::uint32_t delete_entry(const operation &current, std::uint32_t id, model_pattern &pattern);
    [[nodiscard]] model_bytes state_entry(const operation &current, const responder_request &info);
    std::uint32_t bind_work(const operation &current, const model_bind_info &info, bool binds);
    std::uint32_t bind_checks(const operation &current, const model_bind_info &info, bool binds);
    std::uint32_t find_entry_point(const operation &current, const model_bind_info &info, std::uint32_t &found);
    std::uint32_t call_lookup(const model_bind_info &info, std::uint32_t &found);
    std::uint32_t change_bind(const operation &current, const model_bind_info &info, bool binds,
                              const model_entry &entry);
    std::uint32_t apply_bind(const operation &current, const model_pattern &pattern, bool binds,
                             const model_entry &entry);
    std::uint32_t custom_change(const model_system *system, const model_bind_info *info, bool binds);
    std::uint32_t dump_tree(const operation &current, std::uint32_t index);
    void dump_entry(std::uint32_t index, const model_key &key, const model_entry &entry);

    model_constants constants_;
};

} // namespace olv_fuzz

#endif
