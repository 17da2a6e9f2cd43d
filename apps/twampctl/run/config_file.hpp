/**
 * @file config_file.hpp
 * A configuration file, JSON, as keys and values that know their lines. docs/configuration.md is the user's
 * page.
 */
#ifndef OLV_TWAMPCTL_CONFIG_FILE_HPP
#define OLV_TWAMPCTL_CONFIG_FILE_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace twampctl {

enum class config_kind : std::uint8_t { boolean, whole_number, number, text, null, list, object };

struct config_value {
    config_kind kind = config_kind::null;
    std::string text; ///< As written; of a text, what stands between the quotes. Empty for lists and objects.
    std::size_t line = 0;
};

struct config_entry {
    std::string key;
    std::size_t line = 0;
    bool is_list = false;
    std::vector<config_value> values; ///< One, unless it is a list.
};

struct config_error {
    std::size_t line = 0;
    std::string reason;
};

/** What stands in a file. Where the text is no JSON, entries before the error are there. */
struct config_document {
    std::vector<config_entry> entries;
    std::vector<config_error> errors;
};

/** Lines count from 1. Keys that occur twice are errors, as everything is that is no JSON. */
[[nodiscard]] config_document parse_config(std::string_view text);

/** @throw std::runtime_error  One line: the file, and why it cannot be read. */
[[nodiscard]] std::string read_config_file(const std::string &name);

} // namespace twampctl

#endif
