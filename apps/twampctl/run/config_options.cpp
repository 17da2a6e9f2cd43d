#include "apps/twampctl/run/config_options.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "apps/common/command_line.hpp"
#include "apps/common/words.hpp"

namespace twampctl {
namespace {

constexpr std::array<std::string_view, 3> command_line_alone{"help", "config", "check"};

bool is_for_command_line_alone(const std::string &name)
{
    return std::find(command_line_alone.begin(), command_line_alone.end(), name) != command_line_alone.end();
}

/** What may have been meant by a key that there is not. */
std::string suggestion(const std::string &key, const std::vector<std::string> &keys)
{
    if (is_for_command_line_alone(key)) {
        return "; --" + key + " belongs on the command line";
    }
    std::string dashed = key;
    std::replace(dashed.begin(), dashed.end(), '_', '-');
    return olv_apps::did_you_mean(dashed, keys);
}

/** Turns the entries of a document into options, one by one. */
class converter {
  public:
    converter(olv_apps::command described, const words_check &check, config_options &result)
        : described_(described), keys_(config_keys(described)), check_(check), result_(result)
    {}

    void convert(const config_entry &entry)
    {
        if (std::find(keys_.begin(), keys_.end(), entry.key) == keys_.end()) {
            refuse(entry.line, entry.key, "there is no such key" + suggestion(entry.key, keys_));
            return;
        }
        config_option option{entry.key, {}};
        bool is_good = true;
        for (const config_value &value : entry.values) {
            const std::vector<std::string> words = words_of(entry.key, value);
            option.words.insert(option.words.end(), words.begin(), words.end());
            is_good = is_switched_or_not(entry.key, value) && is_good;
        }
        // All at once: there may be thousands, and each judgement takes the whole command line.
        if (is_good && check_(option.words).empty()) {
            result_.options.push_back(std::move(option));
        } else {
            refuse_parts_of(entry, option, is_good);
        }
    }

  private:
    /** Say which values are not good; or that all are, but not together: an option that takes one value
     *  refuses two. */
    void refuse_parts_of(const config_entry &entry, const config_option &option, bool is_good)
    {
        for (const config_value &value : entry.values) {
            if (described_.is_flag(entry.key) == value.is_switch) {
                is_good = judge(entry.key, value.line, value.name, words_of(entry.key, value)) && is_good;
            }
        }
        if (is_good) {
            (void)judge(entry.key, entry.line, entry.key, option.words);
        }
    }

    /** A flag has no value on the command line: what switches it is JSON's own. */
    bool is_switched_or_not(const std::string &key, const config_value &value)
    {
        const bool is_flag = described_.is_flag(key);
        if (is_flag != value.is_switch) {
            refuse(value.line, value.name,
                   (is_flag ? "true or false is wanted, not " : "a value is wanted, not ") + value.text);
        }
        return is_flag == value.is_switch;
    }

    static std::vector<std::string> words_of(const std::string &key, const config_value &value)
    {
        if (!value.is_switch) {
            return {"--" + key, value.text};
        }
        return value.text == "true" ? std::vector{"--" + key} : std::vector<std::string>{};
    }

    bool judge(const std::string &key, std::size_t line, const std::string &name,
               const std::vector<std::string> &words)
    {
        const std::string reason = check_(words);
        const std::string spelled = "--" + key + ": ";
        if (!reason.empty()) {
            refuse(line, name, reason.starts_with(spelled) ? reason.substr(spelled.size()) : reason);
        }
        return reason.empty();
    }

    void refuse(std::size_t line, const std::string &name, const std::string &reason)
    {
        result_.errors.push_back({line, name + ": " + reason});
    }

    const olv_apps::command described_;
    const std::vector<std::string> keys_;
    const words_check &check_;
    config_options &result_;
};

} // namespace

std::vector<std::string> config_keys(olv_apps::command described)
{
    std::vector<std::string> keys = described.option_names();
    std::erase_if(keys, is_for_command_line_alone);
    return keys;
}

config_options options_of(const config_document &document, olv_apps::command described,
                          const words_check &check)
{
    config_options result;
    result.errors = document.errors;
    converter each{described, check, result};
    for (const config_entry &entry : document.entries) {
        each.convert(entry);
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
