#include "apps/twampctl/site/log_words.hpp"

#include <algorithm>
#include <array>

#include "olv.h"

namespace twampctl {
namespace {

struct log_bit {
    const char *name;
    std::uint32_t bit;
};

constexpr std::array<log_bit, 3> bits{
    {{"function", OLV_LOG_FUNCTION}, {"pattern", OLV_LOG_PATTERN}, {"state", OLV_LOG_STATE}}};

} // namespace

std::string log_word_text(std::uint32_t word)
{
    std::string text = "level " + std::to_string(word & OLV_LOG_LEVEL_MASK) + ", bits";
    const std::size_t before = text.size();
    for (const log_bit &each : bits) {
        if ((word & each.bit) != 0) {
            text.append(" ").append(each.name);
        }
    }
    return text.size() == before ? text + " none" : text;
}

std::vector<std::string> log_bit_names()
{
    std::vector<std::string> names;
    names.reserve(bits.size());
    for (const log_bit &each : bits) {
        names.emplace_back(each.name);
    }
    return names;
}

std::uint32_t log_bits(const std::vector<std::string> &names)
{
    std::uint32_t word = 0;
    for (const log_bit &each : bits) {
        if (std::find(names.begin(), names.end(), each.name) != names.end()) {
            word |= each.bit;
        }
    }
    return word;
}

void take_log_levels(olv_apps::option option)
{
    option.one_of({"0", "1", "3", "7", "15"}).called("UINT");
}

} // namespace twampctl
