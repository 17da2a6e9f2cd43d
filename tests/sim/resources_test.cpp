#include <set>

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

    static std::uint32_t allocate(std::uint32_t space)
    {
        std::uint32_t resource = 0;
        EXPECT_EQ(hyx_rsrc_allocate(space, 1, &resource), 0u);
        return resource;
    }

    std::uint32_t space = find(processor);
};

TEST_F(resources, in_order_from_the_first)
{
    EXPECT_EQ(allocate(space), 1u);
    EXPECT_EQ(allocate(space), 2u);
    EXPECT_EQ(allocate(space), 3u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 3u);
    EXPECT_TRUE(processor.is_allocated("twamp_responder", 2));
    EXPECT_FALSE(processor.is_allocated("twamp_responder", 4));
    EXPECT_FALSE(processor.is_allocated("twamp_responder", 0));
    EXPECT_FALSE(processor.is_allocated("nothing", 2));
}

TEST_F(resources, freed_one_does_not_come_back_at_once)
{
    EXPECT_EQ(allocate(space), 1u);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 1), 0u);
    EXPECT_EQ(allocate(space), 2u);
    EXPECT_FALSE(processor.is_allocated("twamp_responder", 1));
}

TEST_F(resources, churn_stays_in_a_small_range)
{
    std::uint32_t highest = 0;
    for (int round = 0; round < 10000; ++round) {
        const std::uint32_t resource = allocate(space);
        highest = std::max(highest, resource);
        ASSERT_EQ(hyx_rsrc_free(space, resource, 1), 0u);
    }
    EXPECT_EQ(highest, 1024u);
}

TEST_F(resources, exhausted_then_oldest_freed_first)
{
    const olv_sim::processor small{classifier_program::twamp(4)};
    const std::uint32_t own = find(small);
    for (std::uint32_t expected = 1; expected <= 4; ++expected) {
        EXPECT_EQ(allocate(own), expected);
    }
    std::uint32_t resource = 7;
    EXPECT_EQ(hyx_rsrc_allocate(own, 1, &resource), 0x107u);
    EXPECT_EQ(resource, 7u);
    EXPECT_EQ(hyx_rsrc_free(own, 3, 1), 0u);
    EXPECT_EQ(hyx_rsrc_free(own, 1, 1), 0u);
    EXPECT_EQ(allocate(own), 3u);
    EXPECT_EQ(allocate(own), 1u);
    EXPECT_EQ(hyx_rsrc_allocate(own, 1, &resource), 0x107u);
    EXPECT_EQ(small.allocated("twamp_responder"), 4u);
}

TEST_F(resources, free_of_what_is_not_allocated)
{
    EXPECT_EQ(allocate(space), 1u);
    EXPECT_EQ(hyx_rsrc_free(space, 2, 1), 0x108u);
    EXPECT_EQ(hyx_rsrc_free(space, 0, 1), 0x108u);
    EXPECT_EQ(hyx_rsrc_free(space, 0xFFFFFFFF, 1), 0x108u);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 0xFFFFFFFF), 0x108u);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 2), 0x108u);
    EXPECT_TRUE(processor.is_allocated("twamp_responder", 1));
    EXPECT_EQ(hyx_rsrc_free(space, 1, 0), 0x10Fu);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 1), 0u);
    EXPECT_EQ(hyx_rsrc_free(space, 1, 1), 0x108u);
    const auto reported = take_violations();
    ASSERT_EQ(reported.size(), 6u);
    EXPECT_EQ(reported[0], "hyx_rsrc_free: twamp_responder 2 is not allocated");
}

