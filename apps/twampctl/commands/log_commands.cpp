// What the module says: log levels and bits, the trace, the classifier tables.
#include <cstdio>

#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/site/log_words.hpp"
#include "apps/twampctl/site/platform_names.hpp"
#include "hyx.h"
#include "olv_sim/processor.hpp"
#include "twamp_program.h"

namespace twampctl {
namespace {

std::uint32_t log_word(const site &on)
{
    return __atomic_load_n(&on.module()->log_flags, __ATOMIC_RELAXED);
}

void print_log(command_context &context)
{
    std::printf("log: %s\n", log_word_text(log_word(context.current())).c_str());
}

void set_bits(command_context &context, const std::vector<std::string> &names)
{
    const site &on = context.current();
    const std::uint32_t level = log_word(on) & OLV_LOG_LEVEL_MASK;
    __atomic_store_n(&on.module()->log_flags, level | log_bits(names),
                     __ATOMIC_RELAXED); // the library may read
    print_log(context);
}

void map_level(command_context &context, std::uint32_t level)
{
    const site &on = context.current();
    std::uint32_t mapped = 0;
    on.require(olv_twamp_map_sys_log(on.module(), level, &mapped), "map log level " + std::to_string(level));
    std::printf("log level %u is level %u of the module\n", level, mapped);
}

void add_log_group(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("log", "Choose what the module writes to the console");
    tree.add(group, {"show", "Show the log level and the log bits", {"log show"}}, print_log);

    const auto level = std::make_shared<std::uint32_t>();
    // Any number goes to the library: its refusal is worth seeing.
    tree.add(group, {"level", "Set the log level; clears the log bits", {"log level 15"}},
             [level](command_context &context) {
                 context.current().set_log_level(*level);
                 print_log(context);
             })
        .add_option("LEVEL", *level, "0, 1, 3, 7 or 15")
        .required();
    tree.add(group, {"map", "Map a log level to the module's", {"log map 7"}},
             [level](command_context &context) { map_level(context, *level); })
        .add_option("LEVEL", *level, "0, 1, 3, 7 or 15")
        .required();

    const auto names = std::make_shared<std::vector<std::string>>();
    const olv_apps::command bits = tree.add(group,
                                            {"bits",
                                             "Set the log bits beside the level; none: clear them",
                                             {"log bits function pattern state", "log bits"}},
                                            [names](command_context &context) { set_bits(context, *names); });
    bits.add_option("NAME", *names, "function: entry and exit lines; pattern: entries; state: dumps")
        .one_of(log_bit_names());
}

void add_trace_group(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("trace", "Choose where the trace goes");
    const auto where = std::make_shared<std::string>();
    tree.add(group,
             {"to",
              "Send the trace to a file, to standard error or to LTTng",
              {"trace to run.trace", "trace to -"}},
             [where](command_context &context) {
                 context.trace_to(*where);
                 say("trace goes to %s", where->c_str());
             })
        .add_option("FILE", *where, "File for a text trace; -: standard error; lttng: LTTng")
        .required()
        .called(value_kind::file);
    tree.add(group, {"off", "Trace no more", {"trace off"}}, [](command_context &context) {
        context.trace_to("");
        say("trace is off");
    });
}

const std::map<std::string, std::uint32_t> &table_groups()
{
    static const std::map<std::string, std::uint32_t> groups = {{"responder", OLV_TWAMP_TABLE_GROUP_RESPONDER},
                                                                {"bind", OLV_TWAMP_TABLE_GROUP_BIND},
                                                                {"all", OLV_TWAMP_TABLE_GROUP_ALL}};
    return groups;
}

struct dump_options {
    std::string tables = "all";
    std::optional<std::uint32_t> group;
    bool walk = false;
    bool entries = false;
};

/** Have the library print one entry after the other. */
void print_responder_entry(void *context, void * /*unused*/, const olv_ptn *pattern,
                           const olv_ptn_action *action)
{
    bool &first = *static_cast<bool *>(context);
    if (first) {
        (void)responder_entry_dump(nullptr, nullptr); // the column header
        first = false;
    }
    olv_twamp_table_entry_dump(0, pattern, action);
    std::printf("\n");
}

void dump_entries(site &on)
{
    const olv_sim::classifier_tree *tree = on.processor().tree(TWAMP_RESPONDER_LOOKUP_FUNCTION);
    if (tree == nullptr) {
        throw std::runtime_error("this processor's program has no responder lookup tree");
    }
    bool first = true;
    const std::uint32_t status =
        hyx_ptn_list_ptns(on.processor().rte_handle(), tree->id(), print_responder_entry, &first);
    if (status != 0) {
        throw std::runtime_error(std::string("cannot list the tree: ") + hyx_status_get(status));
    }
}

/** Call the walk as the library's other callers do: with the module's lock held. */
std::uint32_t walk_locked(const site &on, std::uint32_t group)
{
    const std::uint32_t lock = on.module()->lock;
    if (lock != 0) {
        on.require(olv_sys_sem_lock_wait(lock), "take the module's lock");
    }
    const std::uint32_t status = olv_twamp_dump_tables(on.module(), group);
    if (lock != 0) {
        (void)hyx_sem_post(lock); // it was taken just now
    }
    return status;
}

void dump(command_context &context, const dump_options &options)
{
    site &on = context.current();
    if (options.entries) {
        dump_entries(on);
        return;
    }
    const std::uint32_t group = options.group.value_or(table_groups().at(options.tables));
    on.require(options.walk ? walk_locked(on, group) : olv_twamp_tables_dump(on.module(), group),
               "print the tables");
    std::printf("\n");
}

void add_dump(command_tree &tree)
{
    const auto options = std::make_shared<dump_options>();
    const olv_apps::command command =
        tree.add({"dump", "Print the classifier tables", {"dump", "dump responder", "dump --entries"}},
                 [options](command_context &context) { dump(context, *options); });
    command.add_option("TABLES", options->tables, "responder, bind or all (all)")
        .one_of({"responder", "bind", "all"});
    command.add_option("--group", options->group, "Table group by number, known or not");
    command.add_flag("--walk", options->walk, "Call the walk alone, with the lock held");
    command.add_flag("--entries", options->entries, "Print the responder tree entry by entry");
}

} // namespace

void add_log_commands(command_tree &tree)
{
    add_log_group(tree);
    add_trace_group(tree);
    add_dump(tree);
}

} // namespace twampctl
