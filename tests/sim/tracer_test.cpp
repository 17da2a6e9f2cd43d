#include <memory>
#include <tuple>

#include <gmock/gmock.h>

#include "olv_sim/framework.hpp"
#include "olv_sim/tracer.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;
using testing::ElementsAre;

class trace : public sim_test {
  protected:
    trace() { tracer::set_sink(&sink); }
    ~trace() override { tracer::set_sink(nullptr); }

    static olv_lttng_trace_fn function(std::uint32_t level)
    {
        olv_lttng_trace_fn found = nullptr;
        olv_lttng_fn_ptr_get(3, level, &found);
        return found;
    }
    /** What an event tells, of this kind. */
    template <typename Kind> [[nodiscard]] const Kind &details(std::size_t event) const
    {
        return std::get<Kind>(sink.events().at(event).details);
    }
    /** Module, place, format and text of the events. */
    [[nodiscard]] lines described() const
    {
        lines all;
        for (const trace_event &event : sink.events()) {
            all.push_back(event.module + "|" + event.file + ":" + std::to_string(event.line) + "|" +
                          event.format.value_or("none") + "|" + event.text);
        }
        return all;
    }

    capturing_trace_sink sink;
    const int record = 0;
};

TEST_F(trace, messages_at_each_level)
{
    for (const std::uint32_t level : {0u, 2u, 4u, 8u, 9u, 15u, 16u, 27u}) {
        sink.clear();
        ASSERT_NE(function(level), nullptr) << level;
        function(level)(&record, 42, "a.cpp", "%s %u 0x%x\n", "text", 7u, 255u);
        EXPECT_THAT(described(), ElementsAre("|a.cpp:42|%s %u 0x%x\n|text 7 0xff\n")) << level;
        const trace_event &event = sink.events().at(0);
        EXPECT_EQ(std::tie(event.level, event.first_word, event.record), std::tuple(level, 0u, &record));
        EXPECT_TRUE(std::holds_alternative<trace_details::message>(event.details)) << level;
    }
    for (const std::uint32_t level : {1u, 3u, 5u, 7u, 10u, 14u, 17u, 26u, 28u, 0xFFFFFFFFu}) {
        EXPECT_EQ(function(level), nullptr) << level;
    }
    const std::string text(10000, 'x');
    function(0)(&record, 1, nullptr, "%s", text.c_str());
    EXPECT_EQ(described().back(), "|:1|%s|" + text);
}

