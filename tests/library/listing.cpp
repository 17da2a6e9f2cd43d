#include "listing.hpp"

#include <dlfcn.h>

#include "gtest/gtest.h"

namespace {

olv_test::hand_made_listing *current = nullptr;

} // namespace

// Stands before the platform's own, to which it hands on whatever is not listed by hand.
extern "C" __attribute__((visibility("default"))) std::uint32_t
hyx_ptn_list_ptns(std::uint32_t rte_handle, std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context)
{
    if (current != nullptr)
        return current->list(tree_id, callback, context);
    using list_function = std::uint32_t (*)(std::uint32_t, std::uint32_t, hyx_ptn_list_fn, void *);
    static const auto platform = reinterpret_cast<list_function>(dlsym(RTLD_NEXT, "hyx_ptn_list_ptns"));
    return platform(rte_handle, tree_id, callback, context);
}

namespace olv_test {

olv_ptn make_pattern(const listed_entry &entry)
{
    olv_ptn pattern{};
    if (entry.key_length != 0) {
        EXPECT_EQ(olv_ptn_new(entry.key_length, &pattern), 0u);
        EXPECT_EQ(olv_ptn_extend(&pattern, entry.key, entry.key_length), 0u);
    }
    pattern.word[2] = entry.third_word;
    return pattern;
}

hand_made_listing::hand_made_listing(const std::vector<listed_entry> &entries)
{
    for (const listed_entry &entry : entries) {
        patterns_.push_back(make_pattern(entry));
        actions_.push_back(entry.has_action ? std::optional<olv_ptn_action>{{{entry.action, 0, 0}}}
                                            : std::nullopt);
    }
    current = this;
}

hand_made_listing::~hand_made_listing()
{
    current = nullptr;
    for (const olv_ptn &pattern : patterns_)
        if (pattern.word[1] != 0)
            olv_ptn_free(pattern);
}

std::uint32_t hand_made_listing::list(std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context)
{
    trees_.push_back(tree_id);
    if (null_arguments_) {
        const olv_ptn pattern{};
        const olv_ptn_action action{};
        callback(nullptr, nullptr, &pattern, &action);
        callback(context, nullptr, nullptr, &action);
    }
    for (std::size_t index = 0; index < patterns_.size(); ++index)
        callback(context, nullptr, &patterns_[index], actions_[index] ? &*actions_[index] : nullptr);
    return 0;
}

} // namespace olv_test
