#include <memory>

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
