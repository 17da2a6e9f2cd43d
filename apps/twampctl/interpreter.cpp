#include "interpreter.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include <histedit.h>

#include "command_line.hpp"
#include "command_tree.hpp"
#include "run_options.hpp"

namespace twampctl {
namespace {

constexpr const char *separator = "then";
constexpr int deepest_script = 16; ///< Scripts that run scripts: one that runs itself ends.

/** Counts the scripts that are being run. */
class script_depth {
  public:
    explicit script_depth(const std::string &file)
    {
        if (depth() >= deepest_script) {
            throw std::runtime_error(file + ": scripts run each other more than " +
                                     std::to_string(deepest_script) + " deep");
        }
        ++depth();
    }
    ~script_depth() { --depth(); }
    script_depth(const script_depth &) = delete;
    script_depth &operator=(const script_depth &) = delete;

  private:
    static int &depth()
    {
        static int now = 0;
        return now;
    }
};

void open_script(const std::string &file, std::ifstream &opened)
{
    opened.open(file);
    if (!opened) {
        throw std::runtime_error("cannot read " + file + ": " + std::strerror(errno));
    }
}

} // namespace

std::vector<std::string> words_of(const std::string &line)
{
    const std::unique_ptr<Tokenizer, decltype(&tok_end)> tokenizer{tok_init(nullptr), tok_end};
    int count = 0;
    const char **texts = nullptr;
    if (tokenizer == nullptr) {
        throw std::bad_alloc();
    }
    if (tok_str(tokenizer.get(), line.c_str(), &count, &texts) != 0) {
        throw usage_error("a quote is not closed, or the line ends in a backslash");
    }
    std::vector<std::string> words;
    for (int index = 0; index < count && texts[index][0] != '#'; ++index) {
        words.emplace_back(texts[index]);
    }
    return words;
}

void execute(testbed &bed, const std::vector<std::string> &words)
{
    if (!words.empty()) {
        command_tree{bed}.run(words);
    }
}

void run_script(testbed &bed, const script_options &options)
{
    const script_depth depth{options.file};
    std::ifstream opened;
    if (options.file != "-") {
        open_script(options.file, opened);
    }
    std::istream &lines = options.file == "-" ? std::cin : opened;
    const std::string name = options.file == "-" ? "standard input" : options.file;
    unsigned failures = 0;
    unsigned number = 0;
    for (std::string line; !bed.is_over() && std::getline(lines, line);) {
        ++number;
        const std::string place = name + ":" + std::to_string(number) + ": ";
        if (bed.signals().arrived()) {
            throw std::runtime_error(place + "interrupted before this line");
        }
        if (options.echo) {
            std::printf("%s\n", line.empty() ? "" : ("> " + line).c_str());
        }
        try {
            execute(bed, words_of(line));
        } catch (const std::exception &error) {
            if (!options.keep_going) {
                throw std::runtime_error(place + error.what());
            }
            olv_apps::report_error(program_name, "%s%s", place.c_str(), error.what());
            ++failures;
        }
    }
    if (lines.bad()) {
        throw std::runtime_error("cannot read " + name + " to its end");
    }
    if (failures != 0) {
        throw std::runtime_error(name + ": " + std::to_string(failures) + " commands failed");
    }
}

void run_chain(testbed &bed, const std::vector<std::string> &words)
{
    std::vector<std::string> command;
    for (const std::string &word : words) {
        if (word != separator) {
            command.push_back(word);
            continue;
        }
        execute(bed, command);
        if (bed.is_over()) {
            return;
        }
        command.clear();
    }
    execute(bed, command);
}

} // namespace twampctl
