/**
 * @file config_file.hpp
 * A configuration file, JSON, as keys and values that know their lines. docs/configuration.md is the user's
 * page.
 */
#ifndef OLV_TWAMPCTL_CONFIG_FILE_HPP
#define OLV_TWAMPCTL_CONFIG_FILE_HPP

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace twampctl {

struct config_value {
    std::string name; ///< "rate"; "listen[1]": the second one of a list.
    std::string text; ///< As on the command line.
    std::size_t line = 0;
    bool is_switch = false; ///< true or false.
};

struct config_entry {
    std::string key;
    std::size_t line = 0;
    std::vector<config_value> values; ///< One, unless it is a list.
};

struct config_error {
    std::size_t line = 0;
    std::string reason;
};

/** What stands in a file. Where the text is no JSON, what stands before the error. */
struct config_document {
    std::vector<config_entry> entries;
    std::vector<config_error> errors;
};

/** Lines count from 1. Errors: what is no JSON, keys that occur twice, values that no command line could say.
 */
[[nodiscard]] config_document parse_config(std::string_view text);

/** @throw std::runtime_error  One line: the file, and why it cannot be read. */
[[nodiscard]] std::string read_config_file(const std::string &name);

} // namespace twampctl

#endif
