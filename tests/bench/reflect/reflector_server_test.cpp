#include "reflector_server.hpp"

#include <gtest/gtest.h>

#include "generator.hpp"

namespace {

using namespace reflect_bench;
using namespace std::chrono_literals;

struct size_row {
    const char *name;
    std::uint32_t sessions;
    std::size_t length;
};

void PrintTo(const size_row &row, std::ostream *out)
{
    *out << row.name;
}

class reflector_server_test : public testing::TestWithParam<size_row> {};

TEST_P(reflector_server_test, answers_and_counts_each_request)
{
    reflector_server server{GetParam().sessions};
    generator source{{.window = 32,
                      .sessions = GetParam().sessions,
                      .length = GetParam().length,
                      .spins = false,
                      .patience = 30s}};
    std::uint64_t answered = 0;
    for (int round = 0; round < 2; ++round) {
        server.start();
        source.aim(server.address(), server.number_position());
        const traffic_figures seen = source.run(100ms);
        server.stop();
        EXPECT_GT(seen.received, GetParam().sessions);
        EXPECT_EQ(seen.lost, 0u);
        EXPECT_EQ(seen.unexpected, 0u);
        answered += seen.received;
    }
    EXPECT_EQ(server.counters().received, answered);
    EXPECT_EQ(server.counters().transmitted, answered);
    EXPECT_EQ(server.counters().active_sessions, GetParam().sessions);
}

constexpr size_row sizes[] = {
    {"one_session_of_44_octets", 1, 44}, {"one_session_of_1400_octets", 1, 1400}, {"fifty_sessions", 50, 44}};

INSTANTIATE_TEST_SUITE_P(sizes, reflector_server_test, testing::ValuesIn(sizes),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace
