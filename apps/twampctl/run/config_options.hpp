/**
 * @file config_options.hpp
 * A configuration file as options of a command line, judged by the command line's own rules.
 */
#ifndef OLV_TWAMPCTL_CONFIG_OPTIONS_HPP
#define OLV_TWAMPCTL_CONFIG_OPTIONS_HPP

#include <functional>
#include <string>
#include <vector>

#include "apps/twampctl/run/config_file.hpp"

namespace olv_apps {
class command;
}

namespace twampctl {

/** An option of a file, as the words that say the same on the command line. */
struct config_option {
    std::string key;
    std::vector<std::string> words; ///< "--listen", "127.0.0.1:0", "--listen", "[::1]:0"
};

struct config_options {
    std::vector<config_option> options;
    std::vector<config_error> errors; ///< By line.
};

/** @return Why the command line would not take these words; empty: it would. */
using words_check = std::function<std::string(const std::vector<std::string> &words)>;

/** The keys that a file can have: the options of the command but those that are for the command line alone. */
[[nodiscard]] std::vector<std::string> config_keys(olv_apps::command described);

/** Each key is the name of an option of @p described without its dashes; @p check judges its values. */
[[nodiscard]] config_options options_of(const config_document &document, olv_apps::command described,
                                        const words_check &check);

} // namespace twampctl

#endif
