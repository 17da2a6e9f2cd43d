// What init writes into the context, and when: seen in a block that is not zeroed.
#include <cstring>
#include <dlfcn.h>
#include <vector>

#include "harness.hpp"

namespace olv_test {
namespace {

constexpr std::uint8_t unwritten_byte = 0xA5;
constexpr std::uint32_t unwritten = 0xA5A5A5A5;
constexpr std::size_t context_size = 124;

/** A context's words, by their places in it. The formats are single bytes: the first of words 13 and 24. */
struct context_words {
    std::uint32_t word[context_size / 4];
    std::uint8_t responder_format;
    std::uint8_t bind_format;

    explicit context_words(const void *context)
    {
        std::memcpy(word, context, sizeof word);
        std::memcpy(&responder_format, static_cast<const char *>(context) + 52, 1);
        std::memcpy(&bind_format, static_cast<const char *>(context) + 96, 1);
    }
    [[nodiscard]] std::vector<std::uint32_t> words(std::size_t first, std::size_t count) const
    {
        return {word + first, word + first + count};
    }
};

/** The module whose context is looked at; while there is one, memory is not zeroed. */
const olv_module_handle *watched = nullptr;
/** Its context each time that a tree function was asked for. */
std::vector<context_words> at_lookup;

template <typename Function> Function of_platform(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

} // namespace
} // namespace olv_test

// These stand before the platform's own, to which they hand on.
extern "C" __attribute__((visibility("default"))) void *hyx_nvm_calloc(std::uint32_t count, std::uint32_t size)
{
    static const auto platform = olv_test::of_platform<decltype(&hyx_nvm_calloc)>("hyx_nvm_calloc");
    void *const block = platform(count, size);
    if (olv_test::watched != nullptr && block != nullptr)
        std::memset(block, olv_test::unwritten_byte, std::size_t{count} * size);
    return block;
}

extern "C" __attribute__((visibility("default"))) std::uint32_t
hyx_ptn_symbol_get_id(std::uint32_t rte_handle, const char *tree_function, std::uint32_t *tree_id)
{
    static const auto platform =
        olv_test::of_platform<decltype(&hyx_ptn_symbol_get_id)>("hyx_ptn_symbol_get_id");
    if (olv_test::watched != nullptr)
        olv_test::at_lookup.emplace_back(olv_test::watched->ctx);
    return platform(rte_handle, tree_function, tree_id);
}

namespace olv_test {
namespace {

using testing::Each;
using testing::ElementsAre;

/** The context after an init on a block of unwritten bytes. */
context_words context_of_watched_init(bench &b)
{
    at_lookup.clear();
    watched = b.module;
    EXPECT_EQ(quiet([&] { return olv_twamp_init(b.module); }), 0u);
    watched = nullptr;
    EXPECT_EQ(at_lookup.size(), 5u);
    return context_words(b.module->ctx);
}

std::uint32_t id_of(const bench &b, const char *tree_function)
{
    std::uint32_t id = 0;
    EXPECT_EQ(hyx_ptn_symbol_get_id(b.module->rte_handle, tree_function, &id), 0u);
    return id;
}

TEST(InitContext, WritesEveryFieldThatItFillsAndNoOther)
{
    bench b({.initialised = false});
    const context_words context = context_of_watched_init(b);
    EXPECT_EQ(context.word[0], 0x18496124u);
    EXPECT_EQ(context.word[1], unwritten);
    EXPECT_THAT(context.words(2, 3), ElementsAre(id_of(b, "olv_twamp.twamp_lli_processing"),
                                                 id_of(b, "olv_twamp.twamp_to_ip_direct_imc"),
                                                 id_of(b, "olv_twamp.twamp_to_ipv6_indirect_imc")));

    EXPECT_THAT(context.words(5, 8), ElementsAre(id_of(b, "olv_twamp.twamp_responder_lookup"), 24, unwritten,
                                                 unwritten, unwritten, 0, 0, 0));
    EXPECT_EQ(context.responder_format, 1);
    EXPECT_EQ(context.word[15], 1u);

    EXPECT_THAT(context.words(16, 8), ElementsAre(id_of(b, "olv_twamp.twamp_bind_to_next_module"), 24,
                                                  unwritten, unwritten, unwritten, 0, 0, 0));
    EXPECT_EQ(context.bind_format, 0);
    EXPECT_EQ(context.word[26], 2u);

    EXPECT_THAT(context.words(27, 2), Each(testing::Ne(unwritten)));
    EXPECT_THAT(context.words(29, 2), Each(unwritten)); // the count of creations is not written
}

TEST(InitContext, DescribesTheResponderTreeBeforeItAsksForTheBindTree)
{
    bench b({.initialised = false});
    const context_words context = context_of_watched_init(b);
    const context_words &before = at_lookup.back();
    EXPECT_EQ(before.word[0], unwritten) << "the magic is written last";
    EXPECT_THAT(before.words(5, 8), testing::ElementsAreArray(context.words(5, 8)));
    EXPECT_EQ(before.responder_format, 1);
    EXPECT_EQ(before.word[15], 1u);
    EXPECT_THAT(before.words(16, 11), Each(unwritten));

    const context_words &earlier = at_lookup.at(3);
    EXPECT_THAT(earlier.words(5, 11), Each(unwritten)) << "its own ID comes first";
}

} // namespace
} // namespace olv_test
