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
using testing::StartsWith;
using twampctl::responder_figures;

std::string text_of(const twampctl::figures_part &part)
{
    return twampctl::format(part, twampctl::output_format::text);
}

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
    EXPECT_EQ(text_of(example_figures()),
              R"(Processor np0, module up, 2025-01-31 12:00:00 UTC

Module
  received packets                                   10
  transmitted packets                                11
  dropped: no responder                              12
  dropped: length check failed                       13
  dropped: hash error                                14
  dropped: no output path bound              4294967295

ID         received transmitted length_check max_sessions sessions  RESPONDER
0x1A             20          15            3            2        4  edge

Listener [::1]:8620
  responder                                        edge
  bind key                                            6
  received packets                                   31
  dropped: socket buffer full                        30
  dropped: source not allowed                        32
  dropped: source port too low                       33
  dropped: own address as source                     34
  dropped: not sent to this host                     45
  dropped: length above the longest                  35
  dropped: answer to a reply                         36
  dropped: unstamped packet rate                     62
  dropped: packet rate                               37
  sent replies                                       38
  replies that could not be sent                     39

Sessions of edge
   replies   idle s    trip ms  SENDER
        41      1.5      0.250  192.0.2.7:40000
  sessions that gave way                             63

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
    EXPECT_EQ(text_of(example_responder()),
              R"(Responder edge
  ID                                               0x1A
  received packets                                   20
  transmitted packets                                15
  dropped: length check failed                        3
  dropped: too many sessions                          2
  active sessions                                     4
  session limit                                      61
)");
}

TEST(FiguresText, ShowsWhatIsAbsent)
{
    EXPECT_THAT(text_of(twampctl::figures{}), StartsWith(R"(Processor , module down, 1970-01-01 00:00:00 UTC

Module
  its counters cannot be read

No responders

No listeners

No sessions
  sessions that gave way                              0

Platform
  memory blocks                                       0
)"));
    const responder_figures unreadable{.name = "b", .id = 2, .counters = {}};
    EXPECT_EQ(text_of(unreadable), "Responder b\n"
                                   "  ID                                                0x2\n"
                                   "  its counters cannot be read\n");
    EXPECT_EQ(text_of(std::vector{unreadable}),
              "ID         received transmitted length_check max_sessions sessions  RESPONDER\n"
              "0x2               -           -            -            -        -  b\n");
}

TEST(FiguresText, ShowsSessionsInOneTableForEachResponder)
{
    const std::vector<twampctl::session_figures> sessions{
        {"east", "192.0.2.1:1", 1, 1}, {"west", "192.0.2.1:2", 2, 2}, {"east", "192.0.2.1:3", 3, 3}};
    EXPECT_EQ(text_of(sessions), R"(Sessions of east
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
    all.responders[0] = {
        .name = name, .id = 0xFFFFFF, .counters = olv_twamp_responder_stats{most, most, most, most, most}};
    all.listeners[0].address = address;
    all.listeners[0].responder = name;
    all.listeners[0].counters.dropped_packets[olv_fastpath::drop_reason::packet_rate] = most_of_all;
    all.sessions[0] = {name, address, most, 999999, 900};
    const std::string text = text_of(all);
    EXPECT_EQ(longest_line(text), 80u) << text;
    EXPECT_THAT(text, HasSubstr("\n0xFFFFFF 4294967295  4294967295   4294967295   4294967295 4294967295"
                                "  nnnnnnn...\n"));
    EXPECT_THAT(text, HasSubstr("\n4294967295 999999.0 900000.000  "
                                "[1111:2222:3333:4444:5555:6666:7777:8888]:65535\n"));
    EXPECT_THAT(text, HasSubstr("  dropped: packet rate              18446744073709551615\n"));
}

TEST(FiguresText, EscapesNames)
{
    const responder_figures responder{.name = hostile_name, .id = 2, .counters = {}};
    EXPECT_THAT(text_of(responder), HasSubstr("Responder a\\\"b\\\\c\\nd\\u001b[2J\\u00e9\\ufffd\n"));
    EXPECT_THAT(text_of(std::vector{responder}), Not(HasSubstr("\x1b")));
}

} // namespace
} // namespace apps_tests
