/**
 * @file command_line.hpp
 * Command lines: what is described here is read by CLI11, whose headers only few source files include.
 */
#ifndef OLV_APPS_COMMAND_LINE_HPP
#define OLV_APPS_COMMAND_LINE_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace olv_apps {

/** An option, or an argument without a name. A copy describes the same one, and each member returns it. */
class option {
  public:
    explicit option(CLI::Option &described) : described_(&described) {}

    option required() const;
    /** @param kind  What help and completion call its value, such as "FILE". */
    option called(const std::string &kind) const;
    /** Takes so many values, no more and no less. */
    option values(int count) const;
    /** Takes one value each time that it is given, and may be given often. */
    option repeatable() const;
    option excludes(option other) const;
    option needs(option other) const;

    /** Takes one of these words, which its help shows and which complete. */
    option one_of(const std::vector<std::string> &words) const;
    option whole_number_between(std::int64_t minimum, std::int64_t maximum) const;
    option number_between(double minimum, double maximum) const;
    /** @param reason_against  Says why a value is not taken; empty: it is. */
    option check(std::function<std::string(const std::string &value)> reason_against) const;

  private:
    CLI::Option *described_;
};

/** A command of a program. A copy describes the same one. */
class command {
  public:
    explicit command(CLI::App &described) : described_(&described) {}

    /** An option, whose name begins with dashes, or an argument. Its value goes to @p place, of one of the
     * types at the end of command_line.cpp. */
    template <typename Value>
    option add_option(const std::string &name, Value &place, const std::string &text) const;
    option add_flag(const std::string &name, bool &place, const std::string &text) const;
    void end_help_with(const std::string &text) const;

    /** Its long options, without their dashes. */
    [[nodiscard]] std::vector<std::string> option_names() const;
    /** Whether the option of this name takes no value. */
    [[nodiscard]] bool is_flag(const std::string &name) const;
    /** Whether the option of this name stood on the command line that was read. */
    [[nodiscard]] bool was_given(const std::string &name) const;

    [[nodiscard]] CLI::App &described() const { return *described_; }

  private:
    CLI::App *described_;
};

/** The whole command line of a program, or of a command that stands alone. */
class command_line {
  public:
    /** @param name  As usage shows it: the program, or the program and the command. */
    command_line(const std::string &name, const std::string &description);
    ~command_line();
    command_line(const command_line &) = delete;
    command_line &operator=(const command_line &) = delete;

    [[nodiscard]] command options() const { return command{*described_}; }

    /** Fill the places. @param words  Behind the name. @throw std::runtime_error  Why they are not taken. */
    void read(const std::vector<std::string> &words);
    /** The same, but an error is reported, and help is printed when it is asked for.
     *  @return The status to exit with at once; nothing: the words were read. */
    [[nodiscard]] std::optional<int> read_or_report(const char *program, const std::vector<std::string> &words);

  private:
    std::unique_ptr<CLI::App> described_;
};

/** Give a command, and those that are added to it, help that fits a terminal of 80 columns. */
void use_help_format(CLI::App &described);
/** The words of option::one_of(); none for other options. */
[[nodiscard]] std::vector<std::string> choices_of(const CLI::Option &described);

} // namespace olv_apps

#endif
