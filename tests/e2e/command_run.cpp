#include "command_run.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace e2e {

std::vector<std::string> words_of(const std::string &line)
{
    std::istringstream rest{line};
    std::vector<std::string> words;
    for (std::string word; rest >> word;) {
        words.push_back(word);
    }
    return words;
}

finished_program run_commands(const std::string &line)
{
    return run_program(TWAMPCTL, words_of(line));
}

finished_program run_commands(const std::string &line, const std::string &input)
{
    const int file = memfd_create("input", MFD_CLOEXEC);
    if (file < 0 || pwrite(file, input.data(), input.size(), 0) != static_cast<ssize_t>(input.size())) {
        throw std::runtime_error("no input can be made");
    }
    const finished_program finished =
        run_program(TWAMPCTL, words_of(line), [file] { return dup2(file, STDIN_FILENO) == STDIN_FILENO; });
    (void)close(file); // it was read
    return finished;
}

std::string without_places(const std::string &text)
{
    static const std::regex line{" ([a-z_]+\\.c):[0-9]+ "};
    static const std::regex handle{"handle 0x[0-9a-f]{8,}"};
    return std::regex_replace(std::regex_replace(text, line, " $1:LINE "), handle, "handle HANDLE");
}

conversation::pipe_ends::pipe_ends()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe can be made");
    }
    read = ends[0];
    write = ends[1];
}

conversation::conversation(const std::string &line)
    : program_(TWAMPCTL, words_of(line), [this] { return dup2(pipe_.read, STDIN_FILENO) == STDIN_FILENO; })
{
    (void)close(pipe_.read); // the program has it
}

conversation::~conversation()
{
    (void)close(pipe_.write); // so that the program ends; -1 when it was closed
}

void conversation::tell(const std::string &command) const
{
    const std::string line = command + "\n";
    if (write(pipe_.write, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        throw std::runtime_error("the program takes no command");
    }
}

finished_program conversation::end()
{
    (void)close(std::exchange(pipe_.write, -1)); // the program sees the end
    const int status = program_.wait();
    return {.status = status, .output = program_.output(), .errors = program_.errors()};
}

script_folder::script_folder()
{
    std::string pattern = std::filesystem::temp_directory_path() / "olv-twamp-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no folder " + pattern);
    }
    path_ = pattern;
}

script_folder::~script_folder()
{
    std::error_code error; // an empty folder that stays harms nobody
    std::filesystem::remove_all(path_, error);
}

void script_folder::write(const std::string &name, const std::string &text) const
{
    std::ofstream{path_ + "/" + name} << text;
}

std::string script_folder::read(const std::string &name) const
{
    std::ostringstream text;
    text << std::ifstream{path_ + "/" + name}.rdbuf();
    return text.str();
}

finished_program script_folder::run(const std::string &line) const
{
    return run_program(TWAMPCTL, words_of(line), enter());
}

child_program::preparation script_folder::enter() const
{
    return [this] { return chdir(path_.c_str()) == 0; };
}

} // namespace e2e
