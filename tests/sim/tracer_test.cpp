#include <memory>

#include "olv_sim/framework.hpp"
#include "olv_sim/tracer.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

class trace : public sim_test {
  protected:
    static olv_lttng_trace_fn function(std::uint32_t level)
    {
        olv_lttng_trace_fn found = nullptr;
        olv_lttng_fn_ptr_get(3, level, &found);
        return found;
    }

    trace() { tracer::set_sink(&sink); }
    ~trace() override { tracer::set_sink(nullptr); }

    capturing_trace_sink sink;
    const int record = 0;
};

TEST_F(trace, formatted_at_each_level)
{
    for (const std::uint32_t level : {0u, 2u, 4u, 8u, 9u, 15u, 16u, 27u}) {
        sink.clear();
        ASSERT_NE(function(level), nullptr) << level;
        function(level)(&record, 42, "file.cpp", "%s %u 0x%x\n", "text", 7u, 255u);
        ASSERT_EQ(sink.events().size(), 1u) << level;
        const trace_event &event = sink.events()[0];
        EXPECT_EQ(event.level, level);
        EXPECT_EQ(event.first_word, 0u);
        EXPECT_EQ(event.record, &record);
        EXPECT_EQ(event.line, 42u);
        EXPECT_EQ(event.file, "file.cpp");
        EXPECT_EQ(event.format, "%s %u 0x%x\n");
        EXPECT_EQ(event.text, "text 7 0xff\n");
    }
}

TEST_F(trace, other_levels_have_no_function)
{
    for (const std::uint32_t level : {1u, 3u, 5u, 7u, 10u, 14u, 17u, 26u, 28u, 0xFFFFFFFFu}) {
        EXPECT_EQ(function(level), nullptr) << level;
    }
}

TEST_F(trace, fixed_arguments)
{
    const unsigned char bytes[] = {0, 0x1F, 0xFF};
    function(8)(&record, 1, "a.cpp", nullptr, "olv_twamp_init");
    function(9)(&record, 2, "a.cpp", nullptr, "olv_twamp_init");
    function(15)(&record, 3, "a.cpp", nullptr, "tree", 1u, 24u, 0u, 0u, 0x401u, 0xFFFFFFFFu);
    function(16)(&record, 4, "a.cpp", nullptr, "tree", 1u, 24u, 0u, 24u, 0u, 0x401u, 0u);
    function(27)(&record, 5, "a.cpp", nullptr, 0x7008C1u, 0u, static_cast<const void *>(bytes), 3u);
    function(2)(&record, 6, nullptr, nullptr);
    const char *expected[] = {
        "olv_twamp_init",
        "olv_twamp_init",
        "tree 0x00000001 0x00000018 0x00000000 0x00000000 0x00000401 0xffffffff",
        "tree 0x00000001 0x00000018 0x00000000 24 0x00000000 0x00000401 0x00000000",
        "0x007008c1 0 001fff 3",
        "",
    };
    ASSERT_EQ(sink.events().size(), 6u);
    for (std::size_t index = 0; index < 6; ++index) {
        EXPECT_EQ(sink.events()[index].text, expected[index]);
        EXPECT_EQ(sink.events()[index].format, std::nullopt);
        EXPECT_EQ(sink.events()[index].line, index + 1);
    }
    EXPECT_EQ(sink.events()[5].file, "");
}

// --------------------------------------------------------------------------------------------------------
// What an event tells, typed
// --------------------------------------------------------------------------------------------------------

TEST_F(trace, messages_tell_a_text_alone)
{
    for (const std::uint32_t level : {0u, 2u, 4u, 8u, 9u, 15u, 16u, 27u}) {
        sink.clear();
        function(level)(&record, 1, "a.cpp", "%u\n", 7u);
        ASSERT_EQ(sink.events().size(), 1u) << level;
        EXPECT_TRUE(std::holds_alternative<trace_details::message>(sink.events()[0].details)) << level;
    }
}