TEST_F(trace, fixed_arguments)
{
    const unsigned char bytes[] = {0, 0x1F, 0xFF};
    const void *no_bytes = nullptr;
    const olv_ptn pattern = make_pattern(0x00ABCD);
    const std::uint32_t *word = pattern.word;
    function(15)(&record, 1, "a.cpp", nullptr, "tree", word[0], word[1], word[2], 1u, 0x401u, 9u);
    function(16)(&record, 2, "a.cpp", nullptr, "tree", word[0], word[1], word[2], 20u, 1u, 0x401u, 9u);
    olv_ptn_free(pattern);
    const auto expect_entry = [&](const auto &entry, std::uint32_t key_width) {
        EXPECT_EQ(entry.tree, "tree");
        EXPECT_THAT(entry.pattern.word, ElementsAre(word[0], 24u, 0u));
        EXPECT_THAT(entry.action.word, ElementsAre(1u, 0x401u, 9u));
        EXPECT_EQ(entry.key, 0xABCDu);
        EXPECT_EQ(entry.key_width, key_width);
    };
    expect_entry(details<trace_details::entry_learnt>(0), 24);
    expect_entry(details<trace_details::entry_removed>(1), 20); // as the caller says

    sink.clear();
    function(8)(&record, 1, "a.cpp", nullptr, "olv_twamp_init");
    function(9)(&record, 2, "a.cpp", nullptr, "olv_twamp_shutdown");
    function(27)(&record, 3, "a.cpp", nullptr, 0x7008C1u, 2u, static_cast<const void *>(bytes), 3u);
    function(27)(&record, 4, "a.cpp", nullptr, 1u, 0u, no_bytes, 60u);
    function(15)(&record, 5, "a.cpp", nullptr, "gone", 0xFFFFFFFFu, 24u, 0u, 1u, 0x401u, 9u);
    function(16)(&record, 6, "a.cpp", nullptr, "gone", 0xFFFFFFFFu, 24u, 0u, 20u, 1u, 0x401u, 9u);
    function(2)(&record, 7, "a.cpp", nullptr);
    EXPECT_THAT(
        described(),
        ElementsAre("|a.cpp:1|none|olv_twamp_init", "|a.cpp:2|none|olv_twamp_shutdown",
                    "|a.cpp:3|none|0x007008c1 2 001fff 3", "|a.cpp:4|none|0x00000001 0 NULL 60",
                    "|a.cpp:5|none|gone 0xffffffff 0x00000018 0x00000000 0x00000001 0x00000401 0x00000009",
                    "|a.cpp:6|none|gone 0xffffffff 0x00000018 0x00000000 20 0x00000001 0x00000401 0x00000009",
                    "|a.cpp:7|none|"));
    EXPECT_EQ(details<trace_details::function_entry>(0).operation, "olv_twamp_init");
    EXPECT_EQ(details<trace_details::function_exit>(1).operation, "olv_twamp_shutdown");
    const auto &write = details<trace_details::state_write>(2);
    EXPECT_EQ(std::tie(write.namespace_id, write.index, write.length), std::tuple(0x7008C1u, 2u, 3u));
    EXPECT_EQ(write.bytes, (std::vector<std::uint8_t>{0, 0x1F, 0xFF}));
    EXPECT_EQ(details<trace_details::state_write>(3).bytes, std::nullopt);
    EXPECT_EQ(details<trace_details::entry_learnt>(4).key, std::nullopt);
    EXPECT_EQ(details<trace_details::entry_learnt>(4).key_width, 0u);
    EXPECT_EQ(details<trace_details::entry_removed>(5).key, std::nullopt);
}

TEST_F(trace, modules_of_living_frameworks_and_forced_errors_without)
{
    {
        framework framework{"the system"};
        const olv_module_handle *module = framework.create_module({.module_id = 3, .log_name = "the module"});
        function(0)(module, 1, "a.cpp", "x");
        function(0)(framework.system(), 2, "a.cpp", "x");
        framework.system()->log_name = nullptr;
        function(0)(framework.system(), 3, "a.cpp", "x");
    }
    function(0)(nullptr, 4, "a.cpp", "x");
    olv_lttng_trace_sif_force_error(5, 5, "b.cpp", "bad %d", -1);
    olv_lttng_trace_sif_force_error(0, 6, nullptr, nullptr);
    EXPECT_THAT(described(), ElementsAre("the module|a.cpp:1|x|x", "the system|a.cpp:2|x|x", "|a.cpp:3|x|x",
                                         "|a.cpp:4|x|x", "|b.cpp:5|bad %d|bad -1", "|:6|none|"));
    const trace_event &forced = sink.events().at(4);
    EXPECT_EQ(std::tie(forced.level, forced.first_word, forced.record), std::tuple(0xFFFFFFFFu, 5u, nullptr));
    EXPECT_TRUE(std::holds_alternative<trace_details::forced_error>(forced.details));
}

TEST_F(trace, to_a_stream_or_nowhere)
{
    std::string written(200, '\0');
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> stream{fmemopen(written.data(), written.size(), "w"),
                                                                  &std::fclose};
    text_trace_sink text{stream.get()};
    tracer::set_sink(&text);
    function(2)(&record, 42, "file.cpp", "one\ntwo\n");
    function(8)(&record, 43, "file.cpp", nullptr, "olv_twamp_init");
    olv_lttng_trace_sif_force_error(0, 44, "file.cpp", "%d", 1);
    tracer::set_sink(nullptr);
    function(0)(&record, 45, "a.cpp", "%u", 1u);
    olv_lttng_trace_sif_force_error(0, 46, "a.cpp", "x");
    std::fflush(stream.get());
    EXPECT_STREQ(written.c_str(), "trace error file.cpp:42 one two\n"
                                  "trace entry file.cpp:43 olv_twamp_init\n"
                                  "trace forced-error file.cpp:44 1\n");
    EXPECT_TRUE(sink.events().empty());
}

} // namespace
