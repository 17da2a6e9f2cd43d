/**
 * @file command_run.hpp
 * Commands of twampctl as a user gives them: on a command line, in a script, through standard input.
 */
#ifndef OLV_TESTS_COMMAND_RUN_HPP
#define OLV_TESTS_COMMAND_RUN_HPP

#include <string>
#include <vector>

#include "child_program.hpp"

namespace e2e {

/** The words of a command line, which are separated by single blanks. */
[[nodiscard]] std::vector<std::string> words_of(const std::string &line);

/** Run "twampctl LINE" to its end. */
[[nodiscard]] finished_program run_commands(const std::string &line);

/** The same with this on standard input. */
[[nodiscard]] finished_program run_commands(const std::string &line, const std::string &input);

/** Source lines and addresses, which say nothing here, as "LINE" and "HANDLE". */
[[nodiscard]] std::string without_places(const std::string &text);

/** Names a test of a table by its row. */
inline const auto label_of = [](const auto &row) { return std::string(row.param.label); };

/** A twampctl that is told command after command through a pipe. */
class conversation {
  public:
    explicit conversation(const std::string &line = "script -");
    ~conversation();
    conversation(const conversation &) = delete;
    conversation &operator=(const conversation &) = delete;

    /** Give it a command. */
    void tell(const std::string &command) const;
    [[nodiscard]] child_program &program() { return program_; }
    /** No more commands. @return What it did. */
    [[nodiscard]] finished_program end();

  private:
    struct pipe_ends {
        pipe_ends();
        int read = -1;
        int write = -1;
    };
    pipe_ends pipe_;
    child_program program_;
};

/** A folder for scripts, and twampctl in it. */
class script_folder {
  public:
    script_folder();
    /** Removes it with all that is in it. */
    ~script_folder();
    script_folder(const script_folder &) = delete;
    script_folder &operator=(const script_folder &) = delete;

    void write(const std::string &name, const std::string &text) const;
    [[nodiscard]] std::string read(const std::string &name) const;
    [[nodiscard]] finished_program run(const std::string &line) const;
    /** For programs that are started otherwise. */
    [[nodiscard]] child_program::preparation enter() const;

  private:
    std::string path_;
};

} // namespace e2e

#endif
