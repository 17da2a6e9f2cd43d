#include "apps/twampctl/commands/checks.hpp"

#include <algorithm>

#include "apps/twampctl/commands/usage_error.hpp"

namespace twampctl {
namespace {

constexpr std::size_t longest_name = 64;

bool has_to_be_quoted(char character)
{
    const auto code = static_cast<unsigned char>(character);
    return code <= ' ' || code == 0x7F || character == '"' || character == '\'' || character == '\\';
}

} // namespace

void require_some_or_all(const char *command, const char *what, bool some, bool all)
{
    if (some == all) {
        throw usage_error(std::string(command) + ": give " + what + ", or --all");
    }
}

std::string reason_against_name(const std::string &name)
{
    if (name.empty()) {
        return "a name has one character at least";
    }
    if (name.size() > longest_name) {
        return "a name has " + std::to_string(longest_name) + " bytes at most, this one " +
               std::to_string(name.size());
    }
    if (name.front() == '-' || name.front() == '#') {
        return std::string("a name does not begin with '") + name.front() + "'";
    }
    if (std::any_of(name.begin(), name.end(), has_to_be_quoted)) {
        return "a name has no blanks, quotes, backslashes or control characters";
    }
    return {};
}

std::string reason_against_sign(const std::string &number)
{
    return number.find('-') == std::string::npos ? "" : "'" + number + "' is negative";
}

} // namespace twampctl
