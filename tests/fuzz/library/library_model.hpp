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
 *    their statuses are checked, see the step null_pointers;
 *  - calling olv_twamp_table_entry_dump_fn directly: its context is the walk's own. The walk reaches it.
 */
#ifndef OLV_FUZZ_LIBRARY_MODEL_HPP
#define OLV_FUZZ_LIBRARY_MODEL_HPP

#include <array>
#include <exception>
#include <functional>

#include "hyx.h"
#include "module_log.hpp"
#include "olv_twamp.h"
#include "platform_model.hpp"
#include "time_of_day.hpp"

namespace olv_fuzz {

using olv_test::formatted;
using olv_test::severity;

inline constexpr std::uint32_t module_magic = 0x53248791;
inline constexpr std::uint32_t context_magic = 0x18496124;
inline constexpr std::uint32_t responder_magic = 0x43215678;

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
struct out_of_contract : std::exception {};

struct model_event {
    std::uint32_t level = 0;
    const void *record = nullptr; ///< Of the module or the system.
    std::string file;
    std::optional<std::string> format;
    std::string text;

    bool operator==(const model_event &) const = default;
};

struct model_context {
    std::uint32_t block = no_block;
    void *real = nullptr;
    std::uint32_t magic = 0;
    std::uint32_t lli_tree = 0, ip_direct_tree = 0, ipv6_indirect_tree = 0, responder_tree = 0, bind_tree = 0;
    std::uint32_t responder_namespace = 0, session_namespace = 0;
    std::uint32_t created = 0;
};

/** A module: the record that the library gets, what that record has to hold, and what else there is of it. */
struct model_module {
    olv_module_handle *real = nullptr;
    olv_module_handle record{}; ///< Its `ctx` stands in `context`.
    int context = -1;           ///< Index, -1: NULL.
    bool known_to_framework = true;
    bool registered = false;
    std::uint16_t registered_lli = 0;

    /** Change the record as its owner does. */
    template <typename Field> void set(Field olv_module_handle::*field, Field value)
    {
        record.*field = value;
        real->*field = value;
    }
};

/** A responder's record likewise. */
struct model_responder {
    std::uint32_t block = no_block;
    twamp_responder_handle *real = nullptr; ///< Not known before its creation has come to an end.
    twamp_responder_handle record{};
};

/** How the framework's table answers for the entry point of a module ID. */
enum class entry_point_kind : std::uint8_t { platform, none, zero, fixed, failing };

/** What the lookups of that kind answer. */
inline constexpr std::uint32_t fixed_entry_point = 0x777;
inline constexpr std::uint32_t failing_entry_point_status = 0x20042;

struct pattern_argument {
    std::uint32_t length = 0; ///< Word 1.
    model_pattern pattern;
};

/** A text of the log and the format that it was made from. */
struct message {
    std::string format;
    std::string text;

    /** Without arguments. */
    message(const char *whole) : format(whole), text(whole) {}
    message(const char *made_from, std::string made) : format(made_from), text(std::move(made)) {}
};
[[gnu::format(printf, 1, 2)]] message text(const char *format, ...);

/** Whose name a message has, and whose log words let it through. */
enum class voice : std::uint8_t {
    module,       ///< The module's name; its word or the system's.
    module_alone, ///< The module's name and word.
    system        ///< The system record's name and word.
};

/** An operation in progress. */
struct operation {
    model_module &module;
    const olv_system_handle *system;
    const char *name;
    const char *file;
    voice by = voice::module;
};

struct operation_name {
    const char *name;
    const char *file;
    message failed; ///< Said of it when the module's handle is refused.
};

/** How an operation uses a tree. */
struct model_tree_use {
    std::uint32_t id;
    const char *name;
    bool line_with_place;  ///< Whether the line of a change names the file.
    std::uint32_t refused; ///< Status of a change that the platform refuses.
    const char *refusal;   ///< Its message: tree, code, text of the code.
};

class library_model {
  public:
    using words = std::array<std::uint32_t, 6>; ///< What an operation returns beside its status.

    explicit library_model(const model_constants &all) : constants(all) {}

