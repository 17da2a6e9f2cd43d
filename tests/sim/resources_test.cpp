#include <algorithm>

#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

class resources : public sim_test {
  protected:
    static std::uint32_t find(const olv_sim::processor &owner, const char *name = "twamp_responder")
    {
        std::uint32_t handle = 0;
        EXPECT_EQ(hyx_rsrc_find(owner.rte_handle(), 0, name, &handle), 0u);
        return handle;
    }

    /** The value of the first resource; 0 when there are not so many. */
    static std::uint32_t allocate(std::uint32_t space, std::uint32_t count = 1)
    {
        std::uint32_t resource = 0;
        const std::uint32_t status = hyx_rsrc_allocate(space, count, &resource);
        EXPECT_EQ(status, resource == 0 ? 0x107u : 0u);
        return resource;
    }

    static words allocate_each(std::uint32_t space, std::size_t times)
    {
        words values(times);
        std::generate(values.begin(), values.end(), [space] { return allocate(space); });
        return values;
    }

    std::uint32_t space = find(processor);
};

TEST_F(resources, in_order_from_the_first_and_again_after_a_while)
{
    EXPECT_EQ(allocate_each(space, 2), (words{1, 2}));
    EXPECT_EQ(processor.allocated("twamp_responder"), 2u);
    EXPECT_TRUE(processor.is_allocated("twamp_responder", 2));
    EXPECT_FALSE(processor.is_allocated("twamp_responder", 0));
    EXPECT_FALSE(processor.is_allocated("nothing", 2));
    EXPECT_EQ(hyx_rsrc_free(space, 1, 1), 0u);
    EXPECT_FALSE(processor.is_allocated("twamp_responder", 1));
    EXPECT_EQ(allocate(space), 3u);
    for (std::uint32_t round = 0; round < 10000; ++round) {
        const std::uint32_t resource = allocate(space);
        ASSERT_LE(resource, 1026u); // the two that stay and those that wait
        ASSERT_EQ(hyx_rsrc_free(space, resource, 1), 0u);
    }
}

TEST_F(resources, exhausted_then_oldest_freed_first)
{
    const olv_sim::processor small{classifier_program::twamp(4, 1)};
    const std::uint32_t own = find(small);
    EXPECT_EQ(allocate_each(own, 5), (words{1, 2, 3, 4, 0}));
    EXPECT_EQ(hyx_rsrc_free(own, 3, 1), 0u);
    EXPECT_EQ(hyx_rsrc_free(own, 1, 1), 0u);
    EXPECT_EQ(allocate_each(own, 3), (words{3, 1, 0}));
    EXPECT_EQ(small.allocated("twamp_responder"), 4u);
    EXPECT_EQ(small.allocated("twamp_reflector_session"), 0u);
    EXPECT_EQ(allocate_each(find(small, "twamp_reflector_session"), 2), (words{1, 0}));
}

TEST_F(resources, free_of_what_is_not_allocated)
{
    EXPECT_EQ(allocate(space), 1u);
    const std::uint32_t refused[][2] = {{2, 1}, {0, 1}, {~0u, 1}, {1, ~0u}, {1, 2}};
    for (const auto &[resource, count] : refused) {
        EXPECT_EQ(hyx_rsrc_free(space, resource, count), 0x108u) << count << " from " << resource;
    }
    EXPECT_TRUE(processor.is_allocated("twamp_responder", 1));
    EXPECT_EQ(hyx_rsrc_free(space, 1, 0), 0x10Fu);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 1), 0u);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 1), 0x108u);
    const lines reported = take_violations();
    ASSERT_EQ(reported.size(), 6u);
    EXPECT_EQ(reported[0], "hyx_rsrc_free: twamp_responder 2 is not allocated");
}

TEST_F(resources, several_at_once)
{
    std::uint32_t resource = 7;
    EXPECT_EQ(hyx_rsrc_allocate(space, 0, &resource), 0x10Fu);
    EXPECT_EQ(hyx_rsrc_allocate(space, 1u << 24, &resource), 0x107u);
    EXPECT_EQ(hyx_rsrc_allocate(space, 0xFFFFFFFF, &resource), 0x107u);
    EXPECT_EQ(resource, 7u);
    EXPECT_EQ(allocate(space, 5), 1u);
    EXPECT_EQ(allocate(space), 6u);
    EXPECT_EQ(hyx_rsrc_free(space, 2, 3), 0u);
    EXPECT_FALSE(processor.is_allocated("twamp_responder", 4));
    EXPECT_TRUE(processor.is_allocated("twamp_responder", 5));
}

TEST_F(resources, value_of_the_global_statistics_is_left_out)
{
    classifier_program program = classifier_program::twamp();
    program.namespaces[0] = {"twamp_responder", 0x7008C1 - 2, 6, 60};
    const olv_sim::processor one_by_one{program};
    EXPECT_EQ(allocate_each(find(one_by_one), 7),
              (words{0x7008BF, 0x7008C0, 0x7008C2, 0x7008C3, 0x7008C4, 0x7008C5, 0}));
    EXPECT_EQ(hyx_rsrc_free(find(one_by_one), 0x7008C1, 1), 0x108u);
    EXPECT_EQ(take_violations().size(), 1u);

    const olv_sim::processor several{program}; // do not reach over it
    EXPECT_EQ(allocate(find(several), 3), 0x7008C2u);
    EXPECT_EQ(allocate_each(find(several), 4), (words{0x7008C5, 0x7008BF, 0x7008C0, 0}));

    EXPECT_EQ(allocate(space, 0x7008C0), 1u);
    EXPECT_EQ(allocate(space), 0x7008C2u);
    EXPECT_EQ(allocate(space, 0xFFFFFF - 0x7008C2), 0x7008C3u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 0xFFFFFEu);
    EXPECT_EQ(allocate(space), 0u);
}

} // namespace
