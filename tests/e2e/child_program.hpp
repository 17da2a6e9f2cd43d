/**
 * @file child_program.hpp
 * A program that a test has started: its output, its end.
 */
#ifndef OLV_TESTS_CHILD_PROGRAM_HPP
#define OLV_TESTS_CHILD_PROGRAM_HPP

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace e2e {

/** Longer than anything that a test waits for; a program that takes longer is killed. */
inline constexpr std::chrono::seconds patience{60};

class child_program {
  public:
    /** Call in the child before the program begins; only calls that are safe after fork(). false: exit 99. */
    using preparation = std::function<bool()>;

    child_program(const std::string &path, const std::vector<std::string> &arguments,
                  const preparation &prepare = {});
    /** Kills a program that still runs. */
    ~child_program();
    child_program(const child_program &) = delete;
    child_program &operator=(const child_program &) = delete;

    void send_signal(int number) const;
    /** @return The exit status; 128 and the signal's number after a signal; -1 when it had to be killed. */
    int wait();
    /** Wait for a line of standard output that begins with @p start. @return It, or "" when none comes. */
    [[nodiscard]] std::string wait_for_line(const std::string &start) const;
    /** The same of standard error. */
    [[nodiscard]] std::string wait_for_error_line(const std::string &start) const;
    /** Wait until its first thread sleeps. @return Whether it did before the program ended. */
    [[nodiscard]] bool wait_until_asleep() const;

    /** What was written so far. */
    [[nodiscard]] std::string output() const;
    [[nodiscard]] std::string errors() const;

  private:
    [[nodiscard]] std::string wait_for_line(int descriptor, const std::string &start) const;
    /** @return Whether @p condition held before the program ended, or patience did. */
    [[nodiscard]] bool holds_in_time(const std::function<bool()> &condition) const;
    /** @return Whether the program ended in this time. */
    [[nodiscard]] bool has_ended(std::chrono::milliseconds limit) const;

    int output_ = -1;
    int errors_ = -1;
    pid_t process_ = -1;
    int process_descriptor_ = -1;
    bool waited_ = false;
};

struct finished_program {
    int status;
    std::string output;
    std::string errors;
};

/** Run a program to its end. */
[[nodiscard]] finished_program run_program(const std::string &path, const std::vector<std::string> &arguments,
                                           const child_program::preparation &prepare = {});

} // namespace e2e

#endif
