#include "apps/twampctl/commands/command_tree.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "apps/common/words.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/program_name.hpp"
#include "apps/twampctl/run/run_options.hpp"
#include "apps/twampctl/site/platform_names.hpp"

namespace twampctl {
namespace {

using olv_apps::did_you_mean;
using olv_apps::joined;

constexpr const char *command_line_intro =
    "Drives the TWAMP module on the software platform.\n"
    "Usage: twampctl [--quiet] COMMAND [OPTIONS] [then COMMAND [OPTIONS]]...\n"
    "       twampctl run [OPTIONS]\n"
    "       twampctl --version\n"
    "\n"
    "Commands:\n";

constexpr const char *command_line_end =
    "\n"
    "'twampctl COMMAND --help' explains a command. 'twampctl shell' reads commands\n"
    "from a terminal, 'twampctl script FILE' from a file. The platform lasts as long\n"
    "as the program. With --quiet only what commands are asked to show is printed.\n"
    "\n"
    "Examples:\n"
    "  twampctl run --listen 127.0.0.1:8620\n"
    "  twampctl up then responder create west then responder state west\n"
    "  twampctl --quiet up then responder create then show --format json\n";

constexpr const char *shell_end = "\n'help COMMAND' explains a command. Words in quotes stay together.\n";

bool is_option(const std::string &word)
{
    return word.size() > 1 && word[0] == '-';
}

std::vector<std::string> names_of(const CLI::App &parent)
{
    std::vector<std::string> names;
    for (const CLI::App *each : parent.get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(each->get_name());
    }
    return names;
}

std::vector<std::string> long_names_of(const CLI::App &command)
{
    std::vector<std::string> names;
    for (const CLI::Option *each : command.get_options()) {
        for (const std::string &name : each->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

CLI::App *child(CLI::App &parent, const std::string &name)
{
    CLI::App *found = nullptr;
    for (CLI::App *each : parent.get_subcommands([](const CLI::App *) { return true; })) {
        if (each->get_name() == name) {
            found = each;
        }
    }
    return found;
}

bool is_group(const CLI::App &command)
{
    return !names_of(command).empty();
}

/** Paths that begin like this; folders end in a slash. */
std::vector<std::string> files_like(const std::string &begun)
{
    namespace files = std::filesystem;
    const std::string folder = begun.substr(0, begun.rfind('/') + 1); // "" where there is no slash
    std::vector<std::string> found;
    std::error_code error; // no such folder: nothing to complete
    for (const files::directory_entry &each : files::directory_iterator(folder.empty() ? "." : folder, error)) {
        found.push_back(folder + each.path().filename().string() + (each.is_directory(error) ? "/" : ""));
    }
    return found;
}

/** The words of a command without the program: "responder create". */
std::string path_of(const CLI::App &command)
{
    const CLI::App *parent = command.get_parent();
    if (parent == nullptr) {
        return "";
    }
    const std::string above = path_of(*parent);
    return above.empty() ? command.get_name() : above + " " + command.get_name();
}

/** A message without the limits behind the kind of a value: "1 required UINT:UINT in [1 - 9] missing". */
std::string without_limits(std::string message)
{
    const std::size_t limits = message.find(" in [");
    if (limits != std::string::npos) {
        const std::size_t start = message.rfind(':', limits);
        message.erase(start, message.find(']', limits) + 1 - start);
    }
    return message;
}

/** Why the words after a command are not taken. */
std::string reason_against_words(const CLI::App &command, const CLI::ParseError &error)
{
    if (dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr) {
        const std::vector<std::string> words = command.remaining();
        const auto option = std::find_if(words.begin(), words.end(), is_option);
        if (option != words.end()) {
            return "'" + path_of(command) + "' has no option " + *option +
                   did_you_mean(*option, long_names_of(command));
        }
        return "'" + path_of(command) + "' does not take " +
               (words.empty() ? "that" : "'" + words.front() + "'");
    }
    std::string message = without_limits(error.what());
    std::replace(message.begin(), message.end(), '\n', ' ');
    if (dynamic_cast<const CLI::ConversionError *>(&error) != nullptr) {
        message += ", a number that fits there is expected";
    }
    return path_of(command) + ": " + message;
}

} // namespace

command_tree::command_tree(command_context &context)
    : context_(context),
      root_(
          std::make_unique<CLI::App>("", context.source() == command_source::command_line ? program_name : ""))
{
    olv_apps::use_help_format(*root_);
    root_->set_help_flag("-h,--help", "Print this help");
    root_->require_subcommand(0, 1); // what follows is its arguments, even where it is a command's name
    if (context.source() == command_source::command_line) {
        CLI::App &run =
            *root_->add_subcommand("run", "Answer test packets until a signal comes, then tell and end");
        const std::shared_ptr<void> places = describe_run(olv_apps::command{run});
        run.parse_complete_callback([this, places] { // the final one holds what the options fill
            chosen_ = [](command_context &) {
                throw usage_error("'run' stands alone: it brings up what it needs; try 'twampctl run --help'");
            };
        });
    }
    add_module_commands(*this);
    add_responder_commands(*this);
    add_path_commands(*this);
    add_probe_commands(*this);
    add_figure_commands(*this);
    add_log_commands(*this);
    add_platform_commands(*this);
    add_fault_commands(*this);
    add_console_commands(*this);
}

command_tree::~command_tree() = default;

olv_apps::command command_tree::add_group(const std::string &name, const std::string &summary)
{
    CLI::App *group = root_->add_subcommand(name, summary);
    group->require_subcommand(0, 1);
    return olv_apps::command{*group};
}

olv_apps::command command_tree::add(olv_apps::command parent, const command_text &text, const action &work)
{
    CLI::App *command = parent.described().add_subcommand(text.name, text.summary);
    std::string footer = text.examples.empty() ? "" : "Examples:";
    for (const std::string &each : text.examples) {
        footer += "\n  " + each;
    }
    command->footer(footer);
    command->final_callback([this, work] { chosen_ = work; });
    return olv_apps::command{*command};
}

CLI::App &command_tree::find(const std::vector<std::string> &words, bool whole)
{
    CLI::App *command = root_.get();
    for (const std::string &word : words) {
        if (is_option(word) || !is_group(*command)) {
            break;
        }
        CLI::App *next = child(*command, word);
        if (next == nullptr) {
            const std::vector<std::string> known = names_of(*command);
            std::string name = path_of(*command);
            name.append(name.empty() ? "" : " ").append(word);
            throw usage_error("there is no command '" + name + "'" + did_you_mean(word, known) + "; " +
                              advice(*command));
        }
        command = next;
    }
    const bool asks_for_help = std::any_of(
        words.begin(), words.end(), [](const std::string &word) { return word == "--help" || word == "-h"; });
    if (command == root_.get() && !asks_for_help && !words.empty() && is_option(words.front())) {
        throw usage_error("there is no option " + words.front() + " before a command; " + advice(*root_));
    }
    if (whole && is_group(*command) && !asks_for_help) {
        throw usage_error((command == root_.get() ? "a command is missing"
                                                  : "'" + path_of(*command) + "' is followed by one of " +
                                                        joined(names_of(*command))) +
                          "; " + advice(*command));
    }
    return *command;
}

std::string command_tree::advice(const CLI::App &command) const
{
    const std::string path = path_of(command);
    if (context_.source() == command_source::command_line) {
        return "try 'twampctl " + (path.empty() ? "" : path + " ") + "--help'";
    }
    return "try 'help" + (path.empty() ? "" : " " + path) + "'";
}

void command_tree::run(const std::vector<std::string> &words)
{
    CLI::App &command = find(words, true);
    try {
        root_->parse(std::vector<std::string>{words.rbegin(), words.rend()});
    } catch (const CLI::CallForHelp &) {
        (void)std::fputs(help(words).c_str(), stdout); // an error shows at exit
        return;
    } catch (const CLI::ParseError &error) {
        throw usage_error(reason_against_words(command, error) + "; " + advice(command));
    }
    chosen_(context_);
}

std::string command_tree::help(const std::vector<std::string> &words)
{
    const CLI::App &command = find(words, false);
    if (command.get_parent() == nullptr) {
        return overview();
    }
    std::string before = context_.source() == command_source::command_line ? program_name : "";
    const std::string above = path_of(*command.get_parent());
    before += (before.empty() || above.empty() ? "" : " ") + above;
    std::string text = command.help(before);
    return text.back() == '\n' ? text : text + "\n";
}

std::string command_tree::overview() const
{
    constexpr std::size_t column = 14;
    const bool for_command_line = context_.source() == command_source::command_line;
    std::string text = for_command_line ? command_line_intro : "Commands:\n";
    for (const CLI::App *each : root_->get_subcommands([](const CLI::App *) { return true; })) {
        const std::string name = each->get_name() + (is_group(*each) ? " ..." : "");
        text.append("  ").append(name).append(column - std::min(column, name.size()), ' ');
        text.append(each->get_description()).append("\n");
    }
    return text + (for_command_line ? command_line_end : shell_end);
}

std::vector<std::string> command_tree::values_of(const CLI::Option &option, const std::string &begun) const
{
    const std::string kind = option.get_type_name();
    std::vector<std::string> values;
    if (kind == value_kind::responder) {
        for (const named_responder &each : context_.current().responders()) {
            values.push_back(each.name);
        }
    } else if (kind == value_kind::processor) {
        for (const site &each : context_.sites()) {
            values.push_back(each.name());
        }
    } else if (kind == value_kind::listener) {
        values = context_.current().listeners();
    } else if (kind == value_kind::call) {
        values = failing_calls();
    } else if (kind == value_kind::tree) {
        values = tree_functions();
    } else if (kind == value_kind::file) {
        values = files_like(begun);
    } else {
        values = olv_apps::choices_of(option);
    }
    return values;
}

std::vector<std::string> command_tree::argument_candidates(const CLI::App &command,
                                                           const std::vector<std::string> &words) const
{
    if (is_option(words.back())) {
        return long_names_of(command);
    }
    const auto value_option = [&](const std::string &word) -> const CLI::Option * {
        const CLI::Option *option = is_option(word) ? command.get_option_no_throw(word) : nullptr;
        return option != nullptr && option->get_type_size() != 0 ? option : nullptr;
    };
    std::size_t given = 0; // positional words before the one that is begun
    for (std::size_t index = 0; index + 1 < words.size(); ++index) {
        if (value_option(words[index]) != nullptr) {
            ++index;
            if (index + 1 == words.size()) {
                return values_of(*value_option(words[index - 1]), words.back());
            }
        } else if (!is_option(words[index])) {
            ++given;
        }
    }
    for (const CLI::Option *each : command.get_options()) {
        if (each->get_positional() && (given-- == 0 || each->get_items_expected_max() > 1)) {
            return values_of(*each, words.back());
        }
    }
    return {};
}

std::vector<std::string> command_tree::completions(const std::vector<std::string> &words)
{
    const bool for_help = words.size() > 1 && words.front() == "help";
    CLI::App *command = root_.get();
    std::size_t position = for_help ? 1 : 0;
    for (; position + 1 < words.size() && is_group(*command); ++position) {
        command = child(*command, words[position]);
        if (command == nullptr) {
            return {};
        }
    }
    std::vector<std::string> candidates;
    if (is_group(*command)) {
        candidates = names_of(*command);
    } else if (!for_help) {
        candidates =
            argument_candidates(*command, {words.begin() + static_cast<std::ptrdiff_t>(position), words.end()});
    }
    std::vector<std::string> matching;
    std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(matching),
                 [&](const std::string &each) { return each.starts_with(words.back()); });
    std::sort(matching.begin(), matching.end());
    return matching;
}

} // namespace twampctl
