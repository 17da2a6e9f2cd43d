#include "apps/twampctl/console/interpreter.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include "apps/common/errors.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/program_name.hpp"

namespace twampctl {
namespace {

constexpr int deepest_script = 16; ///< Scripts that run scripts: one that runs itself ends.

/** Counts the scripts that run each other; meanwhile errors give the advice that fits in scripts. */
class script_depth {
  public:
    script_depth(command_context &context, const std::string &file)
        : context_(context), outside_(context.source())
    {
        if (depth() >= deepest_script) {
            throw std::runtime_error(file + ": scripts run each other more than " +
                                     std::to_string(deepest_script) + " deep");
        }
        ++depth();
        if (outside_ == command_source::command_line) {
            context_.set_source(command_source::script);
        }
    }
    ~script_depth()
    {
        --depth();
        context_.set_source(outside_);
    }
    script_depth(const script_depth &) = delete;
    script_depth &operator=(const script_depth &) = delete;

  private:
    static int &depth()
    {
        static int now = 0;
        return now;
    }

    command_context &context_;
    command_source outside_;
};

/** A line without its comment, whose quotes need not be closed, and without a carriage return at its end. */
std::string without_comment(const std::string &line)
{
    char quote = 0; // that is open
    bool between_words = true;
    std::size_t index = 0;
    for (; index < line.size() && !(line[index] == '#' && between_words); ++index) {
        const char here = line[index];
        between_words = quote == 0 && (here == ' ' || here == '\t');
        if (here == '\\' && quote != '\'') {
            ++index;
        } else if (quote == 0 && (here == '"' || here == '\'')) {
            quote = here;
        } else if (here == quote) {
            quote = 0;
        }
    }
    std::string text = line.substr(0, index);
    if (!text.empty() && text.back() == '\r') {
        text.pop_back();
    }
    return text;
}

void open_script(const std::string &file, std::ifstream &opened)
{
    opened.open(file);
    if (!opened) {
        throw std::runtime_error("cannot read " + file + ": " + std::strerror(errno));
    }
}

/** Wait until standard input has something to read, or a signal comes. */
void wait_for_input(const command_context &context)
{
    if (std::cin.rdbuf()->in_avail() > 0) {
        return;
    }
    std::array<pollfd, 2> watched{{{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                                   {.fd = context.signals().descriptor(), .events = POLLIN, .revents = 0}}};
    while (poll(watched.data(), watched.size(), -1) < 0 && errno == EINTR) {
    }
}

/** A command of a chain. */
void execute_next(command_context &context, const std::vector<std::string> &command)
{
    if (command.empty()) {
        throw usage_error("a command is missing beside 'then'; try 'twampctl --help'");
    }
    if (context.signals().arrived()) {
        throw std::runtime_error("interrupted before '" + command.front() + "'");
    }
    if (!context.is_over()) {
        execute(context, command);
    }
}

} // namespace

std::vector<std::string> words_of(const std::string &line)
{
    const std::string text = without_comment(line) + "\n"; // a backslash at the end would be lost
    const std::unique_ptr<Tokenizer, decltype(&tok_end)> tokenizer{tok_init(nullptr), tok_end};
    int count = 0;
    const char **texts = nullptr;
    if (tokenizer == nullptr) {
        throw std::bad_alloc();
    }
    if (tok_str(tokenizer.get(), text.c_str(), &count, &texts) != 0) {
        throw usage_error("a quote is not closed, or the line ends in a backslash");
    }
    return {texts, texts + count};
}

void execute(command_context &context, const std::vector<std::string> &words)
{
    if (!words.empty()) {
        command_tree{context}.run(words);
    }
}

void run_script(command_context &context, const script_options &options)
{
    const script_depth depth{context, options.file};
    std::ifstream opened;
    if (options.file != "-") {
        open_script(options.file, opened);
    }
    std::istream &lines = options.file == "-" ? std::cin : opened;
    const std::string name = options.file == "-" ? "standard input" : options.file;
    unsigned failures = 0;
    unsigned number = 0;
    for (std::string line; !context.is_over();) {
        ++number;
        const std::string place = name + ":" + std::to_string(number) + ": ";
        if (&lines == &std::cin) {
            wait_for_input(context);
        }
        if (context.signals().arrived()) {
            throw std::runtime_error(place + "interrupted before this line");
        }
        if (!std::getline(lines, line)) {
            break;
        }
        if (options.echo) {
            std::printf("%s\n", line.empty() ? "" : ("> " + line).c_str());
        }
        try {
            execute(context, words_of(line));
        } catch (const std::exception &error) {
            if (!options.keep_going) {
                throw std::runtime_error(place + error.what());
            }
            olv_apps::report_error(program_name, "%s%s", place.c_str(), olv_apps::text_of(error).c_str());
            ++failures;
        }
    }
    if (lines.bad()) {
        throw std::runtime_error("cannot read " + name + " to its end");
    }
    if (failures != 0) {
        throw std::runtime_error(name + ": " + std::to_string(failures) +
                                 (failures == 1 ? " command failed" : " commands failed"));
    }
}

void run_chain(command_context &context, const std::vector<std::string> &words)
{
    std::vector<std::string> command;
    for (const std::string &word : words) {
        if (word != separator) {
            command.push_back(word);
            continue;
        }
        execute_next(context, command);
        command.clear();
    }
    execute_next(context, command);
}

} // namespace twampctl
