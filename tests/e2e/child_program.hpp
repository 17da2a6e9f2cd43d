/**
 * @file child_program.hpp
 * A program that a test has started: its input, its output, its end.
 */
#ifndef OLV_TESTS_CHILD_PROGRAM_HPP
#define OLV_TESTS_CHILD_PROGRAM_HPP

#include <chrono>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include <sys/types.h>

namespace e2e {

/** Longer than anything that a test waits for; a program that takes longer is killed. */
inline constexpr std::chrono::seconds patience{60};

/** @return Whether @p condition held before patience ended. */
[[nodiscard]] bool holds_in_time(const std::function<bool()> &condition);

/** What a program did. */
struct finished_program {
    int status = 0; ///< 128 and the signal's number after a signal; -1 when it had to be killed.
    std::string output;
    std::string errors;

    bool operator==(const finished_program &) const = default;
};
void PrintTo(const finished_program &program, std::ostream *out);
/** A program that ended like this. */
[[nodiscard]] finished_program ends(int status, const std::string &output, const std::string &errors);
/** A program that did what it was told and printed this. */
[[nodiscard]] finished_program prints(const std::string &output);

/** Where a program writes. */
enum class stream : std::uint8_t { output, errors };

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
    /** Write to its standard input. */
    void feed(const std::string &text) const;
    /** End its standard input, and wait for its end. */
    finished_program wait();
    /** Send it a signal and wait for its end. */
    finished_program stop(int signal);

    /** Wait for a line that begins like this. @return The rest of it.
     *  @throw std::runtime_error  None comes: what came instead. */
    [[nodiscard]] std::string wait_for_line(const std::string &start, stream from = stream::output) const;
    /** Wait until all its threads sleep. @return Whether they did before the program ended. */
    [[nodiscard]] bool wait_until_asleep() const;
    /** That it has used so far. */
    [[nodiscard]] std::chrono::nanoseconds processor_time() const;

    /** What was written so far. */
    [[nodiscard]] std::string written(stream to = stream::output) const;

  private:
    /** @return Whether @p condition held before the program ended, or patience did. */
    [[nodiscard]] bool holds_while_it_runs(const std::function<bool()> &condition) const;
    /** @return Whether the program ended in this time. */
    [[nodiscard]] bool has_ended(std::chrono::milliseconds limit) const;

    int input_ = -1;
    int output_ = -1;
    int errors_ = -1;
    pid_t process_ = -1;
    int process_descriptor_ = -1;
    bool waited_ = false;
};

} // namespace e2e

#endif
