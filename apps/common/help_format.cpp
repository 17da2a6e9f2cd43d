#include "apps/common/help_format.hpp"

#include <sstream>

namespace olv_apps {
namespace {

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

} // namespace

help_format::help_format()
{
    column_width(option_column);
}

std::string help_format::make_description(const CLI::App *app) const
{
    const std::string text = app->get_description();
    return text.empty() ? "" : wrapped(text, terminal_width) + "\n";
}

std::string help_format::make_option_opts(const CLI::Option *option) const
{
    if (option->get_positional()) {
        return option->get_required() ? "" : " (optional)";
    }
    const std::string type = option->get_type_name();
    return option->get_type_size() == 0 ? "" : " " + type.substr(0, type.find(':'));
}

std::string help_format::make_option_desc(const CLI::Option *option) const
{
    return wrapped(option->get_description(), terminal_width - option_column);
}

void use_help_format(CLI::App &app)
{
    app.formatter(std::make_shared<help_format>());
    for (CLI::App *each : app.get_subcommands([](const CLI::App *) { return true; })) {
        use_help_format(*each);
    }
}

} // namespace olv_apps
