// Every status of the library and every platform call that can fail occurs in some row of some table.
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
    for (std::sregex_iterator match(text.begin(), text.end(), declaration), end; match != end; ++match)
        statuses.emplace(static_cast<std::uint32_t>(std::stoul((*match)[2].str(), nullptr, 0)),
                         (*match)[1].str());
    return statuses;
}

/** Calls whose failure no status, line or step can show, and why. */
const std::map<call, std::string> without_a_row = {
    {call::hyx_timer_get_timestamp, "create ignores its status"},
};

TEST(Completeness, EveryStatusOccursInARow)
{
    std::set<std::uint32_t> met;
    for (const table *each : all_tables())
        for (const row &expected : each->rows())
            met.insert(expected.status);
    const auto statuses = declared_statuses();
    EXPECT_EQ(statuses.size(), 23u) << "statuses of the public header";
    for (const auto &[status, name] : statuses)
        EXPECT_TRUE(met.contains(status)) << name << " is returned in no row";
}

TEST(Completeness, EveryCallThatCanFailFailsInARow)
{
    std::set<call> failed;
    for (const table *each : all_tables())
        for (const row &expected : each->rows())
            for (const planned_fault &fault : expected.faults)
                failed.insert(fault.which);
    for (std::size_t index = 0; index < olv_sim::call_count; ++index) {
        const auto which = static_cast<call>(index);
        if (olv_sim::can_fail(which) && !without_a_row.contains(which)) {
            EXPECT_TRUE(failed.contains(which)) << olv_sim::call_name(which) << " fails in no row";
        }
    }
    for (const auto &[which, reason] : without_a_row)
        EXPECT_TRUE(olv_sim::can_fail(which)) << olv_sim::call_name(which) << " cannot fail: " << reason;
}

TEST(Completeness, EveryRowHasALabelOfItsOwn)
{
    for (const table *each : all_tables()) {
        std::set<std::string> labels;
        for (const row &expected : each->rows()) {
            EXPECT_NE(expected.label, "") << each->name();
            EXPECT_TRUE(labels.insert(expected.label).second) << each->name() << ": " << expected.label;
        }
    }
}

} // namespace
} // namespace olv_test