TEST_F(trace, functions_tell_their_operation)
{
    function(8)(&record, 1, "a.cpp", nullptr, "olv_twamp_init");
    function(9)(&record, 2, "a.cpp", nullptr, "olv_twamp_shutdown");
    ASSERT_EQ(sink.events().size(), 2u);
    const auto *entry = std::get_if<trace_details::function_entry>(&sink.events()[0].details);
    const auto *exit = std::get_if<trace_details::function_exit>(&sink.events()[1].details);
    ASSERT_NE(entry, nullptr);
    ASSERT_NE(exit, nullptr);
    EXPECT_EQ(entry->operation, "olv_twamp_init");
    EXPECT_EQ(exit->operation, "olv_twamp_shutdown");
}

TEST_F(trace, state_writes_tell_place_and_bytes)
{
    const unsigned char bytes[] = {0, 0x1F, 0xFF};
    function(27)(&record, 1, "a.cpp", nullptr, 0x7008C1u, 2u, static_cast<const void *>(bytes), 3u);
    function(27)(&record, 2, "a.cpp", nullptr, 1u, 0u, static_cast<const void *>(nullptr), 60u);
    ASSERT_EQ(sink.events().size(), 2u);
    const auto *write = std::get_if<trace_details::state_write>(&sink.events()[0].details);
    const auto *without_bytes = std::get_if<trace_details::state_write>(&sink.events()[1].details);
    ASSERT_NE(write, nullptr);
    EXPECT_EQ(write->namespace_id, 0x7008C1u);
    EXPECT_EQ(write->index, 2u);
    EXPECT_EQ(write->bytes, (std::vector<std::uint8_t>{0, 0x1F, 0xFF}));
    EXPECT_EQ(write->length, 3u);
    ASSERT_NE(without_bytes, nullptr);
    EXPECT_EQ(without_bytes->bytes, std::nullopt);
    EXPECT_EQ(without_bytes->length, 60u);
    EXPECT_EQ(sink.events()[1].text, "0x00000001 0 NULL 60");
}

TEST_F(trace, entries_tell_tree_words_and_the_key_of_a_living_pattern)
{
    olv_ptn pattern{};
    ASSERT_EQ(olv_ptn_new(24, &pattern), 0u);
    ASSERT_EQ(olv_ptn_extend(&pattern, 0x00ABCD, 24), 0u);
    const std::uint32_t *word = pattern.word;
    function(15)(&record, 1, "a.cpp", nullptr, "tree", word[0], word[1], word[2], 1u, 0x401u, 9u);
    function(16)(&record, 2, "a.cpp", nullptr, "tree", word[0], word[1], word[2], 20u, 1u, 0x401u, 9u);
    olv_ptn_free(pattern);
    function(15)(&record, 3, "a.cpp", nullptr, "tree", word[0], word[1], word[2], 1u, 0x401u, 9u);
    ASSERT_EQ(sink.events().size(), 3u);
    const auto *learnt = std::get_if<trace_details::entry_learnt>(&sink.events()[0].details);
    const auto *removed = std::get_if<trace_details::entry_removed>(&sink.events()[1].details);
    const auto *of_freed = std::get_if<trace_details::entry_learnt>(&sink.events()[2].details);
    ASSERT_NE(learnt, nullptr);
    EXPECT_EQ(learnt->tree, "tree");
    EXPECT_EQ(learnt->pattern.word[0], word[0]);
    EXPECT_EQ(learnt->pattern.word[1], 24u);
    EXPECT_EQ(learnt->pattern.word[2], 0u);
    EXPECT_EQ(learnt->action.word[0], 1u);
    EXPECT_EQ(learnt->action.word[1], 0x401u);
    EXPECT_EQ(learnt->action.word[2], 9u);
    EXPECT_EQ(learnt->key, 0xABCDu);
    EXPECT_EQ(learnt->key_width, 24u);
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(removed->tree, "tree");
    EXPECT_EQ(removed->pattern.word[1], 24u);
    EXPECT_EQ(removed->action.word[1], 0x401u);
    EXPECT_EQ(removed->key, 0xABCDu);
    EXPECT_EQ(removed->key_width, 20u);
    ASSERT_NE(of_freed, nullptr);
    EXPECT_EQ(of_freed->key, std::nullopt);
    EXPECT_EQ(of_freed->key_width, 0u);
}

