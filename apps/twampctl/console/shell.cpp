#include "apps/twampctl/console/shell.hpp"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "apps/common/errors.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/console/interpreter.hpp"
#include "apps/twampctl/console/line_editor.hpp"

namespace twampctl {
namespace {

constexpr const char *history_variable = "TWAMPCTL_HISTORY";
constexpr const char *history_name = "/.twampctl_history";

std::string history_file()
{
    if (const char *named = std::getenv(history_variable)) {
        return named;
    }
    const char *home = std::getenv("HOME");
    return home == nullptr ? "" : std::string(home) + history_name;
}

/** @return Whether a signal asks for the end. Ctrl-C only ended the command. */
bool was_terminated(const olv_apps::signal_watch &signals)
{
    return signals.take() == SIGTERM;
}

} // namespace

void run_shell(command_context &context)
{
    static bool running = false;
    if (running) {
        throw std::runtime_error("this is the shell already");
    }
    running = true; // until the program ends, as a shell's end is
    if (isatty(STDIN_FILENO) == 0) {
        run_script(context, {.file = "-", .keep_going = true});
        return;
    }
    std::printf("twampctl on the software platform. 'help' lists the commands, Tab completes\n"
                "them, 'quit' or Ctrl-D takes everything down and ends.\n");
    line_editor editor{
        context.signals(), "twampctl> ", history_file(),
        [&context](const std::vector<std::string> &words) { return command_tree{context}.completions(words); }};
    while (!context.is_over()) {
        const std::optional<std::string> line = editor.read();
        if (!line) {
            std::printf("\n");
            const int signal = context.signals().take();
            if (signal == SIGINT) {
                continue; // Ctrl-C before the editor had the terminal
            }
            if (signal != 0) {
                throw std::runtime_error("ended by a signal");
            }
            return;
        }
        try {
            execute(context, words_of(*line));
        } catch (const std::exception &error) {
            if (context.signals().arrived()) {
                std::printf("\n"); // the terminal has shown ^C
            }
            olv_apps::report_error("error", "%s", olv_apps::text_of(error).c_str());
        }
        if (was_terminated(context.signals())) {
            throw std::runtime_error("ended by a signal");
        }
    }
}

} // namespace twampctl
