// The platform below the module: processors, default entries, time, breaches of its contract.
#include <cstdio>

#include "apps/twampctl/commands/checks.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/site/status_text.hpp"
#include "apps/twampctl/site/traffic_options.hpp"
#include "hyx.h"
#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_sim/violations.hpp"
#include "twamp_program.h"

namespace twampctl {
namespace {

struct processor_options {
    std::string name;
    std::uint32_t capacity = usual_capacity;
    std::vector<std::string> without;
    std::vector<std::string> renamed;
    bool no_statistics = false;
    bool unlocked = false;
    bool no_system = false;
    std::uint16_t default_entry_point = 0;
    traffic_options traffic;
};

/** @return Whether there was something of that name. */
template <typename Items> bool rename(Items &items, const std::string &from, const std::string &to)
{
    for (auto each = items.begin(); each != items.end(); ++each) {
        if (each->name == from) {
            if (to.empty()) {
                items.erase(each);
            } else {
                each->name = to;
            }
            return true;
        }
    }
    return false;
}

void change_program(olv_sim::classifier_program &program, const std::string &from, const std::string &to)
{
    if (!rename(program.namespaces, from, to) && !rename(program.tree_functions, from, to)) {
        throw std::runtime_error("the classifier program has no namespace or tree function '" + from +
                                 "'; 'tree list' lists them");
    }
}

void create_processor(command_context &context, const processor_options &options)
{
    site_options wanted{.name = options.name,
                        .program = olv_sim::classifier_program::twamp(options.capacity),
                        .locked = !options.unlocked,
                        .system = !options.no_system,
                        .default_entry_point = options.default_entry_point,
                        .fast_path = {}};
    options.traffic.apply(wanted.fast_path);
    for (const std::string &each : options.without) {
        change_program(wanted.program, each, "");
    }
    for (const std::string &each : options.renamed) {
        const std::size_t sign = each.find('=');
        if (sign == std::string::npos || sign + 1 == each.size()) {
            throw usage_error("processor create: --rename takes OLD=NEW, not '" + each + "'");
        }
        change_program(wanted.program, each.substr(0, sign), each.substr(sign + 1));
    }
    wanted.program.global_statistics = !options.no_statistics;
    site &made = context.add(wanted);
    say("processor %s created, RTE handle %u", options.name.c_str(), made.processor().rte_handle());
}

void list_processors(command_context &context)
{
    const site &used = context.current();
    for (const site &each : context.sites()) {
        std::printf("%s %s: module %s, %zu responders, %zu listeners\n", &each == &used ? "*" : " ",
                    each.name().c_str(), each.is_up() ? "up" : "down", each.responders().size(),
                    each.listeners().size());
    }
}

void add_create_processor(command_tree &tree, olv_apps::command group)
{
    const auto options = std::make_shared<processor_options>();
    const olv_apps::command command =
        tree.add(group,
                 {"create",
                  "Load a classifier program on a further processor, and use it",
                  {"processor create small --capacity 2", "processor create odd --without twamp_responder",
                   "processor create odd --rename twamp_responder=other"}},
                 [options](command_context &context) { create_processor(context, *options); });
    command.add_option("NAME", options->name, "Its name").required().check(reason_against_name);
    command.add_option("--capacity", options->capacity, "Responder IDs that it has (65536)")
        .whole_number_between(1, largest_capacity);
    command.add_option("--without", options->without, "Leave out a namespace or tree function").repeatable();
    command.add_option("--rename", options->renamed, "OLD=NEW: call it otherwise").repeatable();
    command.add_flag("--no-statistics", options->no_statistics, "Leave the statistics block out");
    command.add_flag("--unlocked", options->unlocked, "Give the module record no lock");
    command.add_flag("--no-system", options->no_system, "Give the module record no system record");
    command.add_option("--default-entry-point", options->default_entry_point, "Of the module record (0)");
    add_traffic_options(command, options->traffic);
}

void add_processor_group(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("processor", "Make and choose processors");
    add_create_processor(tree, group);
    tree.add(group, {"list", "List the processors; * is in use", {"processor list"}}, list_processors);
    const auto name = std::make_shared<std::string>();
    tree.add(group, {"use", "Use another processor from now on", {"processor use main"}},
             [name](command_context &context) {
                 context.use(*name);
                 say("processor %s in use", name->c_str());
             })
        .add_option("NAME", *name, "The processor")
        .required()
        .called(value_kind::processor);
    tree.add(group, {"remove", "Take everything on a processor down, and it away", {"processor remove small"}},
             [name](command_context &context) {
                 context.remove(*name);
                 say("processor %s removed", name->c_str());
             })
        .add_option("NAME", *name, "The processor")
        .required()
        .called(value_kind::processor);
}

// --------------------------------------------------------------------------------------------------------
// Trees
// --------------------------------------------------------------------------------------------------------

void list_trees(command_context &context)
{
    const olv_sim::processor &processor = context.current().processor();
    for (const auto &each : olv_sim::classifier_program::twamp(1).tree_functions) {
        const olv_sim::classifier_tree *tree = processor.tree(each.name);
        if (tree != nullptr) {
            std::printf("0x%X %s: %zu entries\n", tree->id(), each.name.c_str(), tree->size());
        } else {
            std::printf("      %s: code only, or not there\n", each.name.c_str());
        }
    }
}

struct entry_options {
    std::string tree;
    std::vector<std::uint32_t> words{0, 0, 0};
};

const olv_sim::classifier_tree &tree_of(const olv_sim::processor &processor, const std::string &name)
{
    const olv_sim::classifier_tree *tree = processor.tree(name);
    if (tree == nullptr) {
        throw std::runtime_error("this processor has no classifier tree '" + name +
                                 "'; 'tree list' lists them");
    }
    return *tree;
}

/** The pattern of an entry without a key. */
class empty_pattern {
  public:
    empty_pattern(site &on, const std::string &purpose)
    {
        const std::uint32_t status = olv_ptn_new(TWAMP_KEY_BITS, &pattern_);
        if (status != OLV_STATUS_OK) {
            throw std::runtime_error("cannot " + purpose + ": " + status_text(on.framework().system(), status));
        }
    }
    ~empty_pattern() { olv_ptn_free(pattern_); }
    empty_pattern(const empty_pattern &) = delete;
    empty_pattern &operator=(const empty_pattern &) = delete;