    const model_constants &constants;
    platform_model platform;
    std::vector<model_context> contexts;
    std::vector<model_responder> responders;
    std::map<std::uint32_t, entry_point_kind> entry_points; ///< By module ID.
    hyx_time wall_clock{};
    olv_test::time_of_day day{};

    // What the operation in progress has shown.
    std::string console;
    std::vector<model_event> events;

    // The operations. NULL stands for NULL; a responder is its index, and -1 is NULL.
    std::uint32_t valid_module_handle(const model_module &module) const;
    std::uint32_t init(model_module *module);
    std::uint32_t shutdown(model_module *module);
    std::uint32_t service_function_update(model_module *module);
    std::uint32_t sys_log(model_module *module, std::uint32_t level);
    std::uint32_t map_sys_log(model_module *module, std::uint32_t level, std::uint32_t &mapped);
    std::uint32_t responder_create(model_module *module, const olv_twamp_responder_info *info, int *slot);
    std::uint32_t responder_delete(model_module *module, int responder);
    std::uint32_t responder_stats_get(model_module *module, int responder, words *stats);
    std::uint32_t responder_stats_print(model_module *module, int responder);
    /** Bind or unbind. @param source  The model's module for the request's. */
    std::uint32_t custom_change(const olv_system_handle *system, const olv_bind_info *info,
                                model_module *source, bool binds);
    std::uint32_t get_imc(model_module *module, const olv_bind_info &info, std::uint32_t &imc);
    std::uint32_t global_stats_get(model_module *module, words *stats);
    std::uint32_t global_stats_print(model_module *module);
    std::uint32_t tables_dump(model_module *module, std::uint32_t group);
    std::uint32_t dump_tables(model_module &module, std::uint32_t group);
    /** @return The length of what was printed last. */
    std::uint32_t responder_entry_dump(const pattern_argument *pattern, const olv_ptn_action *action);

    // What they are made of.
    [[nodiscard]] bool usable(const model_module *module) const;
    model_context &context_of(const model_module &module);
    [[gnu::format(printf, 2, 3)]] void print(const char *format, ...);
    /** Counters that are not 0, each with its label. */
    void print_counters(std::initializer_list<const char *> labels, const words &counters);
    /** Something that is shown and traced. @param shown  The console has it after name and place. */
    void tell(const operation &of, severity how, const std::string &shown, std::optional<std::string> format,
              const std::string &traced, bool with_place = true);
    void say(const operation &of, severity how, const message &said);
    /** A message and the text of its status, which is returned. */
    std::uint32_t fail(const operation &of, std::uint32_t status, const message &said,
                       severity how = severity::error);
    /** A message in the unknown-handle form. */
    void say_unknown(const char *file, const message &said);
    /** An operation refuses a handle. @return 1. */
    std::uint32_t refuse(const char *file, const message &reason, const message &failed);
    std::uint32_t refuse_module(const char *file, const model_module *module, const message &failed);
    void function_line(const operation &of, severity how);
    /** Learn or remove an entry and tell of it. */
    std::uint32_t change_entry(const operation &of, severity how, const model_tree_use &tree,
                               const model_key &key, const model_entry &entry);
    bool takes_lock(const operation &of);
    /** The result, unless the lock cannot be released. */
    std::uint32_t released(const operation &of, std::uint32_t result);
    /** Entry line, lock, work, unlock, exit line. */
    std::uint32_t framed(const operation &of, const std::function<std::uint32_t()> &work);
    /** The same once the handle is found to be usable. */
    std::uint32_t operate(model_module *module, const operation_name &which,
                          const std::function<std::uint32_t(const operation &)> &work);
};

[[nodiscard]] std::string text_of(const olv_ptn_action &action);
/** Low 32 bits, as messages show addresses. */
[[nodiscard]] std::uint32_t low_word(const void *address);
[[nodiscard]] std::uint32_t address_of(const model_module *module);
[[nodiscard]] std::uint32_t big_endian_word(const model_bytes &bytes, std::size_t at);
/** A status with the module's own number. */
[[nodiscard]] constexpr std::uint32_t as_own(std::uint32_t status)
{
    return (status & 0xFFF0FFFF) | 0x30000;
}

} // namespace olv_fuzz

#endif