TEST_F(trace, the_log_name_is_that_of_a_living_framework_s_record)
{
    {
        framework framework{"the system"};
        const olv_module_handle *module = framework.create_module({.module_id = 3, .log_name = "the module"});
        function(0)(module, 1, "a.cpp", "x");
        function(0)(framework.system(), 2, "a.cpp", "x");
        framework.system()->log_name = nullptr;
        function(0)(framework.system(), 3, "a.cpp", "x");
    }
    function(0)(&record, 4, "a.cpp", "x");
    function(0)(nullptr, 5, "a.cpp", "x");
    ASSERT_EQ(sink.events().size(), 5u);
    EXPECT_EQ(sink.events()[0].module, "the module");
    EXPECT_EQ(sink.events()[1].module, "the system");
    EXPECT_EQ(sink.events()[2].module, "");
    EXPECT_EQ(sink.events()[3].module, "");
    EXPECT_EQ(sink.events()[4].module, "");
}

TEST_F(trace, forced_error)
{
    olv_lttng_trace_sif_force_error(5, 10, "b.cpp", "bad %d", -1);
    olv_lttng_trace_sif_force_error(0, 11, nullptr, nullptr);
    ASSERT_EQ(sink.events().size(), 2u);
    EXPECT_EQ(sink.events()[0].level, trace_event::forced_error);
    EXPECT_EQ(sink.events()[0].first_word, 5u);
    EXPECT_EQ(sink.events()[0].record, nullptr);
    EXPECT_EQ(sink.events()[0].line, 10u);
    EXPECT_EQ(sink.events()[0].file, "b.cpp");
    EXPECT_EQ(sink.events()[0].text, "bad -1");
    EXPECT_EQ(sink.events()[1].format, std::nullopt);
    for (const trace_event &event : sink.events()) {
        EXPECT_TRUE(std::holds_alternative<trace_details::forced_error>(event.details));
        EXPECT_EQ(event.module, "");
    }
}

TEST_F(trace, long_messages_are_whole)
{
    const std::string text(10000, 'x');
    function(0)(&record, 1, "a.cpp", "%s", text.c_str());
    ASSERT_EQ(sink.events().size(), 1u);
    EXPECT_EQ(sink.events()[0].text, text);
}

TEST_F(trace, nowhere)
{
    tracer::set_sink(nullptr);
    function(0)(&record, 1, "a.cpp", "%u", 1u);
    olv_lttng_trace_sif_force_error(0, 1, "a.cpp", "x");
    EXPECT_TRUE(sink.events().empty());
}

TEST_F(trace, text_sink)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> stream{std::tmpfile(), &std::fclose};
    ASSERT_NE(stream, nullptr);
    text_trace_sink text{stream.get()};
    tracer::set_sink(&text);
    function(2)(&record, 42, "file.cpp", "one\ntwo\n");
    function(8)(&record, 43, "file.cpp", nullptr, "olv_twamp_init");
    olv_lttng_trace_sif_force_error(0, 44, "file.cpp", "%d", 1);
    std::rewind(stream.get());
    std::string written(200, '\0');
    written.resize(std::fread(written.data(), 1, written.size(), stream.get()));
    EXPECT_EQ(written, "trace error file.cpp:42 one two\n"
                       "trace entry file.cpp:43 olv_twamp_init\n"
                       "trace forced-error file.cpp:44 1\n");
}

} // namespace