    [[nodiscard]] olv_ptn *record() { return &pattern_; }

  private:
    olv_ptn pattern_{};
};

std::uint32_t unlearn(site &on, const olv_sim::classifier_tree &tree, olv_ptn *pattern)
{
    olv_ptn_action action{};
    return hyx_ptn_unlearn(on.processor().rte_handle(), tree.id(), pattern, 0, &action, 1);
}

void require_rte(std::uint32_t status, const std::string &what)
{
    if (status != olv_sim::rte_ok) {
        throw std::runtime_error("cannot " + what + ": " + hyx_status_get(status));
    }
}

void set_default_entry(site &on, const entry_options &options)
{
    static constexpr const char *purpose = "set the entry without a key";
    const olv_sim::classifier_tree &tree = tree_of(on.processor(), options.tree);
    empty_pattern pattern{on, purpose};
    olv_ptn_action action{{options.words[0], options.words[1], options.words[2]}};
    const auto learn = [&] {
        return hyx_ptn_learn(on.processor().rte_handle(), tree.id(), pattern.record(), &action);
    };
    std::uint32_t status = learn();
    if (status == olv_sim::rte_duplicate_entry) { // no entry changes in place
        require_rte(unlearn(on, tree, pattern.record()), "replace the entry without a key");
        status = learn();
    }
    require_rte(status, purpose);
    say("entry without a key set");
}

void clear_default_entry(site &on, const entry_options &options)
{
    static constexpr const char *purpose = "remove the entry without a key";
    const olv_sim::classifier_tree &tree = tree_of(on.processor(), options.tree);
    empty_pattern pattern{on, purpose};
    const std::uint32_t status = unlearn(on, tree, pattern.record());
    if (status != olv_sim::rte_no_such_entry) { // it need not be there
        require_rte(status, purpose);
    }
    say("entry without a key removed");
}

void add_tree_group(command_tree &tree)
{
    const olv_apps::command group =
        tree.add_group("tree", "Look into classifier trees, set entries without a key");
    tree.add(group, {"list", "List the tree functions and how many entries they have", {"tree list"}},
             list_trees);
    const auto options = std::make_shared<entry_options>();
    const olv_apps::command set =
        tree.add(group,
                 {"default",
                  "Set the entry without a key, for keys that have none",
                  {"tree default olv_twamp.twamp_responder_lookup --action 4 1 0"}},
                 [options](command_context &context) { set_default_entry(context.current(), *options); });
    set.add_option("TREE", options->tree, "The tree").required().called(value_kind::tree);
    set.add_option("--action", options->words, "The action's three words (0 0 0)").values(3);
    tree.add(group,
             {"clear-default",
              "Remove the entry without a key",
              {"tree clear-default olv_twamp.twamp_responder_lookup"}},
             [options](command_context &context) { clear_default_entry(context.current(), *options); })
        .add_option("TREE", options->tree, "The tree")
        .required()
        .called(value_kind::tree);
}

// --------------------------------------------------------------------------------------------------------
// Time
// --------------------------------------------------------------------------------------------------------

void print_clock(command_context &context)
{
    const olv_sim::processor &processor = context.current().processor();
    hyx_time now{};
    hyx_gettime(&now);
    std::printf("wall clock: %lu.%06lu s\ntimer 0: %llu ticks, %llu in a second\n", now.seconds,
                now.microseconds, static_cast<unsigned long long>(processor.timer_now()),
                static_cast<unsigned long long>(processor.timer_frequency()));
}

void add_clock_group(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("clock", "Stop, set and run the clocks");
    tree.add(group, {"show", "Show both clocks", {"clock show"}}, print_clock);
    const auto ticks = std::make_shared<std::uint64_t>();
    tree.add(group, {"timer", "Stop timer 0 at a reading", {"clock timer 1000000"}},
             [ticks](command_context &context) {
                 context.current().processor().set_timer(*ticks);
                 print_clock(context);
             })
        .add_option("TICKS", *ticks, "The reading")
        .required()
        .check(reason_against_sign);
    const auto seconds = std::make_shared<std::uint32_t>();
    tree.add(group, {"wall", "Stop the wall clock at an instant", {"clock wall 1700000000"}},
             [seconds](command_context &context) {
                 olv_sim::set_wall_clock(hyx_time{*seconds, 0});
                 print_clock(context);
             })
        .add_option("SECONDS", *seconds, "Since 1970")
        .required();
    tree.add(group, {"run", "Let both run by themselves again", {"clock run"}}, [](command_context &context) {
        context.current().processor().run_timer();
        olv_sim::set_wall_clock(std::nullopt);
        print_clock(context);
    });
}

void add_violations(command_tree &tree)
{
    const auto clear = std::make_shared<bool>(false);
    tree.add({"violations", "List breaches of the platform's contract", {"violations", "violations --clear"}},
             [clear](command_context &) {
                 for (const std::string &each : olv_sim::violations::list()) {
                     std::printf("%s\n", each.c_str());
                 }
                 std::printf("%zu violations\n", olv_sim::violations::count());
                 if (*clear) {
                     olv_sim::violations::clear();
                 }
             })
        .add_flag("--clear", *clear, "Forget them then");
}

} // namespace

void add_platform_commands(command_tree &tree)
{
    add_processor_group(tree);
    add_tree_group(tree);
    add_clock_group(tree);
    add_violations(tree);
}

} // namespace twampctl
