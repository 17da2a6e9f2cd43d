// Figures as text for people: aligned, 80 columns, nothing in it that moves the cursor.

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twampctl/figures/figures_output.hpp"
#include "example_figures.hpp"

namespace apps_tests {
namespace {

using testing::HasSubstr;
using testing::Not;
using twampctl::output_format;

std::size_t longest_line(const std::string &text)
{
    std::istringstream lines{text};
    std::size_t longest = 0;
    for (std::string line; std::getline(lines, line);) {
        longest = std::max(longest, line.size());
    }
    return longest;
}

TEST(FiguresText, ShowsEverything)
{
    EXPECT_EQ(twampctl::format(example_figures(), output_format::text),
              R"(Processor np0, module up, 2025-01-31 12:00:00 UTC

Module
  received packets                                   10
  transmitted packets                                11
  dropped: no responder                              12
  dropped: length check failed                       13
  dropped: hash error                                14
  dropped: no output path bound              4294967295

ID         received transmitted  too short no session   sessions  RESPONDER
0x1A             20          15          3          2          4  edge

Listener [::1]:8620
  responder                                        edge
  bind key                                            6
  received packets                                   31
  dropped: socket buffer full                        30
  dropped: source not allowed                        32
  dropped: source port too low                       33
  dropped: own address as source                     34
  dropped: length above the longest                  35
  dropped: answer to a reply                         36
  dropped: packet rate                               37
  sent replies                                       38
  replies that could not be sent                     39

Sessions of edge
   replies   idle s    trip ms  SENDER
        41      1.5      0.250  192.0.2.7:40000

Platform
  memory blocks                                      51
  responder IDs                                      52
  responder entries                                  53
  bind entries                                       54
  patterns                                           55
  violations                                         56
)");
}

TEST(FiguresText, ShowsOneResponder)
{
    EXPECT_EQ(twampctl::format(example_responder(), output_format::text),
              R"(Responder edge
  ID                                               0x1A
  received packets                                   20
  transmitted packets                                15
  dropped: length check failed                        3
  dropped: too many sessions                          2
  active sessions                                     4
)");
}

TEST(FiguresText, ShowsWhatIsAbsent)
{
    EXPECT_EQ(twampctl::format(twampctl::figures{}, output_format::text),
              R"(Processor , module down, 1970-01-01 00:00:00 UTC

Module
  its counters cannot be read

No responders

No listeners

No sessions

Platform
  memory blocks                                       0
  responder IDs                                       0
  responder entries                                   0
  bind entries                                        0
  patterns                                            0
  violations                                          0
)");
    const twampctl::responder_figures unreadable{.name = "b", .id = 2, .counters = {}};
    EXPECT_EQ(twampctl::format(unreadable, output_format::text),
              "Responder b\n"
              "  ID                                                0x2\n"
              "  its counters cannot be read\n");
    EXPECT_EQ(twampctl::format(std::vector{unreadable}, output_format::text),
              "ID         received transmitted  too short no session   sessions  RESPONDER\n"
              "0x2               -           -          -          -          -  b\n");
    twampctl::session_figures session = example_session();
    session.round_trip_seconds = std::nullopt;
    EXPECT_EQ(twampctl::format(std::vector{session}, output_format::text),
              "Sessions of edge\n"
              "   replies   idle s    trip ms  SENDER\n"
              "        41      1.5          -  192.0.2.7:40000\n");
}

TEST(FiguresText, ShowsSessionsInOneTableForEachResponder)
{
    using twampctl::session_figures;
    const std::vector<session_figures> sessions{
        session_figures{.responder = "east", .sender = "192.0.2.1:1", .replies = 1, .idle_seconds = 1},
        session_figures{.responder = "west", .sender = "192.0.2.1:2", .replies = 2, .idle_seconds = 2},
        session_figures{.responder = "east", .sender = "192.0.2.1:3", .replies = 3, .idle_seconds = 3}};
    EXPECT_EQ(twampctl::format(sessions, output_format::text), R"(Sessions of east
   replies   idle s    trip ms  SENDER
         1      1.0          -  192.0.2.1:1
         3      3.0          -  192.0.2.1:3
Sessions of west
   replies   idle s    trip ms  SENDER
         2      2.0          -  192.0.2.1:2
)");
}

TEST(FiguresText, StaysWithin80Columns)
{
    constexpr std::uint32_t most = 4294967295;
    constexpr std::uint64_t most_of_all = 18446744073709551615u;
    const std::string name(100, 'n');
    const std::string address = "[1111:2222:3333:4444:5555:6666:7777:8888]:65535";
    twampctl::figures all = example_figures();
    all.processor = name;
    all.responders[0] = {.name = name,
                         .id = 0xFFFFFF,
                         .counters = olv_twamp_responder_stats{.received = most,
                                                               .transmitted = most,
                                                               .drop_length_check = most,
                                                               .active_sessions = most,
                                                               .drop_max_sessions = most}};
    all.listeners[0].address = address;
    all.listeners[0].responder = name;
    all.listeners[0].counters.rate_limited = most_of_all;
    all.sessions[0] = {.responder = name,
                       .sender = address,
                       .replies = most,
                       .idle_seconds = 999999,
                       .round_trip_seconds = 900};
    const std::string text = twampctl::format(all, output_format::text);
    EXPECT_EQ(longest_line(text), 80u) << text;
    EXPECT_THAT(text, HasSubstr("\n0xFFFFFF 4294967295  4294967295 4294967295 4294967295 4294967295"
                                "  nnnnnnnnnnn...\n"));
    EXPECT_THAT(text, HasSubstr("\n4294967295 999999.0 900000.000  "
                                "[1111:2222:3333:4444:5555:6666:7777:8888]:65535\n"));
    EXPECT_THAT(text, HasSubstr("  dropped: packet rate              18446744073709551615\n"));
}

TEST(FiguresText, EscapesNames)
{
    const twampctl::responder_figures responder{.name = hostile_name, .id = 2, .counters = {}};
    EXPECT_THAT(twampctl::format(responder, output_format::text),
                HasSubstr("Responder a\\\"b\\\\c\\nd\\u001b[2J\\u00e9\\ufffd\n"));
    EXPECT_THAT(twampctl::format(std::vector{responder}, output_format::text), Not(HasSubstr("\x1b")));
}

} // namespace
} // namespace apps_tests