TEST_F(resources, several_at_once)
{
    std::uint32_t resource = 0;
    EXPECT_EQ(hyx_rsrc_allocate(space, 0, &resource), 0x10Fu);
    EXPECT_EQ(hyx_rsrc_allocate(space, 5, &resource), 0u);
    EXPECT_EQ(resource, 1u);
    EXPECT_EQ(allocate(space), 6u);
    EXPECT_EQ(hyx_rsrc_free(space, 2, 3), 0u);
    EXPECT_EQ(processor.allocated("twamp_responder"), 3u);
    EXPECT_FALSE(processor.is_allocated("twamp_responder", 4));
    EXPECT_TRUE(processor.is_allocated("twamp_responder", 5));
    EXPECT_EQ(hyx_rsrc_allocate(space, 1u << 24, &resource), 0x107u);
    EXPECT_EQ(hyx_rsrc_allocate(space, 0xFFFFFFFF, &resource), 0x107u);
    EXPECT_EQ(resource, 1u);
}

TEST_F(resources, value_of_the_global_statistics_is_left_out)
{
    classifier_program program = classifier_program::twamp();
    program.namespaces[0] = {"twamp_responder", 0x7008C1 - 2, 4, 60};
    const olv_sim::processor other{program};
    const std::uint32_t own = find(other);
    EXPECT_EQ(allocate(own), 0x7008BFu);
    EXPECT_EQ(allocate(own), 0x7008C0u);
    EXPECT_EQ(allocate(own), 0x7008C2u);
    EXPECT_EQ(allocate(own), 0x7008C3u);
    std::uint32_t resource = 0;
    EXPECT_EQ(hyx_rsrc_allocate(own, 1, &resource), 0x107u);
    EXPECT_EQ(hyx_rsrc_free(own, 0x7008C1, 1), 0x108u);
    EXPECT_EQ(take_violations().size(), 1u);
}

TEST_F(resources, several_at_once_do_not_reach_over_the_value_left_out)
{
    classifier_program program = classifier_program::twamp();
    program.namespaces[0] = {"twamp_responder", 0x7008C1 - 2, 6, 60};
    const olv_sim::processor other{program};
    const std::uint32_t own = find(other);
    std::uint32_t resource = 0;
    EXPECT_EQ(hyx_rsrc_allocate(own, 3, &resource), 0u);
    EXPECT_EQ(resource, 0x7008C2u);
    EXPECT_EQ(allocate(own), 0x7008C5u);
    EXPECT_EQ(allocate(own), 0x7008BFu);
    EXPECT_EQ(allocate(own), 0x7008C0u);
    EXPECT_EQ(hyx_rsrc_allocate(own, 1, &resource), 0x107u);
    EXPECT_EQ(other.allocated("twamp_responder"), 6u);
}

TEST_F(resources, whole_program_namespace_ends_inside_24_bits)
{
    std::uint32_t resource = 0;
    ASSERT_EQ(hyx_rsrc_allocate(space, 0x7008C0, &resource), 0u);
    EXPECT_EQ(resource, 1u);
    EXPECT_EQ(allocate(space), 0x7008C2u);
    ASSERT_EQ(hyx_rsrc_allocate(space, 0xFFFFFF - 0x7008C2, &resource), 0u);
    EXPECT_EQ(resource, 0x7008C3u);
    EXPECT_TRUE(processor.is_allocated("twamp_responder", 0xFFFFFF));
    EXPECT_EQ(processor.allocated("twamp_responder"), 0xFFFFFEu);
    EXPECT_EQ(hyx_rsrc_allocate(space, 1, &resource), 0x107u);
}

TEST_F(resources, session_namespace)
{
    const olv_sim::processor small{classifier_program::twamp(4, 2)};
    const std::uint32_t own = find(small, "twamp_reflector_session");
    EXPECT_EQ(allocate(own), 1u);
    EXPECT_EQ(allocate(own), 2u);
    std::uint32_t resource = 0;
    EXPECT_EQ(hyx_rsrc_allocate(own, 1, &resource), 0x107u);
    EXPECT_EQ(small.allocated("twamp_reflector_session"), 2u);
    EXPECT_EQ(small.allocated("twamp_responder"), 0u);
}

} // namespace
