/**
 * @file responder_rows.hpp
 * What the tables of the responder and bind operations share: programs with known tree IDs, texts of the
 * classifier entry lines, and the naming of numbers that differ from run to run.
 */
#ifndef OLV_TWAMP_TESTS_RESPONDER_ROWS_HPP
#define OLV_TWAMP_TESTS_RESPONDER_ROWS_HPP

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "rows.hpp"

namespace olv_test {

/** IDs that the programs of these tables give to the tree functions, as literals in the rows: 257, 514, ... */
inline constexpr std::uint32_t responder_tree_id = 0x0101;
inline constexpr std::uint32_t bind_tree_id = 0x0202;
inline constexpr std::uint32_t ip_direct_imc_id = 0x0303;
inline constexpr std::uint32_t ipv6_indirect_imc_id = 0x0404;

/** A program with these IDs. */
inline olv_sim::classifier_program known_program(std::uint32_t responders = 16)
{
    auto program = olv_sim::classifier_program::twamp(responders, 16);
    for (auto &function : program.tree_functions) {
        if (function.name == responder_tree) {
            function.id = responder_tree_id;
        } else if (function.name == bind_tree) {
            function.id = bind_tree_id;
        } else if (function.name == "olv_twamp.twamp_to_ip_direct_imc") {
            function.id = ip_direct_imc_id;
        } else if (function.name == "olv_twamp.twamp_to_ipv6_indirect_imc") {
            function.id = ipv6_indirect_imc_id;
        } else {
            function.id = 0x0505;
        }
    }
    return program;
}

inline options known()
{
    options setup;
    setup.program = known_program();
    return setup;
}

inline options known_without_lock()
{
    options setup = known();
    setup.locked = false;
    return setup;
}

inline options known_uninitialised()
{
    options setup = known();
    setup.initialised = false;
    return setup;
}

inline options known_with_responders(std::uint32_t responders)
{
    options setup;
    setup.program = known_program(responders);
    return setup;
}

/** Log words that print all lines of these operations, but not `everything`: for rows with named(), whose
 *  console text no longer has the numbers of its traces. */
inline options known_and_named(std::uint32_t responders = 16)
{
    options setup = known_with_responders(responders);
    setup.module_flags = 0x5F;
    setup.system_flags = 0x5F;
    return setup;
}

// Texts of the unknown-handle form and of the status that follows a message.
#define OLV_UNKNOWN(source, text) "[olv_unknown_log: ERROR] " source ":LINE " text "\n"
#define OLV_ERROR(source, text) "[twamp_log: ERROR] " source ":LINE " text "\n"
#define OLV_FATAL(source, text) "[twamp_log: FATAL] " source ":LINE " text "\n"
#define OLV_INFO(source, text) "[twamp_log: info] " source ":LINE " text "\n"

// How the framework prints a 24-bit key and an action whose third word is 0, and how both are traced. The
// pattern's first word refers to the framework's storage; run_entry_rows() fills it in.
#define OLV_PRINTED_PATTERN(key) "<key = 0x" key "/24>"
#define OLV_PRINTED_ACTION(word_0, word_1) "<action = 0x" word_0 " 0x" word_1 " 0x00000000>"
#define OLV_TRACED_PATTERN "{pattern} 0x00000018 0x00000000"

/** The record of a bench's module that is not a TWAMP record: wrong magic. */
inline void use_foreign_handle(bench &b)
{
    b.handle = &b.foreign;
}

inline void use_null_handle(bench &b)
{
    b.handle = nullptr;
}

inline void break_context(bench &b)
{
    (void)b.set_context_magic(0x18496125);
}

inline void repair_context(bench &b)
{
    (void)b.set_context_magic(0x18496124);
}

/** Make up for a release that a fault refused. */
inline void release_lock(bench &b)
{
    olv_sim::faults::clear_all();
    if (olv_sim::semaphores::held(b.module->lock) != 0) {
        EXPECT_EQ(hyx_sem_post(b.module->lock), 0u);
    }
}

/** Values that `named` and its rows exchange within one run of a row. */
struct run_values {
    std::uint32_t namespace_handle = 0;
};

inline run_values &values()
{
    static run_values instance;
    return instance;
}

inline void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

inline std::string low_word(const void *address)
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%08x",
                        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address)));
    return text.data();
}

