// What the platform's tests share.
#ifndef SIM_FIXTURE_HPP
#define SIM_FIXTURE_HPP

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "olv_twamp.h"

/** When waiting for what has to happen is given up. */
class deadline {
  public:
    [[nodiscard]] bool over() const { return std::chrono::steady_clock::now() >= end_; }

  private:
    std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + std::chrono::seconds{60};
};

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
        EXPECT_EQ(olv_sim::violations::list(), std::vector<std::string>{});
        EXPECT_EQ(olv_sim::patterns::live(), patterns_before);
        EXPECT_EQ(olv_sim::memory::in_use().live_blocks, blocks_before);
        olv_sim::reset_process();
    }

    /** The violations so far, which are then forgotten. */
    static std::vector<std::string> take_violations()
    {
        std::vector<std::string> taken = olv_sim::violations::list();
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

    const std::size_t patterns_before = olv_sim::patterns::live();
    const std::size_t blocks_before = olv_sim::memory::in_use().live_blocks;
    olv_sim::processor processor{olv_sim::classifier_program::twamp()};
    const std::uint32_t rte = processor.rte_handle();
};

#endif
