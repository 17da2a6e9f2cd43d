// Figures as JSON: every field, in its order; what is absent; names as users type them.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "apps/twampctl/figures/figures_output.hpp"
#include "example_figures.hpp"

namespace apps_tests {
namespace {

using nlohmann::ordered_json;
using twampctl::responder_figures;

std::string json_of(const twampctl::figures_part &part)
{
    return twampctl::format(part, twampctl::output_format::json);
}

/** A document as it is written: two blanks for each level. */
std::string indented(const ordered_json &document)
{
    return document.dump(2) + "\n";
}

const ordered_json &everything()
{
    static const ordered_json document = ordered_json::parse(R"({
        "taken_at": 1738324800.25, "processor": "np0", "module_up": true,
        "module": {
            "received_packets": 10, "transmitted_packets": 11,
            "dropped_packets": {"no_responder": 12, "length_check": 13, "hash_error": 14, "no_bind": 4294967295}
        },
        "responders": [{
            "name": "edge", "id": 26,
            "counters": {
                "received_packets": 20, "transmitted_packets": 15,
                "dropped_packets": {"length_check": 3, "max_sessions": 2},
                "active_sessions": 4
            },
            "session_limit": 61
        }],
        "listeners": [{
            "address": "[::1]:8620", "responder": "edge", "bind_key": 6,
            "received_packets": 31,
            "dropped_packets": {
                "socket_full": 30, "source_not_allowed": 32, "source_port": 33, "own_source": 34,
                "not_to_this_host": 45, "too_long": 35, "answer_to_reply": 36, "unstamped_rate": 62,
                "packet_rate": 37
            },
            "sent_replies": 38, "failed_replies": 39
        }],
        "sessions": [{
            "responder": "edge", "sender": "192.0.2.7:40000",
            "replies": 41, "idle_seconds": 1.5, "round_trip_seconds": 0.00025
        }],
        "gave_way_sessions": 63,
        "platform": {
            "memory_blocks": 51, "responder_ids": 52, "responder_entries": 53, "bind_entries": 54,
            "patterns": 55, "violations": 56
        }
    })");
    return document;
}

TEST(FiguresJson, HasEveryField)
{
    EXPECT_EQ(json_of(example_figures()), indented(everything()));
}

TEST(FiguresJson, OfOnePartIsItsFieldOfTheWhole)
{
    EXPECT_EQ(json_of(std::optional{example_module()}), indented(everything()["module"]));
    EXPECT_EQ(json_of(example_responder()), indented(everything()["responders"][0]));
    EXPECT_EQ(json_of(std::vector{example_responder()}), indented(everything()["responders"]));
    EXPECT_EQ(json_of(std::vector{example_listener()}), indented(everything()["listeners"]));
    EXPECT_EQ(json_of(std::vector{example_session()}), indented(everything()["sessions"]));
    EXPECT_EQ(json_of(example_usage()), indented(everything()["platform"]));
}

TEST(FiguresJson, OfNothingHasNullsAndEmptyLists)
{
    EXPECT_EQ(json_of(twampctl::figures{}), indented(ordered_json::parse(R"({
        "taken_at": 0.0, "processor": "", "module_up": false, "module": null,
        "responders": [], "listeners": [], "sessions": [], "gave_way_sessions": 0,
        "platform": {"memory_blocks": 0, "responder_ids": 0, "responder_entries": 0, "bind_entries": 0,
                     "patterns": 0, "violations": 0}
    })")));
    EXPECT_EQ(json_of(std::optional<olv_twamp_global_stats>{}), "null\n");
    EXPECT_EQ(json_of(std::vector<responder_figures>{}), "[]\n");
    ordered_json session = everything()["sessions"];
    session[0]["round_trip_seconds"] = nullptr;
    twampctl::session_figures unmeasured = example_session();
    unmeasured.round_trip_seconds = std::nullopt;
    EXPECT_EQ(json_of(std::vector{unmeasured}), indented(session));
}

TEST(FiguresJson, EscapesNames)
{
    EXPECT_EQ(json_of(responder_figures{.name = hostile_name, .id = 2, .counters = {}}),
              "{\n  \"name\": \"a\\\"b\\\\c\\nd\\u001b[2J\xc3\xa9\xef\xbf\xbd\",\n"
              "  \"id\": 2,\n  \"counters\": null,\n  \"session_limit\": null\n}\n");
}

} // namespace
} // namespace apps_tests
