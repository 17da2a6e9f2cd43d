// Commands about commands: help, scripts, the shell, waiting, the end.
#include <cmath>
#include <cstdio>

#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/interpreter.hpp"
#include "apps/twampctl/console/shell.hpp"

namespace twampctl {
namespace {

void wait(command_context &context, double seconds)
{
    if (context.signals().wait(std::chrono::nanoseconds(std::llround(seconds * 1e9)))) {
        throw std::runtime_error("interrupted while waiting");
    }
}

void add_script(command_tree &tree)
{
    const auto options = std::make_shared<script_options>();
    const olv_apps::command script =
        tree.add({"script",
                  "Run the commands of a file; stop at the first failure",
                  {"script setup.twamp", "script - --keep-going", "script tour.twamp --echo"}},
                 [options](command_context &context) { run_script(context, *options); });
    script.add_option("FILE", options->file, "The file; -: standard input").required().called(value_kind::file);
    script.add_flag("--keep-going", options->keep_going, "Report failures and go on; fail at the end");
    script.add_flag("--echo", options->echo, "Print each command before it is run");
}

} // namespace

void add_console_commands(command_tree &tree)
{
    add_script(tree);
    tree.add({"shell", "Read commands from a terminal, with history and completion", {"shell"}}, run_shell);
    const auto seconds = std::make_shared<double>(0);
    tree.add({"wait", "Wait; packets are answered meanwhile", {"wait 2.5"}},
             [seconds](command_context &context) { wait(context, *seconds); })
        .add_option("SECONDS", *seconds, "How long")
        .required()
        .number_between(0.0, 1e6);
    const auto words = std::make_shared<std::vector<std::string>>();
    tree.add({"echo", "Print words", {"echo two responders are up"}},
             [words](command_context &) {
                 for (std::size_t index = 0; index < words->size(); ++index) {
                     std::printf("%s%s", index == 0 ? "" : " ", (*words)[index].c_str());
                 }
                 std::printf("\n");
             })
        .add_option("WORD", *words, "What to print");
    const olv_apps::command help =
        tree.add({"help", "Explain a command, or list all", {"help", "help responder create"}},
                 [words](command_context &context) {
                     (void)std::fputs(command_tree{context}.help(*words).c_str(), stdout);
                 });
    help.add_option("COMMAND", *words, "Its words");
    for (const char *name : {"quit", "exit"}) {
        tree.add({name, "Take everything down and end", {}}, [](command_context &context) { context.quit(); });
    }
}

} // namespace twampctl
