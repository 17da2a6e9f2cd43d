// The platform calls that operations are measured beside are exactly those that the operations make.
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hyx.h"
#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/tracer.hpp"
#include "platform_calls.hpp"
#include "time_of_day.hpp"
#include "twamp_program.h"

namespace olv_bench {
namespace {

constexpr unsigned every_kind = 31;

/** The text of a call or a trace event, without handles and pattern storage: each module has its own. */
std::string without_handles(const std::string &text)
{
    std::istringstream words{text};
    std::string word;
    std::string before;
    std::string result;
    while (words >> word) {
        for (const std::string handle : {"rte=", "lock=", "semaphore=", "namespace="}) {
            word = word.starts_with(handle) ? handle : word;
        }
        if (before.starts_with("olv_twamp.") && word.starts_with("0x")) {
            word = "STORAGE"; // of the pattern that is entered in this tree, or removed from it
        }
        result += word + " ";
        before = word;
    }
    return result;
}

/** What one operation does. */
struct observed {
    std::string name;
    std::vector<std::string> calls;
    std::vector<std::string> traced;
    std::vector<std::uint32_t> results; ///< Counters that were read, and the call function that was found.
};

observed observe(const operation &operation, measured_module &m, olv_sim::capturing_trace_sink &sink)
{
    sink.clear();
    olv_sim::call_record::start(every_kind);
    EXPECT_EQ(operation.run(m), 0u) << operation.name;
    olv_sim::call_record::stop();

    observed seen{.name = operation.name, .calls = {}, .traced = {}, .results = {}};
    for (const olv_sim::recorded_call &call : olv_sim::call_record::calls()) {
        seen.calls.push_back(std::string(olv_sim::call_name(call.which)) + "(" +
                             without_handles(call.arguments) + ") = " + std::to_string(call.result));
    }
    for (const olv_sim::trace_event &event : sink.events()) {
        EXPECT_EQ(event.record, m.module);
        seen.traced.push_back(std::to_string(event.level) + " " + event.file + " " +
                              event.format.value_or("NULL") + ": " + without_handles(event.text));
    }
    seen.results = {m.stats.received,          m.stats.transmitted,       m.stats.active_sessions,
                    m.stats.drop_length_check, m.stats.drop_max_sessions, m.imc};
    return seen;
}

/** The fast path's counters of a responder. */
void count_packets(measured_module &m)
{
    twamp_responder_state state = {};
    const std::uint32_t rte = m.module->rte_handle;
    const std::uint32_t id = (*m.slot)->responder_id;
    ASSERT_EQ(hyx_se_state_get(rte, id, 0, &state, sizeof state), 0u);
    state.received = hyx_htonl(100);
    state.transmitted = hyx_htonl(101);
    state.active_sessions = hyx_htonl(102);
    state.drop_length_check = hyx_htonl(103);
    state.drop_max_sessions = hyx_htonl(104);
    ASSERT_EQ(hyx_se_state_set(rte, id, 0, &state, sizeof state), 0u);
}

/** Run operations one after the other on a module of their own, whose clocks stand still. */
std::vector<observed> observe(std::span<const operation> operations)
{
    measured_module m(4);
    m.processor.set_timer(0x0123456789ABCDEF);
    olv_test::set_time_of_day(olv_test::time_of_day{1700000000, 123456});
    olv_sim::capturing_trace_sink sink;
    olv_sim::tracer::set_sink(&sink);
    m.select(2);

    std::vector<observed> seen;
    for (const operation &operation : operations) {
        seen.push_back(observe(operation, m, sink));
        if (seen.back().name == "create") {
            count_packets(m);
        }
    }
    olv_sim::tracer::set_sink(nullptr);
    olv_test::set_time_of_day(std::nullopt);
    return seen;
}

TEST(platform_calls, are_those_of_the_operation)
{
    const std::vector<observed> made_by_library = observe(library::operations);
    const std::vector<observed> alone = observe(platform_calls::operations);
    constexpr std::size_t calls[] = {21, 10, 11, 11, 2, 11};
    constexpr std::size_t traced[] = {3, 2, 3, 4, 0, 4};
    ASSERT_EQ(made_by_library.size(), std::size(calls));
    ASSERT_EQ(alone.size(), std::size(calls));
    for (std::size_t i = 0; i < alone.size(); ++i) {
        SCOPED_TRACE(made_by_library[i].name);
        EXPECT_EQ(made_by_library[i].calls.size(), calls[i]);
        EXPECT_EQ(made_by_library[i].traced.size(), traced[i]);
        EXPECT_EQ(alone[i].name, made_by_library[i].name);
        EXPECT_EQ(alone[i].calls, made_by_library[i].calls);
        EXPECT_EQ(alone[i].traced, made_by_library[i].traced);
        EXPECT_EQ(alone[i].results, made_by_library[i].results);
    }
    const std::vector<std::uint32_t> &results = alone.back().results;
    EXPECT_EQ(std::vector(results.begin(), results.end() - 1), (std::vector{100u, 101u, 102u, 103u, 104u}));
    EXPECT_NE(results.back(), 0u); // the call function
}

} // namespace
} // namespace olv_bench
