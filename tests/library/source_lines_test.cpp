// The line that a message names is the one in the library's sources that it stands in.
#include <fstream>

#include "olv_sim/faults.hpp"
#include "request.hpp"

namespace olv_test {
namespace {

/** The lines of a source file, named as messages name it, that contain a text. */
std::vector<std::uint32_t> lines_with(const std::string &printed_file, const std::string &text)
{
    std::ifstream source(std::string(OLV_TWAMP_SOURCES "/") + printed_file + "pp");
    EXPECT_TRUE(source.good()) << printed_file;
    std::vector<std::uint32_t> numbers;
    std::string line;
    for (std::uint32_t number = 1; std::getline(source, line); ++number) {
        if (line.find('"' + text) != std::string::npos) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

/** Run an operation that logs a message from a file; the message stands there once. */
void expect_line(bench &b, const char *printed_file, const std::string &text,
                 const std::function<std::uint32_t()> &operation)
{
    SCOPED_TRACE(std::string(printed_file) + ": " + text);
    bool met = false;
    for (const olv_sim::trace_event &event : b.observe(operation).events()) {
        if (event.format && event.format->starts_with(text)) {
            met = true;
            EXPECT_EQ(event.file, printed_file);
            EXPECT_THAT(lines_with(printed_file, text), testing::ElementsAre(event.line));
        }
    }
    EXPECT_TRUE(met);
}

TEST(SourceLines, AreThoseOfTheMessages)
{
    bench b;
    request asked(b);
    asked.info.src_instance = nullptr;
    expect_line(b, "twamp.c", "Null Stats Pointer",
                [&] { return olv_twamp_global_stats_get(b.module, nullptr); });
    expect_line(b, "twamp.c", "Failed to set log-level %d", [&] { return olv_twamp_sys_log(b.module, 2); });
    expect_line(b, "twamp_responder.c", "TWAMP Failed to create responder",
                [&] { return olv_twamp_responder_create(b.module, nullptr, b.slot); });
    expect_line(b, "twamp_bind.c", "Null Source Instance Pointer",
                [&] { return olv_twamp_custom_bind(b.framework.system(), &asked.info); });
    asked.info.dst_location = 1;
    expect_line(b, "twamp_internal.c", "Module location CPU not supported",
                [&] { return olv_twamp_get_imc(b.module, &asked.info, nullptr); });
}

} // namespace
} // namespace olv_test
