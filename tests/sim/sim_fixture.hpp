// What the platform's tests share.
#ifndef SIM_FIXTURE_HPP
#define SIM_FIXTURE_HPP

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "olv_twamp.h"
#include "threads.hpp"

/** Statuses, or other words, one after the other. */
using words = std::vector<std::uint32_t>;
using lines = std::vector<std::string>;

/** Entries as a listing shows them: key width, key, word of the pattern, the action's three words. */
using shown_entries = std::vector<words>;

using namespace olv_test;

/** A processor with the TWAMP program; quiet violations, which a test has to take or have none of. */
class sim_test : public testing::Test {
  protected:
    static constexpr std::uint32_t responder_tree = 0x104;
    static constexpr std::uint32_t bind_tree = 0x105;
    static constexpr const char *responder_tree_name = "olv_twamp.twamp_responder_lookup";

    sim_test()
    {
        olv_sim::reset_process();
        olv_sim::violations::set_echo(false);
    }

    void TearDown() override
    {
        EXPECT_EQ(olv_sim::violations::list(), lines{});
        EXPECT_EQ(olv_sim::patterns::live(), patterns_before);
        EXPECT_EQ(olv_sim::memory::in_use().live_blocks, blocks_before);
        olv_sim::reset_process();
    }

    /** The violations so far, which are then forgotten. */
    static lines take_violations()
    {
        lines taken = olv_sim::violations::list();
        olv_sim::violations::clear();
        return taken;
    }

    /** A pattern with one field; nothing is appended for a width of 0. */
    static olv_ptn make_pattern(std::uint32_t value, std::uint32_t width = 24)
    {
        olv_ptn pattern{};
        EXPECT_EQ(olv_ptn_new(width == 0 ? 24 : width, &pattern), 0u);
        if (width > 0) {
            EXPECT_EQ(olv_ptn_extend(&pattern, value, width), 0u);
        }
        return pattern;
    }

    std::uint32_t learn(std::uint32_t tree, std::uint32_t key, olv_ptn_action action, std::uint32_t width = 24,
                        std::uint32_t pattern_word = 0) const
    {
        olv_ptn pattern = make_pattern(key, width);
        pattern.word[2] = pattern_word;
        const std::uint32_t status = hyx_ptn_learn(rte, tree, &pattern, &action);
        olv_ptn_free(pattern);
        return status;
    }

    std::uint32_t unlearn(std::uint32_t tree, std::uint32_t key, std::uint32_t width = 24) const
    {
        olv_ptn pattern = make_pattern(key, width);
        olv_ptn_action action{{9, 9, 9}};
        const std::uint32_t status = hyx_ptn_unlearn(rte, tree, &pattern, width, &action, 1);
        olv_ptn_free(pattern);
        return status;
    }

    /** The action that a key leads to in the responder tree; nothing where it leads to none. */
    [[nodiscard]] words look_up(std::uint32_t key) const
    {
        const auto found = processor.tree(responder_tree_name)->lookup(key);
        return found ? words{found->word[0], found->word[1], found->word[2]} : words{};
    }

    static void show(void *entries, void *unused, const olv_ptn *pattern, const olv_ptn_action *action)
    {
        EXPECT_EQ(unused, nullptr);
        const auto width = static_cast<std::uint16_t>(pattern->word[1]);
        std::uint32_t key = 0;
        EXPECT_EQ(olv_ptn_parse(pattern, width == 0 ? 0 : 1, &width, &key), 0u);
        static_cast<shown_entries *>(entries)->push_back(
            {width, key, pattern->word[2], action->word[0], action->word[1], action->word[2]});
    }
    [[nodiscard]] shown_entries list(std::uint32_t tree) const
    {
        shown_entries entries;
        EXPECT_EQ(hyx_ptn_list_ptns(rte, tree, show, &entries), 0u);
        return entries;
    }

    const std::size_t patterns_before = olv_sim::patterns::live();
    const std::size_t blocks_before = olv_sim::memory::in_use().live_blocks;
    olv_sim::processor processor{olv_sim::classifier_program::twamp()};
    const std::uint32_t rte = processor.rte_handle();
};

#endif
