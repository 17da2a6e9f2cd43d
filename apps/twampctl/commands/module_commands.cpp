// The module itself: up, down, its service functions.
#include <cstdio>

#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/site/log_words.hpp"

namespace twampctl {
namespace {

struct up_options {
    std::optional<std::uint32_t> log_level;
};

void bring_up(command_context &context, const up_options &options)
{
    site &on = context.current();
    (void)on.initialise(); // says whether it was up already
    if (options.log_level) {
        on.set_log_level(*options.log_level);
        say("log level %u", *options.log_level);
    }
}

void update(command_context &context)
{
    const site &on = context.current();
    on.require(olv_twamp_service_function_update(on.module()), "update the service functions");
    say("service functions updated");
}

void print_status(command_context &context)
{
    site &on = context.current();
    std::printf("processor: %s, RTE handle %u\n", on.name().c_str(), on.processor().rte_handle());
    std::printf("module: %s\n", on.is_up() ? "initialised" : "not initialised");
    std::printf("service functions: %s\n",
                on.framework().registered(on.module()) ? "registered" : "not registered");
    std::printf("log: %s\n", log_word_text(on.module()->log_flags).c_str());
    std::printf("responders: %zu, listeners: %zu\n", on.responders().size(), on.listeners().size());
    std::printf("trace: %s\n", context.trace().empty() ? "off" : context.trace().c_str());
}

} // namespace

void add_module_commands(command_tree &tree)
{
    const auto options = std::make_shared<up_options>();
    const olv_apps::command up = tree.add({"up", "Initialise the module", {"up", "up --log-level 15"}},
                                          [options](command_context &context) { bring_up(context, *options); });
    take_log_levels(
        up.add_option("--log-level", options->log_level, "Log level from then on: 0, 1, 3, 7 or 15"));
    tree.add({"down", "Shut the module down", {"down"}},
             [](command_context &context) { context.current().shut_down(); });
    tree.add({"update", "Hand the service functions to the framework again", {"update"}}, update);
    tree.add({"status", "Say whether the module is up, and how it logs", {"status"}}, print_status);
}

} // namespace twampctl
