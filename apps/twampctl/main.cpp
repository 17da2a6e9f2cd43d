#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "apps/common/errors.hpp"
#include "apps/twampctl/commands/command_context.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/console/interpreter.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/run/run.hpp"
#include "apps/twampctl/run/run_options.hpp"

namespace twampctl {
namespace {

constexpr std::string_view run_word = "run";

/** @param words  Behind "run". */
int run_from(const std::vector<std::string> &words)
{
    run_options options;
    const std::optional<int> early = read_options(words, options);
    return early ? *early : run(options);
}

/** What may stand in place of the last of these words, which is only begun: "then" begins a new command. */
std::vector<std::string> candidates_for(const std::vector<std::string> &words)
{
    const std::string &begun = words.back();
    const auto last_separator = std::find(std::next(words.rbegin()), words.rend(), separator);
    const std::vector<std::string> command{last_separator.base(), words.end()};
    const bool is_first = last_separator == words.rend();

    const olv_apps::signal_watch signals;
    command_context context{signals, command_source::command_line};
    std::vector<std::string> candidates = command_tree{context}.completions(command);
    if (command.size() == 1 && !is_first) {
        std::erase(candidates, run_word); // it stands alone
    }
    if (command.size() > 1 && command.front() != run_word && !begun.empty() && separator.starts_with(begun)) {
        candidates.emplace_back(separator);
    }
    return candidates;
}

/** For the completion of the system's shell. */
int print_completions(const std::vector<std::string> &words)
{
    for (const std::string &each : candidates_for(words.empty() ? std::vector<std::string>{""} : words)) {
        std::printf("%s\n", each.c_str());
    }
    return olv_apps::exit_good;
}

command_source source_of(const std::vector<std::string> &words)
{
    return words == std::vector<std::string>{"shell"} ? command_source::shell : command_source::command_line;
}

/** What to do about a module that is not up. */
const char *advice(command_context &context, const std::vector<std::string> &words, const std::exception &error)
{
    const bool needs_it = dynamic_cast<const step_failure *>(&error) != nullptr ||
                          words.front() == "responder" || words.front() == "listen";
    const bool brings_up = std::any_of(
        words.begin(), words.end(), [](const std::string &word) { return word == "up" || word == "script"; });
    return !needs_it || brings_up || context.current().is_up()
               ? ""
               : "\ntwampctl: each twampctl begins with nothing up; try 'twampctl up then ...'";
}

/** @return The status to exit with, should everything be taken down well. */
int run_words(command_context &context, const std::vector<std::string> &words)
{
    try {
        run_chain(context, words);
        return olv_apps::exit_good;
    } catch (const usage_error &error) {
        olv_apps::report_error(program_name, "%s", error.what());
        return olv_apps::exit_usage;
    } catch (const std::exception &error) {
        olv_apps::report_error(program_name, "%s%s", olv_apps::text_of(error).c_str(),
                               advice(context, words, error));
        return olv_apps::exit_failed;
    }
}

int run_commands(const std::vector<std::string> &words)
{
    const olv_apps::signal_watch signals; // before the fast path's threads
    command_context context{signals, source_of(words)};
    const int status = run_words(context, words);
    if (context.source() != command_source::shell) {
        context.silence(); // the end of the program undoes everything
    }
    const bool clean = context.tear_down();
    return status == olv_apps::exit_good && !clean ? olv_apps::exit_failed : status;
}

int dispatch(int argc, char **argv)
{
    std::vector<std::string> words{argv + 1, argv + argc};
    const bool quiet = !words.empty() && words.front() == "--quiet";
    if (quiet) {
        say_to(nullptr); // what commands show is all that is to be read
        words.erase(words.begin());
    }
    if (words.empty()) {
        return run_commands({"help"}) == olv_apps::exit_good ? olv_apps::exit_usage : olv_apps::exit_failed;
    }
    if (words.front() == "--version") {
        std::printf("%s %s\n", program_name, OLV_TWAMP_VERSION);
        return olv_apps::exit_good;
    }
    if (words.front() == run_word) {
        words.erase(words.begin());
        if (quiet) {
            words.insert(words.begin(), "--quiet"); // it has no such option, and says so
        }
        return run_from(words);
    }
    if (words.front() == "--complete") {
        return print_completions({words.begin() + 1, words.end()});
    }
    return run_commands(words);
}

} // namespace
} // namespace twampctl

int main(int argc, char **argv)
{
    // The library prints to the same stream; line by line, the order holds in files and pipes, too.
    (void)std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::ios::sync_with_stdio(false); // a script on standard input is read through a buffer
    int status = olv_apps::exit_failed;
    try {
        status = twampctl::dispatch(argc, argv);
    } catch (const std::exception &error) {
        olv_apps::report_error(twampctl::program_name, "%s", olv_apps::text_of(error).c_str());
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        olv_apps::report_error(twampctl::program_name, "standard output is not complete");
        return olv_apps::exit_failed;
    }
    return status;
}
