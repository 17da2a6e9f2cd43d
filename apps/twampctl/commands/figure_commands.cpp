// What is counted: statistics, sessions, what is in use.
#include <cstdio>

#include "command_tree.hpp"
#include "commands/commands.hpp"

namespace twampctl {

void add_responder_figures(command_tree &, CLI::App &) {}

void add_figure_commands(command_tree &tree)
{
    tree.add({"usage", "Show what is in use on the platform", {"usage"}},
             [](testbed &bed) { std::printf("%s\n", text_of(bed.current().usage()).c_str()); });
}

} // namespace twampctl
