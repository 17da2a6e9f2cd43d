/**
 * @file interpreter.hpp
 * Commands from their text: lines, scripts, and chains on a command line.
 */
#ifndef OLV_TWAMPCTL_INTERPRETER_HPP
#define OLV_TWAMPCTL_INTERPRETER_HPP

#include <string>
#include <string_view>
#include <vector>

#include "apps/twampctl/commands/command_context.hpp"

namespace twampctl {

/** The words of a line: separated by blanks, kept together by quotes or a backslash. A word that begins with #
 * begins a comment. @throw usage_error  A quote is not closed. */
[[nodiscard]] std::vector<std::string> words_of(const std::string &line);

/** Read and run one command; no words: nothing. @throw usage_error, std::runtime_error. */
void execute(command_context &context, const std::vector<std::string> &words);

struct script_options {
    std::string file;        ///< "-": standard input.
    bool keep_going = false; ///< Report a failure and go on.
    bool echo = false;       ///< Print each command before it is run.
};

/** Run a script. @throw std::runtime_error  "FILE:LINE: what failed", or how many commands did. */
void run_script(command_context &context, const script_options &options);

/** Between two commands of a chain. */
inline constexpr std::string_view separator = "then";

/** Run a chain of commands; the first failure ends it. */
void run_chain(command_context &context, const std::vector<std::string> &words);

} // namespace twampctl

#endif
