#include <cstdio>
#include <exception>

#include "command_line.hpp"
#include "platform_stack.hpp"
#include "run_options.hpp"
#include "signal_watch.hpp"
#include "trace_output.hpp"

namespace twampctl {
namespace {

/** @return Whether the signal or the end of the duration found everything in order. */
bool serve(platform_stack &stack, const run_options &options, const olv_apps::signal_watch &signals)
{
    try {
        stack.initialise();
        stack.create_responders();
        stack.bind();
        stack.listen();
        std::printf(signals.wait(options.duration) ? "stopped by a signal\n" : "end of the duration\n");
        stack.stop_listening();
        stack.print_statistics();
        if (options.tables) {
            stack.print_tables();
        }
        if (options.imc) {
            stack.print_imc();
        }
        return true;
    } catch (const std::exception &error) {
        olv_apps::report_error(program_name, "%s", error.what());
        return false;
    }
}

/** @return Whether nothing is left. */
bool print_left_behind(const platform_usage &usage)
{
    std::printf("left behind: %zu blocks, %zu responder IDs, %zu responder entries, %zu bind entries, "
                "%zu patterns, %zu violations\n",
                usage.blocks, usage.responder_ids, usage.responder_entries, usage.bind_entries, usage.patterns,
                usage.violations);
    if (!usage.is_empty()) {
        olv_apps::report_error(program_name, "something was left behind");
    }
    return usage.is_empty();
}

int run(const run_options &options)
{
    const olv_apps::signal_watch signals; // before the fast path's thread
    const trace_output trace{options.trace_file};
    platform_stack stack{options};
    const bool served = serve(stack, options, signals);
    const bool torn_down = stack.tear_down();
    const bool clean = print_left_behind(stack.usage());
    return served && torn_down && clean ? olv_apps::exit_good : olv_apps::exit_failed;
}

} // namespace
} // namespace twampctl

int main(int argc, char **argv)
{
    // The library prints to the same stream; line by line, the order holds in files and pipes, too.
    (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    int status = olv_apps::exit_failed;
    try {
        twampctl::run_options options;
        const std::optional<int> early = twampctl::read_options(argc, argv, options);
        status = early ? *early : twampctl::run(options);
    } catch (const std::exception &error) {
        olv_apps::report_error(twampctl::program_name, "%s", error.what());
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        olv_apps::report_error(twampctl::program_name, "standard output is not complete");
        return olv_apps::exit_failed;
    }
    return status;
}
