#include "child_program.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

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

[[noreturn]] void become(char *const *arguments, int output, int errors,
                         const child_program::preparation &prepare)
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that crashes leaves nothing running
    if (prepare && !prepare()) {
        _exit(preparation_failed);
    }
    if (dup2(output, STDOUT_FILENO) >= 0 && dup2(errors, STDERR_FILENO) >= 0) {
        execv(arguments[0], arguments);
    }
    _exit(program_missing);
}

} // namespace

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
    process_ = fork();
    if (process_ == 0) {
        become(pointers.data(), output_, errors_, prepare);
    }
    if (process_ < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    }
    process_descriptor_ = static_cast<int>(syscall(SYS_pidfd_open, process_, 0));
}

child_program::~child_program()
{
    if (!waited_) {
        send_signal(SIGKILL);
        (void)waitpid(process_, nullptr, 0); // it is gone either way
    }
    for (const int descriptor : {output_, errors_, process_descriptor_}) {
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

int child_program::wait()
{
    const bool in_time = has_ended(patience);
    if (!in_time) {
        send_signal(SIGKILL);
    }
    int status = 0;
    (void)waitpid(process_, &status, 0); // our own child
    waited_ = true;
    if (!in_time) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string child_program::wait_for_line(const std::string &start) const
{
    return wait_for_line(output_, start);
}

std::string child_program::wait_for_error_line(const std::string &start) const
{
    return wait_for_line(errors_, start);
}

std::string child_program::wait_for_line(int descriptor, const std::string &start) const
{
    std::string line;
    (void)holds_in_time([&] {
        const std::string text = '\n' + content_of(descriptor);
        const std::size_t found = text.find('\n' + start);
        const std::size_t newline = found == std::string::npos ? found : text.find('\n', found + 1);
        if (newline != std::string::npos) {
            line = text.substr(found + 1, newline - found - 1);
        }
        return !line.empty();
    });
    return line;
}

bool child_program::wait_until_asleep() const
{
    return holds_in_time([&] {
        std::ifstream file{"/proc/" + std::to_string(process_) + "/stat"};
        std::string text;
        std::getline(file, text);
        const std::size_t name_end = text.rfind(") "); // the state follows the name
        return name_end != std::string::npos && text.compare(name_end + 2, 1, "S") == 0;
    });
}

bool child_program::holds_in_time(const std::function<bool()> &condition) const
{
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        const bool last = has_ended(std::chrono::milliseconds(0)) || std::chrono::steady_clock::now() >= end;
        if (condition()) {
            return true;
        }
        if (last) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

std::string child_program::output() const
{
    return content_of(output_);
}

std::string child_program::errors() const
{
    return content_of(errors_);
}

finished_program run_program(const std::string &path, const std::vector<std::string> &arguments,
                             const child_program::preparation &prepare)
{
    child_program program{path, arguments, prepare};
    const int status = program.wait();
    return {.status = status, .output = program.output(), .errors = program.errors()};
}

} // namespace e2e
