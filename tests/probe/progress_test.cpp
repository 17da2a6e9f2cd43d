// The line that shows how far a run is.

#include "apps/twamp-probe/progress_line.hpp"

#include <gtest/gtest.h>

namespace olv_probe {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

TEST(Progress, SaysHowFarOfHowFar)
{
    session_options options;
    options.count = 1000;
    options.senders = 2;
    EXPECT_EQ(progress_text(options, {milliseconds(1250), 80, 79, 79, nanoseconds(12'340)}),
              "1.2 s, sent 80 of 2000, received 79, round trip 12.3 us");
    options.duration = milliseconds(2500);
    EXPECT_EQ(progress_text(options, {milliseconds(1250), 80, 0, 0, {}}), "1.2 of 2.5 s, sent 80, received 0");
}

TEST(Progress, FitsTheTerminal)
{
    session_options options;
    options.duration = std::chrono::hours(8760);
    const probe_progress most{.elapsed = std::chrono::hours(8759),
                              .sent = 10'000'000,
                              .received = 18'446'744'073'709'551'615u,
                              .valid = 0,
                              .round_trip = std::chrono::hours(8759)};
    EXPECT_EQ(progress_text(options, most).size(), 79u);
}

} // namespace
} // namespace olv_probe
