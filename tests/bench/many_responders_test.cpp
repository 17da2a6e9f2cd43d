// Modules with many responders, and a dump of a million.
#include <algorithm>
#include <cstdio>
#include <utility>

#include <gtest/gtest.h>

#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "populated_module.hpp"
#include "resident_memory.hpp"

namespace olv_bench {
namespace {

/** What was printed, and how much memory this process had meanwhile. */
struct printed {
    std::size_t pieces = 0;
    std::size_t lines = 0;
    std::size_t most_bytes = 0;
};

ssize_t take(void *seen, const char *text, std::size_t length)
{
    auto &[pieces, lines, most_bytes] = *static_cast<printed *>(seen);
    lines += static_cast<std::size_t>(std::count(text, text + length, '\n'));
    if (++pieces % 256 == 0) {
        most_bytes = std::max(most_bytes, olv_test::resident_bytes());
    }
    return static_cast<ssize_t>(length);
}

TEST(many_responders, are_dumped_in_constant_memory)
{
    populated_module module{1'000'000};
    const std::size_t before = olv_test::resident_bytes();
    printed seen;
    std::FILE *const console = std::exchange(
        stdout, fopencookie(&seen, "w", {.read = nullptr, .write = take, .seek = nullptr, .close = nullptr}));
    const std::uint32_t status = olv_twamp_tables_dump(module.module().module, OLV_TWAMP_TABLE_GROUP_ALL);
    std::fclose(std::exchange(stdout, console));
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(seen.lines, 1'000'002u); // a blank one and the title
    EXPECT_GT(seen.most_bytes, 0u);
    EXPECT_LT(seen.most_bytes, before + (std::size_t{2} << 20));
}

TEST(many_responders, stay_as_many_whatever_is_timed)
{
    const std::size_t blocks_before = olv_sim::memory::in_use().live_blocks;
    const std::size_t violations_before = olv_sim::violations::count();
    for (const visiting_order order : {visiting_order::in_turn, visiting_order::at_random}) {
        populated_module module{1000};
        const auto live = [&] { return module.module().processor.allocated("twamp_responder"); };
        module.choose(order);
        EXPECT_EQ(module.chosen(), 256u);
        module.run(remove_and_free);
        EXPECT_EQ(live(), 744u);
        for (const operation &each : {library::create, library::statistics, library::bind, library::unbind}) {
            module.run(each);
        }
        EXPECT_EQ(live(), 1000u);
    }
    EXPECT_EQ(olv_sim::memory::in_use().live_blocks, blocks_before);
    EXPECT_EQ(olv_sim::violations::count(), violations_before);
}

} // namespace
} // namespace olv_bench
