// The floor of each operation makes exactly the platform calls of the operation.
#include <regex>

#include <gmock/gmock.h>

#include "floor.hpp"
#include "hyx.h"
#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/tracer.hpp"
#include "time_of_day.hpp"

namespace olv_bench {
namespace {

constexpr unsigned every_kind = 31;

/** The text of a call or a trace event with what the platform hands out to each of its users anew, handles and
 * the storage of patterns, as the same for all. */
std::string without_handles(const std::string &text)
{
    static const std::regex handle("(rte|lock|semaphore|namespace)=[0-9a-zA-Z]+");
    static const std::regex pattern("(olv_twamp\\.\\w+) 0x[0-9a-f]{8} 0x00000018 ");
    return std::regex_replace(std::regex_replace(text, handle, "$1=HANDLE"), pattern, "$1 STORAGE 0x00000018 ");
}

std::vector<std::string> texts(const std::vector<olv_sim::recorded_call> &calls)
{
    std::vector<std::string> made;
    for (const olv_sim::recorded_call &call : calls) {
        made.push_back(std::string(olv_sim::call_name(call.which)) + "(" + without_handles(call.arguments) +
                       ") = " + std::to_string(call.result));
    }
    return made;
}

/** What reached the tracer, less the line. */
std::vector<std::string> texts(const std::vector<olv_sim::trace_event> &events, const void *module)
{
    std::vector<std::string> traced;
    for (const olv_sim::trace_event &event : events) {
        EXPECT_EQ(event.record, module);
        traced.push_back(std::to_string(event.level) + " " + event.file + " " + event.format.value_or("NULL") +
                         ": " + without_handles(event.text));
    }
    return traced;
}

/** Platform calls and trace events of one operation. */
struct observed {
    std::string name;
    std::vector<std::string> calls;
    std::vector<std::string> traced;
};

/** Run operations one after the other on a bed of their own, whose clocks stand still. */
std::vector<observed> observe(std::span<const operation> operations)
{
    bed b(4);
    b.processor.set_timer(0x0123456789ABCDEF);
    olv_test::set_time_of_day(olv_test::time_of_day{1700000000, 123456});
    olv_sim::capturing_trace_sink sink;
    olv_sim::tracer::set_sink(&sink);
    b.select(2);

    std::vector<observed> seen;
    for (const operation &operation : operations) {
        sink.clear();
        olv_sim::call_record::start(every_kind);
        EXPECT_EQ(operation.run(b), 0u) << operation.name;
        olv_sim::call_record::stop();
        seen.push_back({operation.name, texts(olv_sim::call_record::calls()), texts(sink.events(), b.module)});
    }
    olv_sim::tracer::set_sink(nullptr);
    olv_test::set_time_of_day(std::nullopt);
    return seen;
}

TEST(Floor, MakesTheCallsOfItsOperation)
{
    const std::vector<observed> library = observe(operations);
    const std::vector<observed> floor = observe(operation_floors);
    ASSERT_EQ(library.size(), floor.size());
    for (std::size_t i = 0; i < library.size(); ++i) {
        SCOPED_TRACE(library[i].name);
        EXPECT_EQ(library[i].name, floor[i].name);
        EXPECT_EQ(library[i].calls, floor[i].calls);
        EXPECT_EQ(library[i].traced, floor[i].traced);
    }
}

TEST(Floor, IsComparedWithEveryCall)
{
    std::vector<std::size_t> calls;
    std::vector<std::size_t> traced;
    for (const observed &each : observe(operations)) {
        calls.push_back(each.calls.size());
        traced.push_back(each.traced.size());
    }
    EXPECT_THAT(calls, testing::ElementsAre(21, 10, 11, 11, 2, 11));
    EXPECT_THAT(traced, testing::ElementsAre(3, 2, 3, 4, 0, 4));
}

TEST(Floor, ReadsWhatTheLibraryReads)
{
    bed b(4);
    ASSERT_EQ(olv_twamp_responder_create(b.module, &b.info, b.slot), 0u);
    const olv_sim::state_words words = b.processor.state((*b.slot)->responder_id);
    for (std::uint32_t i = 0; i < 5; ++i) {
        words[8 + i].store(hyx_htonl(100 + i));
    }
    for (const operation &side : {operations[1], operation_floors[1]}) {
        b.stats = {};
        ASSERT_EQ(side.run(b), 0u);
        EXPECT_EQ(b.stats.received, 100u);
        EXPECT_EQ(b.stats.transmitted, 101u);
        EXPECT_EQ(b.stats.active_sessions, 102u);
        EXPECT_EQ(b.stats.drop_length_check, 103u);
        EXPECT_EQ(b.stats.drop_max_sessions, 104u);
    }
    EXPECT_EQ(olv_twamp_responder_delete(b.module, *b.slot), 0u);
}

TEST(Floor, FindsTheSameCallFunction)
{
    for (const operation &side : {operations[4], operation_floors[4]}) {
        bed b(4);
        ASSERT_EQ(side.run(b), 0u);
        EXPECT_EQ(b.imc, b.imc_tree);
        EXPECT_NE(b.imc, 0u);
    }
}

} // namespace
} // namespace olv_bench
