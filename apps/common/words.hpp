/**
 * @file words.hpp
 * Lists of words, and the one that a misspelt word was meant to be.
 */
#ifndef OLV_APPS_WORDS_HPP
#define OLV_APPS_WORDS_HPP

#include <string>
#include <vector>

namespace olv_apps {

/** "one, two, three". */
[[nodiscard]] std::string joined(const std::vector<std::string> &words);

/** @return "; did you mean 'the known word that differs least'?"; empty when none is near: two letters at most
 *  differ, and no more than half of the known word's. */
[[nodiscard]] std::string did_you_mean(const std::string &word, const std::vector<std::string> &known);

} // namespace olv_apps

#endif
