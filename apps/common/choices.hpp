/**
 * @file choices.hpp
 * Options that take one of a few words.
 */
#ifndef OLV_TWAMPCTL_CHOICES_HPP
#define OLV_TWAMPCTL_CHOICES_HPP

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace twampctl {

/** Make an option one of a few words, which its help shows and which complete. */
CLI::Option *one_of(CLI::Option *option, const std::vector<std::string> &words);

/** The words of such an option; none for others. */
[[nodiscard]] std::vector<std::string> choices_of(const CLI::Option &option);

/** "one, two, three". */
[[nodiscard]] std::string joined(const std::vector<std::string> &words);

} // namespace twampctl

#endif
