// Every status of the library and every platform call that can fail occurs in some story.
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>

#include "rows.hpp"

namespace olv_test {
namespace {

/** Names and values of the status codes, as the public header declares them. */
std::map<std::uint32_t, std::string> declared_statuses()
{
    std::ifstream header(OLV_TWAMP_HEADER);
    const std::string text{std::istreambuf_iterator<char>(header), {}};
    const std::regex declaration("\\b((?:OLV|TWAMP)_STATUS_[A-Z_]+) = (0x[0-9A-F]+|[0-9]+)");
    std::map<std::uint32_t, std::string> statuses;
    for (std::sregex_iterator match(text.begin(), text.end(), declaration), end; match != end; ++match) {
        statuses.emplace(static_cast<std::uint32_t>(std::stoul((*match)[2].str(), nullptr, 0)),
                         (*match)[1].str());
    }
    return statuses;
}

/** What occurs in stories, and in what follows when their calls fail. */
struct occurrences {
    std::set<std::uint32_t> statuses{0};
    std::set<call> calls; ///< Of rows that are swept: each of them fails there.

    void note(const story &told, bool swept)
    {
        for (const auto &each : told.steps()) {
            if (each->status) {
                statuses.insert(*each->status);
            }
            if (each->called && swept) {
                calls.insert(*each->called);
            }
            if (each->when_it_fails) {
                note(*each->when_it_fails, swept);
            }
        }
    }
};

occurrences of_all_tables()
{
    occurrences met;
    for (const table *each : all_tables()) {
        for (const row &told : each->rows()) {
            bench b(told.setup);
            if (told.arrange) {
                told.arrange(b);
            }
            met.note(told.tells(b), told.faults.empty());
        }
    }
    return met;
}

TEST(Completeness, EveryStatusOccurs)
{
    const auto statuses = declared_statuses();
    EXPECT_EQ(statuses.size(), 23u) << "statuses of the public header";
    const occurrences met = of_all_tables();
    for (const auto &[status, name] : statuses) {
        EXPECT_TRUE(met.statuses.contains(status)) << name << " is the status of no story";
    }
}

TEST(Completeness, EveryCallThatCanFailFails)
{
    const occurrences met = of_all_tables();
    for (std::size_t index = 0; index < olv_sim::call_count; ++index) {
        const auto which = static_cast<call>(index);
        // The look-ups of the tracer, which stand in no story, fail in every sweep.
        if (olv_sim::can_fail(which) && which != call::olv_lttng_fn_ptr_get) {
            EXPECT_TRUE(met.calls.contains(which)) << olv_sim::call_name(which) << " fails in no sweep";
        }
    }
}

TEST(Completeness, EveryRowHasALabelOfItsOwn)
{
    for (const table *each : all_tables()) {
        std::set<std::string> labels;
        for (const row &told : each->rows()) {
            EXPECT_NE(told.label, "") << each->name();
            EXPECT_TRUE(labels.insert(told.label).second) << each->name() << ": " << told.label;
        }
    }
}

} // namespace
} // namespace olv_test