/** The responder namespace's handle, which `named` looks for. Run while arranging. */
inline void learn_namespace(bench &b)
{
    values().namespace_handle = 0;
    EXPECT_EQ(hyx_rsrc_find(b.module->rte_handle, 0, responder_namespace, &values().namespace_handle), 0u);
}

/**
 * @p work with the numbers of its console text that differ from run to run replaced: the address of the
 * bench's responder by RESPONDER, the namespace handle that learn_namespace() found by NAMESPACE.
 */
inline operation named(operation work)
{
    return [work](bench &b) {
        std::uint32_t status = 0;
        const void *responder = b.responder;
        std::string text = captured_console([&] { status = work(b); });
        if (responder != nullptr) {
            replace_all(text, "Responder handle " + low_word(responder), "Responder handle RESPONDER");
        }
        std::array<char, 16> handle{};
        (void)std::snprintf(handle.data(), handle.size(), "0x%0x,", values().namespace_handle);
        replace_all(text, std::string("namespace handle ") + handle.data(), "namespace handle NAMESPACE,");
        (void)std::fputs(text.c_str(), stdout);
        (void)std::fflush(stdout);
        return status;
    };
}

/** First word of the pattern that will be made next: the storage of the one that was freed last, one
 *  generation on. */
inline std::string next_pattern_word()
{
    olv_ptn probe{};
    EXPECT_EQ(olv_ptn_new(24, &probe), 0u);
    olv_ptn_free(probe);
    const std::uint32_t following = (probe.word[0] >> 16) + 1;
    const std::uint32_t generation = (following & 0xFFFF) == 0 ? 1 : following & 0xFFFF;
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%08x", generation << 16 | (probe.word[0] & 0xFFFF));
    return text.data();
}

/** Run one row whose traces may contain {pattern}. */
inline void run_entry_row(row expected, const operation &work)
{
    const auto arrange = expected.arrange;
    expected.arrange = [&expected, arrange](bench &b) {
        if (arrange) {
            arrange(b);
        }
        const std::string word = next_pattern_word();
        for (trace &event : expected.traces) {
            replace_all(event.text, "{pattern}", word);
        }
    };
    run_row(expected, work);
}

/** The log words of table::run(), for rows with {pattern}. */
inline void run_entry_row_at_every_level(const row &expected, const operation &work)
{
    constexpr std::uint32_t levels[] = {0, 1, 3, 7, 15};
    constexpr std::uint32_t bits[] = {0x10, 0x40, 0x80};
    struct log_words {
        std::uint32_t module;
        std::optional<std::uint32_t> system;
    };
    std::vector<log_words> all;
    for (const std::uint32_t module : levels) {
        for (const std::uint32_t system : levels) {
            all.push_back({module, system});
        }
        all.push_back({module, std::nullopt});
    }
    for (const std::uint32_t bit : bits) {
        all.insert(all.end(), {{bit, 0}, {0, bit}, {bit, std::nullopt}});
    }
    for (const log_words &words : all) {
        if (!words.system && !expected.without_system) {
            continue;
        }
        row there = expected;
        there.setup.module_flags = words.module;
        there.setup.system_flags = words.system.value_or(0);
        there.setup.system = words.system.has_value();
        there.console =
            filtered_console(expected.console, words.module, words.system, expected.module_word_only);
        if (((words.module | words.system.value_or(0)) & 0x10) == 0) {
            std::erase(there.calls, "hyx_gettime");
        }
        run_entry_row(there, work);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

/** As table::run(), for tables with {pattern} in their traces. */
inline void run_entry_rows(const table &rows, const operation &work)
{
    for (const row &each : rows.rows()) {
        run_entry_row(each, work);
        if (each.every_level) {
            run_entry_row_at_every_level(each, work);
        }
    }
}

/** Bytes 8-11 of a responder's state entry: the creation count it was made with. */
inline std::vector<std::uint8_t> creation_count(const bench &b, std::uint32_t responder_id)
{
    const auto bytes = b.state_bytes(responder_id);
    if (bytes.size() != 60) {
        return {};
    }
    return {bytes.begin() + 8, bytes.begin() + 12};
}

} // namespace olv_test

#endif
