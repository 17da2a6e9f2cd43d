#include "programs.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <unistd.h>

#include "source_lines.hpp"

namespace e2e {
namespace {

finished_program run(const std::string &path, const std::vector<std::string> &arguments,
                     const child_program::preparation &prepare = {})
{
    return child_program{path, arguments, prepare}.wait();
}

} // namespace

std::vector<std::string> words_of(const std::string &line)
{
    std::istringstream rest{line};
    std::vector<std::string> words;
    for (std::string word; rest >> word;) {
        words.push_back(word);
    }
    return words;
}

finished_program twampctl(const std::string &line, const child_program::preparation &prepare)
{
    return run(TWAMPCTL, words_of(line), prepare);
}

finished_program twampctl(const std::vector<std::string> &words)
{
    return run(TWAMPCTL, words);
}

finished_program twampctl_reading(const std::string &input, const std::string &line)
{
    child_program program{TWAMPCTL, words_of(line)};
    program.feed(input);
    return program.wait();
}

finished_program twamp_probe(const std::string &line)
{
    return run(TWAMP_PROBE, words_of(line));
}

finished_program measure(const std::string &line)
{
    return twamp_probe(line + " --timeout 60");
}

finished_program in_shell(const std::string &command, const std::vector<std::string> &words)
{
    std::vector<std::string> all{"-c", command, "sh"};
    all.insert(all.end(), words.begin(), words.end());
    return run("/bin/sh", all);
}

int count_lines(const std::string &text, const std::string &part)
{
    std::istringstream lines{text};
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

std::string without_places(const std::string &text)
{
    std::string result = olv_test::without_source_lines(text);
    for (const std::string record : {"handle ", "module "}) {
        for (std::size_t at = 0; (at = result.find(record + "0x", at)) != std::string::npos;) {
            at += record.size();
            result.replace(at, result.find_first_of(" \n", at) - at, "ADDRESS");
        }
    }
    return result;
}

control_program::control_program(const std::string &options)
    : child_program(TWAMPCTL, words_of("run " + options)), addresses_(words_of(wait_for_line("ready ")))
{}

conversation::conversation(const std::string &line) : child_program(TWAMPCTL, words_of(line)) {}

void conversation::tell(std::initializer_list<std::string> commands) const
{
    for (const std::string &each : commands) {
        tell(each);
    }
}

std::string conversation::ask(const std::string &command, const std::string &start) const
{
    tell(command);
    return wait_for_line(start);
}

test_folder::test_folder()
{
    std::string pattern = std::filesystem::temp_directory_path() / "olv-twamp-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no folder " + pattern);
    }
    path_ = pattern;
}

test_folder::~test_folder()
{
    std::error_code error; // a folder that stays harms nobody
    std::filesystem::remove_all(path_, error);
}

void test_folder::write(const std::string &name, const std::string &text) const
{
    std::ofstream{path(name)} << text;
}

std::string test_folder::read(const std::string &name) const
{
    std::ostringstream text;
    text << std::ifstream{path(name)}.rdbuf();
    return text.str();
}

std::vector<std::string> test_folder::names() const
{
    std::vector<std::string> all;
    for (const auto &entry : std::filesystem::directory_iterator(path_)) {
        all.push_back(entry.path().filename().string());
    }
    return all;
}

child_program::preparation test_folder::enter() const
{
    return [this] { return chdir(path_.c_str()) == 0; };
}

} // namespace e2e
