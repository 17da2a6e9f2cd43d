// Platform calls: faults and the record.
#include <cinttypes>
#include <cstdio>

#include "apps/common/formatted.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/site/platform_names.hpp"
#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"

namespace twampctl {
namespace {

using olv_sim::fault;

struct fault_options {
    std::string call;
    std::optional<std::uint32_t> code;
    std::uint32_t skip = 0;
    std::uint32_t count = 1;
    bool forever = false;

    [[nodiscard]] fault plan(std::uint32_t usual_code) const
    {
        return {.code = code.value_or(usual_code), .skip = skip, .count = forever ? fault::forever : count};
    }
};

std::string calls_of(const fault &plan)
{
    const std::string first = std::to_string(plan.skip + 1);
    if (plan.count == fault::forever) {
        return "fails from call " + first + " on";
    }
    return plan.count == 1 ? "fails at call " + first
                           : "fails at calls " + first + " to " + std::to_string(plan.skip + plan.count);
}

std::string course_of(olv_sim::call which, const fault &plan)
{
    switch (olv_sim::failure_of(which)) {
    case olv_sim::failure::null_pointer:
        return calls_of(plan) + " with NULL";
    case olv_sim::failure::empty_slot:
        return calls_of(plan) + " with no function";
    default:
        return calls_of(plan) + olv_apps::formatted(" with 0x%X", plan.code);
    }
}

std::string course_of_any(const fault &plan)
{
    return calls_of(plan) +
           (plan.code == 0 ? " with its own code" : olv_apps::formatted(" with 0x%X", plan.code));
}

void set_fault(const fault_options &options)
{
    const olv_sim::call which = olv_sim::call_by_name(options.call).value(); // the option takes no other name
    if (options.code == 0u) {
        throw usage_error("fault set: code 0 is success; give another one with --code");
    }
    const fault plan = options.plan(olv_sim::usual_code(which));
    (void)olv_sim::faults::set(which, plan); // it can fail
    say("%s %s", options.call.c_str(), course_of(which, plan).c_str());
}

void list_faults()
{
    std::size_t listed = 0;
    for (const std::string &name : failing_calls()) {
        const olv_sim::call which = olv_sim::call_by_name(name).value();
        if (const std::optional<fault> plan = olv_sim::faults::planned(which)) {
            std::printf("%s %s; fired: %u\n", name.c_str(), course_of(which, *plan).c_str(),
                        olv_sim::faults::hits(which));
            ++listed;
        }
    }
    if (olv_sim::faults::calls_of_any() != 0 || olv_sim::faults::hits_of_any() != 0) {
        std::printf("any call: %u counted, fired: %u\n", olv_sim::faults::calls_of_any(),
                    olv_sim::faults::hits_of_any());
        ++listed;
    }
    if (listed == 0) {
        std::printf("no faults\n");
    }
}

void clear_faults(const std::string &name)
{
    if (name.empty()) {
        olv_sim::faults::clear_all();
        say("no faults");
        return;
    }
    olv_sim::faults::clear(olv_sim::call_by_name(name).value());
    say("%s fails no more", name.c_str());
}

void add_course(olv_apps::command command, fault_options &options)
{
    command.add_option("--skip", options.skip, "Calls that succeed first (0)");
    const olv_apps::option count = command.add_option("--count", options.count, "Calls that fail then (1)")
                                       .whole_number_between(1, UINT32_MAX - 1);
    command.add_flag("--forever", options.forever, "All calls fail then").excludes(count);
    command.add_option("--code", options.code, "Status that they return; default: an injected fault's");
}

void add_fault_group(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("fault", "Make platform calls fail");
    const auto options = std::make_shared<fault_options>();
    const olv_apps::command set =
        tree.add(group,
                 {"set",
                  "Make a platform call fail",
                  {"fault set hyx_ptn_learn", "fault set hyx_rsrc_allocate --skip 2 --forever",
                   "fault set hyx_se_state_set --code 0x10D"}},
                 [options](command_context &) { set_fault(*options); });
    set.add_option("CALL", options->call, "The call; Tab completes it")
        .one_of(failing_calls())
        .required()
        .called(value_kind::call);
    add_course(set, *options);

    const olv_apps::command any =
        tree.add(group, {"any", "Make whatever call comes fail, counted together", {"fault any --skip 4"}},
                 [options](command_context &) {
                     olv_sim::faults::set_any(options->plan(0)); // 0: the call's own code
                     say("any call %s", course_of_any(options->plan(0)).c_str());
                 });
    add_course(any, *options);
    tree.add(group, {"list", "List the faults, and how often they fired", {"fault list"}},
             [](command_context &) { list_faults(); });
    const olv_apps::command clear =
        tree.add(group, {"clear", "Clear one fault, or all", {"fault clear", "fault clear hyx_ptn_learn"}},
                 [options](command_context &) { clear_faults(options->call); });
    clear.add_option("CALL", options->call, "The call; default: all")
        .one_of(failing_calls())
        .called(value_kind::call);
}

const std::map<std::string, olv_sim::call_kind> &kinds()
{
    static const std::map<std::string, olv_sim::call_kind> all = {
        {"service", olv_sim::call_kind::service},
        {"text", olv_sim::call_kind::text},
        {"print", olv_sim::call_kind::print},
        {"trace", olv_sim::call_kind::trace},
        {"byte-order", olv_sim::call_kind::byte_order}};
    return all;
}

void start_record(const std::vector<std::string> &names)
{
    unsigned wanted = 0;
    for (const std::string &name : names) {
        wanted |= static_cast<unsigned>(kinds().at(name));
    }
    olv_sim::call_record::start(wanted);
    say("recording platform calls");
}

void print_record()
{
    std::size_t number = 0;
    for (const olv_sim::recorded_call &each : olv_sim::call_record::calls()) {
        std::printf("%4zu %s(%s) -> 0x%X%s\n", ++number, std::string(olv_sim::call_name(each.which)).c_str(),
                    each.arguments.c_str(), each.result, each.injected ? " (fault)" : "");
    }
    if (number == 0) {
        std::printf("no calls recorded\n");
    }
}

void add_record_group(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("record", "Record the platform calls of the library");
    const auto names = std::make_shared<std::vector<std::string>>(std::vector<std::string>{"service"});
    const olv_apps::command start = tree.add(
        group, {"start", "Forget the record and record from now on", {"record start", "record start text"}},
        [names](command_context &) { start_record(*names); });
    start.add_option("KIND", *names, "service, text, print, trace, byte-order (service)")
        .one_of({"service", "text", "print", "trace", "byte-order"});
    tree.add(group, {"show", "Show the recorded calls, in order", {"record show"}},
             [](command_context &) { print_record(); });
    tree.add(group, {"stop", "Record no more; what was recorded stays", {"record stop"}},
             [](command_context &) {
                 olv_sim::call_record::stop();
                 say("no longer recording");
             });
}

} // namespace

void add_fault_commands(command_tree &tree)
{
    add_fault_group(tree);
    add_record_group(tree);
}

} // namespace twampctl
