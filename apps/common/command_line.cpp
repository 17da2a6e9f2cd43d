#include "apps/common/command_line.hpp"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include <CLI/CLI.hpp>

#include "apps/common/errors.hpp"
#include "apps/common/words.hpp"

namespace olv_apps {
namespace {

constexpr std::size_t easily_read = 8; ///< Words; among more, one is hard to find.

/** Unlike CLI::Range, it refuses "nan", which is neither below nor above anything. */
template <typename Number> CLI::Validator range_of(Number minimum, Number maximum, const char *kind)
{
    std::ostringstream limits;
    limits << minimum << " to " << maximum;
    const auto reason_against = [minimum, maximum, text = limits.str()](const std::string &value) {
        Number number{};
        const bool is_good = CLI::detail::lexical_cast(value, number) && number >= minimum && number <= maximum;
        return is_good ? std::string{} : "Value " + value + " not in range " + text;
    };
    std::ostringstream description;
    description << kind << " in [" << minimum << " - " << maximum << "]";
    return CLI::Validator{reason_against, description.str()};
}

constexpr std::size_t terminal_width = 80;
constexpr std::size_t option_column = 26;

/** Break lines that are longer; those that are broken already stay. */
std::string wrapped(const std::string &text, std::size_t width)
{
    std::string result;
    std::size_t used = 0;
    std::istringstream words{text};
    for (std::string word; words >> word;) {
        if (used > 0 && used + 1 + word.size() > width) {
            result += '\n';
            used = 0;
        } else if (used > 0) {
            result += ' ';
            ++used;
        }
        result += word;
        used += word.size();
    }
    return result;
}

/** Help that fits a terminal: lines break between words, and values are named without the limits that are
 *  checked. */
class help_format : public CLI::Formatter {
  public:
    help_format() { column_width(option_column); }

    [[nodiscard]] std::string make_description(const CLI::App *app) const override
    {
        const std::string text = app->get_description();
        return text.empty() ? "" : wrapped(text, terminal_width) + "\n";
    }

    [[nodiscard]] std::string make_option_opts(const CLI::Option *option) const override
    {
        if (option->get_positional()) {
            return option->get_required() ? "" : " (optional)";
        }
        const std::string type = option->get_type_name();
        return option->get_type_size() == 0 ? "" : " " + type.substr(0, type.find(':'));
    }

    [[nodiscard]] std::string make_option_desc(const CLI::Option *option) const override
    {
        return wrapped(option->get_description(), terminal_width - option_column);
    }
};

const CLI::Option &named(const CLI::App &described, const std::string &name)
{
    return *described.get_option("--" + name);
}

} // namespace

// ------------------------------------------------------------------------------------------------------------
// Options
// ------------------------------------------------------------------------------------------------------------

option option::required() const
{
    described_->required();
    return *this;
}

option option::called(const std::string &kind) const
{
    described_->type_name(kind);
    return *this;
}

option option::values(int count) const
{
    described_->expected(count);
    return *this;
}

option option::repeatable() const
{
    described_->allow_extra_args(false);
    return *this;
}

option option::excludes(option other) const
{
    described_->excludes(other.described_);
    return *this;
}

option option::needs(option other) const
{
    described_->needs(other.described_);
    return *this;
}

option option::one_of(const std::vector<std::string> &words) const
{
    std::string kind;
    for (const std::string &each : words) {
        kind += (kind.empty() ? "" : "|") + each;
    }
    return called(kind).check([words](const std::string &value) -> std::string {
        if (std::find(words.begin(), words.end(), value) != words.end()) {
            return {};
        }
        return "'" + value + "' is none of " + joined(words) +
               (words.size() > easily_read ? did_you_mean(value, words) : "");
    });
}

option option::whole_number_between(std::int64_t minimum, std::int64_t maximum) const
{
    described_->check(range_of(minimum, maximum, "UINT"));
    return *this;
}

option option::number_between(double minimum, double maximum) const
{
    described_->check(range_of(minimum, maximum, "FLOAT"));
    return *this;
}

option option::check(std::function<std::string(const std::string &)> reason_against) const
{
    described_->check(CLI::Validator{std::move(reason_against), ""});
    return *this;
}

std::vector<std::string> choices_of(const CLI::Option &described)
{
    const std::string kind = described.get_type_name();
    std::vector<std::string> words;
    if (kind.find('|') != std::string::npos) {
        std::istringstream rest{kind};
        for (std::string word; std::getline(rest, word, '|');) {
            words.push_back(word);
        }
    }
    return words;
}

// ------------------------------------------------------------------------------------------------------------
// Commands
// ------------------------------------------------------------------------------------------------------------

template <typename Value>
option command::add_option(const std::string &name, Value &place, const std::string &text) const
{
    return option{*described_->add_option(name, place, text)};
}

option command::add_flag(const std::string &name, bool &place, const std::string &text) const
{
    return option{*described_->add_flag(name, place, text)};
}

void command::end_help_with(const std::string &text) const
{
    described_->footer(text);
}

std::vector<std::string> command::option_names() const
{
    std::vector<std::string> names;
    for (const CLI::Option *each : described_->get_options()) {
        names.insert(names.end(), each->get_lnames().begin(), each->get_lnames().end());
    }
    return names;
}

bool command::is_flag(const std::string &name) const
{
    return named(*described_, name).get_items_expected_max() == 0;
}

bool command::was_given(const std::string &name) const
{
    return named(*described_, name).count() != 0;
}

// The values that options have.
template option command::add_option(const std::string &, std::string &, const std::string &) const;
template option command::add_option(const std::string &, std::uint16_t &, const std::string &) const;
template option command::add_option(const std::string &, std::uint32_t &, const std::string &) const;
template option command::add_option(const std::string &, std::uint64_t &, const std::string &) const;
template option command::add_option(const std::string &, double &, const std::string &) const;
template option command::add_option(const std::string &, std::optional<std::string> &,
                                    const std::string &) const;
template option command::add_option(const std::string &, std::optional<std::uint16_t> &,
                                    const std::string &) const;
template option command::add_option(const std::string &, std::optional<std::uint32_t> &,
                                    const std::string &) const;
template option command::add_option(const std::string &, std::optional<double> &, const std::string &) const;
template option command::add_option(const std::string &, std::vector<std::string> &, const std::string &) const;
template option command::add_option(const std::string &, std::vector<std::uint32_t> &,
                                    const std::string &) const;

// ------------------------------------------------------------------------------------------------------------
// Command lines
// ------------------------------------------------------------------------------------------------------------

void use_help_format(CLI::App &described)
{
    described.formatter(std::make_shared<help_format>());
}

command_line::command_line(const std::string &name, const std::string &description)
    : described_(std::make_unique<CLI::App>(description, name))
{
    use_help_format(*described_);
}

command_line::~command_line() = default;

void command_line::read(const std::vector<std::string> &words)
{
    described_->parse(std::vector<std::string>{words.rbegin(), words.rend()}); // it begins with the last one
}

std::optional<int> command_line::read_or_report(const char *program, const std::vector<std::string> &words)
{
    try {
        read(words);
        return std::nullopt;
    } catch (const CLI::CallForHelp &) {
        (void)std::fputs(described_->help().c_str(), stdout); // an error shows at exit
        return exit_good;
    } catch (const CLI::ParseError &error) {
        std::string message = error.what();
        std::replace(message.begin(), message.end(), '\n', ' ');
        report_error(program, "%s; try %s --help", message.c_str(), program);
        return exit_usage;
    }
}

} // namespace olv_apps
