#include "apps/twampctl/run/config_options.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "apps/common/closest.hpp"

namespace twampctl {
namespace {

constexpr std::array<std::string_view, 3> command_line_alone{"help", "config", "check"};

bool is_for_command_line_alone(const std::string &name)
{
    return std::find(command_line_alone.begin(), command_line_alone.end(), name) != command_line_alone.end();
}

enum class wanted : std::uint8_t { flag, whole_number, number, text, list_of_texts };

wanted wanted_by(const CLI::Option &option)
{
    if (option.get_items_expected_max() == 0) {
        return wanted::flag;
    }
    if (option.get_items_expected_max() > 1) {
        return wanted::list_of_texts;
    }
    const std::string type = option.get_type_name();
    if (type.starts_with("UINT")) {
        return wanted::whole_number;
    }
    return type.starts_with("FLOAT") ? wanted::number : wanted::text;
}

const char *name_of(wanted type)
{
    switch (type) {
    case wanted::flag:
        return "true or false";
    case wanted::whole_number:
        return "a whole number";
    case wanted::number:
        return "a number";
    case wanted::list_of_texts:
        return "a list of texts, as in [\"...\"],";
    case wanted::text:
        break;
    }
    return "a text, in quotes,";
}

bool is_of(const config_value &value, wanted type)
{
    switch (type) {
    case wanted::flag:
        return value.kind == config_kind::boolean;
    case wanted::whole_number:
        return value.kind == config_kind::whole_number;
    case wanted::number:
        return value.kind == config_kind::whole_number || value.kind == config_kind::number;
    case wanted::list_of_texts:
    case wanted::text:
        break;
    }
    return value.kind == config_kind::text;
}

std::string description_of(const config_value &value)
{
    switch (value.kind) {
    case config_kind::text:
        return '"' + value.text + '"';
    case config_kind::list:
        return "a list";
    case config_kind::object:
        return "an object";
    case config_kind::boolean:
    case config_kind::whole_number:
    case config_kind::number:
    case config_kind::null:
        break;
    }
    return value.text;
}

/** What may have been meant by a key that there is not. */
std::string suggestion(const std::string &key, const CLI::App &command)
{
    if (is_for_command_line_alone(key)) {
        return "; --" + key + " belongs on the command line";
    }
    std::string dashed = key;
    std::replace(dashed.begin(), dashed.end(), '_', '-');
    return did_you_mean(dashed, config_keys(command));
}

/** Turns the entries of a document into options, one by one. */
class converter {
  public:
    converter(const CLI::App &command, const words_check &check, config_options &result)
        : command_(command), check_(check), result_(result)
    {}

    void convert(const config_entry &entry)
    {
        const std::vector<std::string> keys = config_keys(command_);
        if (std::find(keys.begin(), keys.end(), entry.key) == keys.end()) {
            refuse(entry.line, entry.key, "there is no such key" + suggestion(entry.key, command_));
            return;
        }
        const wanted type = wanted_by(*command_.get_option_no_throw("--" + entry.key));
        if (entry.is_list != (type == wanted::list_of_texts)) {
            refuse(entry.line, entry.key,
                   std::string(name_of(type)) + " is wanted, not " +
                       (entry.is_list ? "a list" : description_of(entry.values.at(0))));
            return;
        }
        config_option option{entry.key, {}};
        for (std::size_t index = 0; index < entry.values.size(); ++index) {
            const std::string name = entry.is_list ? entry.key + "[" + std::to_string(index) + "]" : entry.key;
            add(option, name, entry.values[index], type);
        }
        result_.options.push_back(std::move(option));
    }

  private:
    void add(config_option &to, const std::string &name, const config_value &value, wanted type)
    {
        if (!is_of(value, type)) {
            const wanted element = type == wanted::list_of_texts ? wanted::text : type;
            refuse(value.line, name,
                   std::string(name_of(element)) + " is wanted, not " + description_of(value));
            return;
        }
        if (value.text.find('\0') != std::string::npos) {
            refuse(value.line, name, "the text contains a zero byte");
            return;
        }
        const std::vector<std::string> words = words_of(to.key, value, type);
        const std::string reason = check_(words);
        if (!reason.empty()) {
            const std::string spelled = "--" + to.key + ": ";
            refuse(value.line, name, reason.starts_with(spelled) ? reason.substr(spelled.size()) : reason);
            return;
        }
        to.words.insert(to.words.end(), words.begin(), words.end());
    }

    [[nodiscard]] static std::vector<std::string> words_of(const std::string &key, const config_value &value,
                                                           wanted type)
    {
        if (type != wanted::flag) {
            return {"--" + key, value.text};
        }
        return value.text == "true" ? std::vector{"--" + key} : std::vector<std::string>{};
    }

    void refuse(std::size_t line, const std::string &name, const std::string &reason)
    {
        result_.errors.push_back({line, name + ": " + reason});
    }

    const CLI::App &command_;
    const words_check &check_;
    config_options &result_;
};

} // namespace

std::vector<std::string> config_keys(const CLI::App &command)
{
    std::vector<std::string> keys;
    for (const CLI::Option *option : command.get_options()) {
        const std::string &name = option->get_lnames().at(0);
        if (!is_for_command_line_alone(name)) {
            keys.push_back(name);
        }
    }
    return keys;
}

config_options options_of(const config_document &document, const CLI::App &command, const words_check &check)
{
    config_options result;
    result.errors = document.errors;
    converter each{command, check, result};
    for (const config_entry &entry : document.entries) {
        // The last one may lack its value, where the text ends too early.
        if (entry.is_list || !entry.values.empty()) {
            each.convert(entry);
        }
    }
    for (config_error &error : result.errors) {
        // A file's own text is part of it, and may be anything.
        std::replace_if(
            error.reason.begin(), error.reason.end(),
            [](char letter) { return static_cast<unsigned char>(letter) < ' ' || letter == '\x7f'; }, '?');
    }
    std::stable_sort(result.errors.begin(), result.errors.end(),
                     [](const config_error &one, const config_error &other) { return one.line < other.line; });
    return result;
}

} // namespace twampctl
