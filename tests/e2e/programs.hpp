/**
 * @file programs.hpp
 * The two programs as a user runs them: to their end, told command after command, or answering packets.
 */
#ifndef OLV_TESTS_PROGRAMS_HPP
#define OLV_TESTS_PROGRAMS_HPP

#include <initializer_list>
#include <string>
#include <vector>

#include "child_program.hpp"

namespace e2e {

constexpr const char *nothing_left = "left behind: 0 blocks, 0 responder IDs, 0 responder entries, "
                                     "0 bind entries, 0 patterns, 0 violations\n";

/** The words of a line, which are separated by blanks. */
[[nodiscard]] std::vector<std::string> words_of(const std::string &line);

/** Run "twampctl LINE" to its end. */
[[nodiscard]] finished_program twampctl(const std::string &line,
                                        const child_program::preparation &prepare = {});
/** The same with words that may have blanks. */
[[nodiscard]] finished_program twampctl(const std::vector<std::string> &words);
/** The same with this on standard input. */
[[nodiscard]] finished_program twampctl_reading(const std::string &input, const std::string &line);
/** Run "twamp-probe LINE" to its end. */
[[nodiscard]] finished_program twamp_probe(const std::string &line);
/** The same with replies that all come, however long they take. */
[[nodiscard]] finished_program measure(const std::string &line);
/** Run a command of the system's shell, which finds @p words as "$@". */
[[nodiscard]] finished_program in_shell(const std::string &command, const std::vector<std::string> &words);

/** How many lines of the text contain this. */
[[nodiscard]] int count_lines(const std::string &text, const std::string &part);
/** Source lines and addresses of records, which say nothing here, as "LINE" and "ADDRESS". */
[[nodiscard]] std::string without_places(const std::string &text);

/** A twampctl that answers packets. */
class control_program : public child_program {
  public:
    /** Waits until it is ready. @param options  What follows "run". */
    explicit control_program(const std::string &options);

    /** Where it answers. @param index  Of the listener. */
    [[nodiscard]] const std::string &address(std::size_t index = 0) const { return addresses_.at(index); }

  private:
    std::vector<std::string> addresses_;
};

/** A twampctl that is told command after command. */
class conversation : public child_program {
  public:
    explicit conversation(const std::string &line = "script -");

    void tell(const std::string &command) const { feed(command + "\n"); }
    void tell(std::initializer_list<std::string> commands) const;
    /** Give it a command and wait for a line that begins like this. @return The rest of the line. */
    [[nodiscard]] std::string ask(const std::string &command, const std::string &start) const;
};

/** A folder of the test's own. */
class test_folder {
  public:
    test_folder();
    /** Removes it with all that is in it. */
    ~test_folder();
    test_folder(const test_folder &) = delete;
    test_folder &operator=(const test_folder &) = delete;

    [[nodiscard]] std::string path(const std::string &name) const { return path_ + "/" + name; }
    void write(const std::string &name, const std::string &text) const;
    [[nodiscard]] std::string read(const std::string &name) const;
    [[nodiscard]] std::vector<std::string> names() const;
    /** Has a program run there. */
    [[nodiscard]] child_program::preparation enter() const;

  private:
    std::string path_;
};

} // namespace e2e

#endif
