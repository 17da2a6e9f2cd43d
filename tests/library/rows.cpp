#include "rows.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"

#include <algorithm>
#include <sstream>

namespace olv_test {

namespace {

std::vector<const table *> &registry()
{
    static std::vector<const table *> tables;
    return tables;
}

const std::string plain = "{plain}";

/** Where the next "[NAME_log: KEYWORD] " stands, or npos. Not every message before it ends its line. */
std::size_t next_log_line(const std::string &text, std::size_t from)
{
    for (std::size_t at = from; (at = text.find('[', at)) != std::string::npos; ++at) {
        const std::size_t close = text.find(']', at);
        const std::size_t log = text.find("_log: ", at);
        if (close != std::string::npos && log < close)
            return at;
    }
    return std::string::npos;
}

bool passes(const std::string &keyword, std::uint32_t word)
{
    const std::uint32_t level = word & OLV_LOG_LEVEL_MASK;
    if (keyword == "FATAL")
        return level != 0;
    if (keyword == "ERROR")
        return level >= 3;
    if (keyword == "info")
        return level == 15;
    if (keyword == "function")
        return (word & OLV_LOG_FUNCTION) != 0;
    if (keyword == "se_write")
        return (word & OLV_LOG_STATE) != 0;
    return (word & OLV_LOG_PATTERN) != 0;
}

std::string hexadecimal(std::uint32_t word)
{
    std::ostringstream text;
    text << "0x" << std::hex << word;
    return text.str();
}

struct log_words {
    std::uint32_t module;
    std::optional<std::uint32_t> system;
};

std::vector<log_words> every_log_words(bool without_system)
{
    constexpr std::uint32_t levels[] = {0, 1, 3, 7, 15};
    constexpr std::uint32_t bits[] = {OLV_LOG_FUNCTION, OLV_LOG_PATTERN, OLV_LOG_STATE};
    std::vector<log_words> all;
    for (const std::uint32_t module : levels)
        for (const std::uint32_t system : levels)
            all.push_back({module, system});
    for (const std::uint32_t bit : bits) {
        all.push_back({bit, 0});
        all.push_back({0, bit});
    }
    if (without_system) {
        for (const std::uint32_t module : levels)
            all.push_back({module, std::nullopt});
        for (const std::uint32_t bit : bits)
            all.push_back({bit, std::nullopt});
    }
    return all;
}

/** What a row expects at other log words than its own. */
row at_log_words(row expected, const log_words &words)
{
    expected.setup.module_flags = words.module;
    expected.setup.system_flags = words.system.value_or(0);
    expected.setup.system = words.system.has_value();
    expected.console =
        filtered_console(expected.console, words.module, words.system, expected.module_word_only);
    if (((words.module | words.system.value_or(0)) & OLV_LOG_FUNCTION) == 0)
        std::erase(expected.calls, "hyx_gettime");
    if (!words.system)
        for (trace &event : expected.traces)
            event.by_system = false;
    return expected;
}

std::vector<trace> expanded(std::vector<trace> traces, const bench &b)
{
    for (trace &event : traces)
        event.text = b.expand(event.text);
    return traces;
}

} // namespace

std::string filtered_console(const std::string &console, std::uint32_t module_flags,
                             std::optional<std::uint32_t> system_flags, const std::string &module_word_only)
{
    const std::string system_name = "[system_log: ";
    std::size_t at = std::min(next_log_line(console, 0), console.size());
    std::string result = console.substr(0, at);
    while (at < console.size()) {
        const std::size_t end = std::min(next_log_line(console, at + 1), console.size());
        std::string line = console.substr(at, end - at);
        const std::size_t keyword_at = line.find(": ") + 2;
        const std::string keyword = line.substr(keyword_at, line.find(']') - keyword_at);
        at = end;

        const bool of_system = line.starts_with(system_name);
        bool printed = passes(keyword, module_flags) || (system_flags && passes(keyword, *system_flags));
        if (line.starts_with("[olv_unknown_log: "))
            printed = true;
        else if (of_system && system_flags)
            printed = passes(keyword, *system_flags);
        else if (of_system)
            line.replace(0, system_name.size(), "[twamp_log: ");
        else if (!module_word_only.empty() && line.find(module_word_only) != std::string::npos)
            printed = passes(keyword, module_flags);
        const std::size_t plain_at = std::min(line.find(plain), line.size());
        if (printed)
            result += line.substr(0, plain_at);
        result += line.substr(plain_at);
    }
    return result;
}

void run_row(const row &expected, const operation &work)
{
    const options &setup = expected.setup;
    SCOPED_TRACE(expected.label + ", module word " + hexadecimal(setup.module_flags) +
                 (setup.system ? ", system word " + hexadecimal(setup.system_flags) : ", no system record"));
    bench b(setup);
    if (expected.arrange)
        expected.arrange(b);
    for (const planned_fault &fault : expected.faults)
        ASSERT_TRUE(olv_sim::faults::set(fault.which, fault.plan)) << olv_sim::call_name(fault.which);

    const operation &run = expected.instead ? expected.instead : work;
    const observation seen = b.observe([&] { return run(b); });
    for (const planned_fault &fault : expected.faults)
        EXPECT_GE(olv_sim::faults::hits(fault.which), 1u) << "not called: " << olv_sim::call_name(fault.which);
    olv_sim::faults::clear_all();

    EXPECT_EQ(seen.status, expected.status);
    EXPECT_EQ(seen.console, b.expand(expected.console));
    EXPECT_EQ(seen.traces, expanded(expected.traces, b));
    EXPECT_EQ(seen.calls, expected.calls);
    EXPECT_EQ(b.left(), expected.left);
    expect_status_lines_follow_messages(seen);
    if (setup.module_flags == everything && (setup.system_flags == everything || !setup.system))
        expect_console_agrees_with_traces(seen);
    if (expected.check)
        expected.check(b);
    if (b.left().lock_held != 0)
        hyx_sem_post(b.module->lock);
}

void run_row_at_every_level(const row &expected, const operation &work)
{
    for (const log_words &words : every_log_words(expected.without_system)) {
        run_row(at_log_words(expected, words), work);
        if (testing::Test::HasFailure())
            return; // One log word's differences are enough to read.
    }
}

table::table(std::string name, operation work, std::vector<row> rows)
    : name_(std::move(name)), work_(std::move(work)), rows_(std::move(rows))
{
    registry().push_back(this);
}

void table::run() const
{
    for (const row &each : rows_) {
        SCOPED_TRACE(name_);
        run_row(each, work_);
        if (each.every_level)
            run_row_at_every_level(each, work_);
    }
}

const std::vector<const table *> &all_tables()
{
    return registry();
}

} // namespace olv_test
