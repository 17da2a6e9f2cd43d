#include "child_program.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace e2e {
namespace {

constexpr int preparation_failed = 99;
constexpr int program_missing = 98;

std::string content_of(int descriptor)
{
    std::string content;
    std::array<char, 4096> piece{};
    for (;;) {
        const ssize_t length =
            pread(descriptor, piece.data(), piece.size(), static_cast<off_t>(content.size()));
        if (length <= 0) {
            return content;
        }
        content.append(piece.data(), static_cast<std::size_t>(length));
    }
}

[[noreturn]] void become(char *const *arguments, int input, int output, int errors,
                         const child_program::preparation &prepare)
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that crashes leaves nothing running
    (void)std::signal(SIGPIPE, SIG_DFL);
    if (prepare && !prepare()) {
        _exit(preparation_failed);
    }
    if (dup2(input, STDIN_FILENO) >= 0 && dup2(output, STDOUT_FILENO) >= 0 &&
        dup2(errors, STDERR_FILENO) >= 0) {
        execv(arguments[0], arguments);
    }
    _exit(program_missing);
}

} // namespace

bool holds_in_time(const std::function<bool()> &condition)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

void PrintTo(const finished_program &program, std::ostream *out)
{
    *out << "status " << program.status << "\noutput:\n" << program.output << "errors:\n" << program.errors;
}

finished_program ends(int status, const std::string &output, const std::string &errors)
{
    return {.status = status, .output = output, .errors = errors};
}

finished_program prints(const std::string &output)
{
    return ends(0, output, "");
}

child_program::child_program(const std::string &path, const std::vector<std::string> &arguments,
                             const preparation &prepare)
    : output_(memfd_create("output", MFD_CLOEXEC)), errors_(memfd_create("errors", MFD_CLOEXEC))
{
    std::string program = path;
    std::vector<std::string> copies = arguments;
    std::vector<char *> pointers{program.data()};
    for (std::string &argument : copies) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN); // feed() sees that nobody reads
    std::array<int, 2> pipe_ends{};
    process_ = pipe2(pipe_ends.data(), O_CLOEXEC) == 0 ? fork() : -1;
    if (process_ == 0) {
        become(pointers.data(), pipe_ends[0], output_, errors_, prepare);
    }
    if (process_ < 0) {
        throw std::runtime_error("no program can be started: " + std::string(std::strerror(errno)));
    }
    (void)close(pipe_ends[0]); // the program has it
    input_ = pipe_ends[1];
    process_descriptor_ = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
}

child_program::~child_program()
{
    if (!waited_) {
        send_signal(SIGKILL);
        (void)waitpid(process_, nullptr, 0); // it is gone either way
    }
    for (const int descriptor : {input_, output_, errors_, process_descriptor_}) {
        (void)close(descriptor); // all was read
    }
}

void child_program::send_signal(int number) const
{
    (void)kill(process_, number); // our own child, not waited for yet: it exists
}

bool child_program::has_ended(std::chrono::milliseconds limit) const
{
    pollfd watched{.fd = process_descriptor_, .events = POLLIN, .revents = 0};
    return poll(&watched, 1, static_cast<int>(limit.count())) > 0;
}

void child_program::feed(const std::string &text) const
{
    if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the program takes no input; printed: " + written() + written(stream::errors));
    }
}

finished_program child_program::wait()
{
    (void)close(std::exchange(input_, -1)); // it was empty, or has been written
    const bool in_time = has_ended(patience);
    if (!in_time) {
        send_signal(SIGKILL);
    }
    int status = 0;
    (void)waitpid(process_, &status, 0); // our own child
    waited_ = true;
    const int ended = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return ends(in_time ? ended : -1, written(), written(stream::errors));
}

finished_program child_program::stop(int signal)
{
    send_signal(signal);
    return wait();
}

std::string child_program::wait_for_line(const std::string &start, stream from) const
{
    std::string rest;
    const auto is_there = [&] {
        std::istringstream lines{written(from)};
        for (std::string line; std::getline(lines, line) && !lines.eof();) {
            if (line.starts_with(start)) {
                rest = line.substr(start.size());
                return true;
            }
        }
        return false;
    };
    if (!holds_while_it_runs(is_there)) {
        throw std::runtime_error("no line '" + start + "'; printed: " + written() + written(stream::errors));
    }
    return rest;
}

bool child_program::wait_until_asleep() const
{
    const auto sleeps = [](const std::filesystem::directory_entry &thread) {
        std::ifstream file{thread.path() / "stat"};
        std::string text;
        std::getline(file, text);
        const std::size_t name_end = text.rfind(") "); // the state follows the name
        return name_end != std::string::npos && text.compare(name_end + 2, 1, "S") == 0;
    };
    return holds_while_it_runs([&] {
        const std::filesystem::directory_iterator threads{"/proc/" + std::to_string(process_) + "/task"};
        return std::all_of(begin(threads), end(threads), sleeps);
    });
}

std::chrono::nanoseconds child_program::processor_time() const
{
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &used) != 0) {
        throw std::runtime_error("the system tells no processor time");
    }
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

bool child_program::holds_while_it_runs(const std::function<bool()> &condition) const
{
    bool held = false;
    (void)holds_in_time([&] {
        const bool last = has_ended(std::chrono::milliseconds(0)); // what it wrote is there now
        held = condition();
        return held || last;
    });
    return held;
}

std::string child_program::written(stream to) const
{
    return content_of(to == stream::output ? output_ : errors_);
}

} // namespace e2e
