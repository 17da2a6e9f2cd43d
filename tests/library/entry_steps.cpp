#include "entry_steps.hpp"

#include <array>
#include <cstdio>

namespace olv_test {

namespace {

story frees(const std::string &key)
{
    return calls(call::olv_ptn_free, "key=%s", key.c_str()).then(takes(&remains::patterns));
}

std::string three_words(std::uint32_t first, std::uint32_t second)
{
    std::array<char, 48> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%08x 0x%08x 0x00000000", first, second);
    return text.data();
}

/** What the console and the tracer have of a change. The pattern's first word is the framework's: {pattern}. */
story told(const entry &of, severity how)
{
    const char *const width = how == severity::removed ? "24 " : "";
    const char *const size = how == severity::removed ? "<xsize = 24>" : "";
    return tells({.how = how,
                  .file = of.file,
                  .shown = std::string(of.tree) + ": <key = " + of.key() + ">" + size +
                           "<action = " + of.action() + ">\n",
                  .with_place = of.line_with_place,
                  .format = std::nullopt,
                  .text = std::string(of.tree) + " {pattern} 0x00000018 0x00000000 " + width + of.action()});
}

} // namespace

entry responder_entry(std::uint32_t id)
{
    return {.tree = responder_tree,
            .tree_id = responder_tree_id,
            .value = id,
            .action_0 = 0,
            .action_1 = 0,
            .file = "twamp_responder.c",
            .line_with_place = true,
            .counted = &remains::responder_entries};
}

entry bind_entry(std::uint32_t key, std::uint32_t entry_point)
{
    return {.tree = bind_tree,
            .tree_id = bind_tree_id,
            .value = key,
            .action_0 = 1,
            .action_1 = entry_point,
            .file = "twamp_bind.c",
            .line_with_place = false,
            .counted = &remains::bind_entries};
}

std::string entry::key() const
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%06x/24", value & 0xFFFFFF);
    return text.data();
}

std::string entry::action() const
{
    return three_words(action_0, action_1);
}

story makes_key(const entry &of, const story &no_pattern, const story &no_key, const story &rest)
{
    return calls(call::olv_ptn_new, "width=24").then(adds(&remains::patterns)).or_else(no_pattern + rest) +
           calls(call::olv_ptn_extend, "key=*/0, value=0x%x, width=24", of.value)
               .or_else(no_key + frees("*/0") + rest);
}

story frees_pattern(const entry &of)
{
    return frees(of.key());
}

story asks_to_learn(const bench &b, const entry &of)
{
    return calls(call::hyx_ptn_learn, "rte=%u, tree=0x%x, key=%s, action=%s", b.module->rte_handle, of.tree_id,
                 of.key().c_str(), of.action().c_str());
}

story asks_to_remove(const bench &b, const entry &of)
{
    return calls(call::hyx_ptn_unlearn, "rte=%u, tree=0x%x, key=%s, key_bits=24, action=%s, count=1",
                 b.module->rte_handle, of.tree_id, of.key().c_str(), of.action().c_str());
}

story learns(const bench &b, const entry &of, const story &refused, const story &rest)
{
    return asks_to_learn(b, of).then(adds(of.counted)).or_else(refused + frees_pattern(of) + rest) +
           told(of, severity::learnt);
}

story removes(const bench &b, const entry &of, const story &refused, const story &rest)
{
    return asks_to_remove(b, of).then(takes(of.counted)).or_else(refused + frees_pattern(of) + rest) +
           told(of, severity::removed);
}

} // namespace olv_test
