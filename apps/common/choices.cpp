#include "apps/common/choices.hpp"

#include <algorithm>
#include <sstream>

#include "apps/common/closest.hpp"

namespace twampctl {
namespace {

constexpr std::size_t easily_read = 8; ///< Words; among more, one is hard to find.

} // namespace

CLI::Option *one_of(CLI::Option *option, const std::vector<std::string> &words)
{
    std::string kind;
    for (const std::string &each : words) {
        kind += (kind.empty() ? "" : "|") + each;
    }
    option->check(CLI::Validator(
        [words](const std::string &value) -> std::string {
            if (std::find(words.begin(), words.end(), value) != words.end()) {
                return {};
            }
            return "'" + value + "' is none of " + joined(words) +
                   (words.size() > easily_read ? did_you_mean(value, words) : "");
        },
        ""));
    return option->type_name(kind);
}

std::vector<std::string> choices_of(const CLI::Option &option)
{
    const std::string kind = option.get_type_name();
    std::vector<std::string> words;
    if (kind.find('|') != std::string::npos) {
        std::istringstream rest{kind};
        for (std::string word; std::getline(rest, word, '|');) {
            words.push_back(word);
        }
    }
    return words;
}

std::string joined(const std::vector<std::string> &words)
{
    std::string text;
    for (const std::string &each : words) {
        text += (text.empty() ? "" : ", ") + each;
    }
    return text;
}

} // namespace twampctl
