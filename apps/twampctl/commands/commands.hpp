/**
 * @file commands.hpp
 * The commands of twampctl, by what they are about. Each function adds its commands to the tree.
 */
#ifndef OLV_TWAMPCTL_COMMANDS_HPP
#define OLV_TWAMPCTL_COMMANDS_HPP

namespace olv_apps {
class command;
}

namespace twampctl {

class command_tree;

void add_module_commands(command_tree &tree);    ///< up, down, update, status
void add_responder_commands(command_tree &tree); ///< responder create, delete, list, stats, state
/** responder list, responder stats. */
void add_responder_figures(command_tree &tree, olv_apps::command group);
void add_path_commands(command_tree &tree);     ///< bind, unbind, imc, listen, unlisten, redirect
void add_probe_commands(command_tree &tree);    ///< probe run, start, list, stop
void add_figure_commands(command_tree &tree);   ///< stats, listeners, sessions, usage, show, watch, metrics
void add_log_commands(command_tree &tree);      ///< log, trace, dump
void add_platform_commands(command_tree &tree); ///< processor, tree, clock, violations
void add_fault_commands(command_tree &tree);    ///< fault, record
void add_console_commands(command_tree &tree);  ///< help, script, shell, wait, echo, quit

} // namespace twampctl

#endif
