// Modules with many responders, and a dump of a million.
#include <algorithm>
#include <cstdio>
#include <utility>

#include <gtest/gtest.h>

#include "populated_module.hpp"
#include "resident_memory.hpp"

namespace olv_bench {
namespace {

/** What was printed, and how much memory this process had meanwhile. */
struct printed {
    std::size_t lines = 0;
    std::size_t most_bytes = 0;
};

ssize_t take(void *seen, const char *text, std::size_t length)
{
    auto &[lines, most_bytes] = *static_cast<printed *>(seen);
    lines += static_cast<std::size_t>(std::count(text, text + length, '\n'));
    most_bytes = std::max(most_bytes, olv_test::resident_bytes());
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
    EXPECT_LT(seen.most_bytes, before + (std::size_t{2} << 20));
}

TEST(many_responders, stay_as_many_whatever_is_timed)
{
    populated_module module{1000};
    const auto live = [&] { return module.module().processor.allocated("twamp_responder"); };
    for (const visiting_order order : {visiting_order::in_turn, visiting_order::at_random}) {
        module.choose(order);
        EXPECT_EQ(module.chosen(), 256u);
        module.run(remove_and_free);
        EXPECT_EQ(live(), 744u);
        for (const operation &each : {library::create, library::statistics, library::bind, library::unbind}) {
            module.run(each);
        }
        EXPECT_EQ(live(), 1000u);
    }
}

} // namespace
} // namespace olv_bench
