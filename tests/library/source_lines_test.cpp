// The line that a message names is the one in the library's sources that it stands in.
#include <fstream>

#include "bind_rows.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/tracer.hpp"

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

/** Run an operation that logs a message, told by the beginning of its format, from a file. */
void expect_line(bench &b, const std::function<std::uint32_t()> &operation, const std::string &printed_file,
                 const std::string &text)
{
    SCOPED_TRACE(printed_file + ": " + text);
    bool met = false;
    for (const olv_sim::trace_event &event : b.observe(operation).events) {
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
    expect_line(
        b, [&] { return olv_twamp_global_stats_get(b.module, nullptr); }, "twamp.c", "Null Stats Pointer");
    olv_sim::faults::set(call::olv_module_service_function_update, {.code = 0x10007});
    expect_line(
        b, [&] { return olv_twamp_service_function_update(b.module); }, "twamp.c",
        "Failed to update service functions");
    expect_line(
        b, [&] { return olv_twamp_sys_log(b.module, 2); }, "twamp.c", "Failed to set log-level %d");

    const auto create = [&] { return olv_twamp_responder_create(b.module, nullptr, b.slot); };
    expect_line(b, create, "twamp_responder.c", "Null Info / Flow Handle Pointer");
    expect_line(b, create, "twamp_responder.c", "TWAMP Failed to create responder");
    twamp_responder_handle *const responder = b.create_responder();
    expect_line(
        b, [&] { return olv_twamp_responder_stats_get(b.module, responder, nullptr); }, "twamp_responder.c",
        "Null Stats Pointer");

    request asked(b);
    const auto bind = [&] { return olv_twamp_custom_bind(b.framework.system(), &asked.info); };
    asked.info.src_instance = nullptr;
    expect_line(b, bind, "twamp_bind.c", "Null Source Instance Pointer");
    asked.info.dst_module = nullptr;
    expect_line(b, bind, "twamp_bind.c", "Null Destination Module Pointer");

    std::uint32_t imc = 0;
    const auto get_imc = [&] { return olv_twamp_get_imc(b.module, &asked.info, &imc); };
    expect_line(b, get_imc, "twamp_internal.c", "Null Destination Module Pointer");
    asked.info.dst_location = 1;
    expect_line(b, get_imc, "twamp_internal.c", "Module location CPU not supported");
}

} // namespace
} // namespace olv_test
