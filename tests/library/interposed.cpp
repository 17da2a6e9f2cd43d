#include "interposed.hpp"

#include <dlfcn.h>

#include "gtest/gtest.h"

namespace {

olv_test::interposition *current = nullptr;

/** The platform's own function. */
template <typename Function> Function next(const char *name, Function /*type*/)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace

// These stand before the platform's own, to which they hand on.

extern "C" __attribute__((visibility("default"))) void *hyx_nvm_calloc(std::uint32_t count, std::uint32_t size)
{
    static const auto platform = next("hyx_nvm_calloc", &hyx_nvm_calloc);
    void *const block = platform(count, size);
    if (current != nullptr && current->after_calloc && block != nullptr) {
        current->after_calloc(block, std::size_t{count} * size);
    }
    return block;
}

extern "C" __attribute__((visibility("default"))) void hyx_nvm_free(void *block)
{
    static const auto platform = next("hyx_nvm_free", &hyx_nvm_free);
    if (current != nullptr && current->before_free) {
        current->before_free(block);
    }
    platform(block);
}

extern "C" __attribute__((visibility("default"))) void hyx_gettime(hyx_time *now)
{
    static const auto platform = next("hyx_gettime", &hyx_gettime);
    if (current != nullptr && current->before_gettime) {
        current->before_gettime();
    }
    platform(now);
}

extern "C" __attribute__((visibility("default"))) std::uint32_t
hyx_ptn_symbol_get_id(std::uint32_t rte_handle, const char *tree_function, std::uint32_t *tree_id)
{
    static const auto platform = next("hyx_ptn_symbol_get_id", &hyx_ptn_symbol_get_id);
    if (current != nullptr && current->before_symbol_lookup) {
        current->before_symbol_lookup();
    }
    return platform(rte_handle, tree_function, tree_id);
}

extern "C" __attribute__((visibility("default"))) std::uint32_t
hyx_ptn_list_ptns(std::uint32_t rte_handle, std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context)
{
    static const auto platform = next("hyx_ptn_list_ptns", &hyx_ptn_list_ptns);
    if (current != nullptr && current->list) {
        return current->list(tree_id, callback, context);
    }
    return platform(rte_handle, tree_id, callback, context);
}

namespace olv_test {

interposition::interposition()
{
    current = this;
}

interposition::~interposition()
{
    current = nullptr;
}

made_pattern::made_pattern(const listed_entry &entry)
{
    if (entry.key_length != 0) {
        EXPECT_EQ(olv_ptn_new(entry.key_length, &pattern), 0u);
        EXPECT_EQ(olv_ptn_extend(&pattern, entry.key, entry.key_length), 0u);
    }
    pattern.word[2] = entry.third_word;
}

made_pattern::~made_pattern()
{
    if (pattern.word[1] != 0) {
        olv_ptn_free(pattern);
    }
}

made_pattern::made_pattern(made_pattern &&moved) noexcept : pattern(moved.pattern)
{
    moved.pattern = {};
}

hand_made_listing::hand_made_listing(const std::vector<listed_entry> &entries)
{
    for (const listed_entry &entry : entries) {
        patterns_.emplace_back(entry);
        actions_.push_back(entry.action ? std::optional<olv_ptn_action>{{{*entry.action, 0, 0}}}
                                        : std::nullopt);
    }
    between_.list = [this](std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context) {
        return list(tree_id, callback, context);
    };
}

std::uint32_t hand_made_listing::list(std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context)
{
    void *const not_looked_at = reinterpret_cast<void *>(std::uintptr_t{16});
    trees_.push_back(tree_id);
    if (null_arguments_) {
        const olv_ptn pattern{};
        const olv_ptn_action action{};
        callback(nullptr, not_looked_at, &pattern, &action);
        callback(context, not_looked_at, nullptr, &action);
    }
    for (std::size_t index = 0; index < patterns_.size(); ++index) {
        callback(context, not_looked_at, &patterns_[index].pattern,
                 actions_[index] ? &*actions_[index] : nullptr);
    }
    return code_;
}

} // namespace olv_test
