#include "apps/common/words.hpp"

#include <algorithm>
#include <numeric>

namespace olv_apps {
namespace {

/** Letters to insert, to remove or to replace. */
std::size_t distance(const std::string &left, const std::string &right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t replaced = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row.back();
}

} // namespace

std::string joined(const std::vector<std::string> &words)
{
    std::string text;
    for (const std::string &each : words) {
        text += (text.empty() ? "" : ", ") + each;
    }
    return text;
}

std::string did_you_mean(const std::string &word, const std::vector<std::string> &known)
{
    constexpr std::size_t longest = 40; // no known word is nearly as long
    std::string closest;
    std::size_t least = 3;
    for (const std::string &each : known) {
        const std::size_t differing = word.size() > longest ? least : distance(word, each);
        if (differing < least && differing <= each.size() / 2) {
            least = differing;
            closest = each;
        }
    }
    return closest.empty() ? "" : "; did you mean '" + closest + "'?";
}

} // namespace olv_apps
