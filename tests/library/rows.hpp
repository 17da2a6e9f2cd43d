/**
 * @file rows.hpp
 * Tables of expectations: one table per operation, one row per way it can go, literals only.
 *
 *     const table rows{"olv_twamp_global_stats_get", get_into_stats, {
 *         {.label = "lock not taken",
 *          .faults = {{call::olv_sys_sem_lock_wait, {.code = 0x1FF}}},
 *          .status = 0x300A5,
 *          .console = "[twamp_log: function] twamp.c:LINE [00000012:00000034] Entering olv_twamp_...\n"
 *                     "[twamp_log: ERROR] twamp.c:LINE  Failed to acquire lock, RTE error code: 511. {rte
 * 0x1FF}\n"
 *                     "[twamp_log: ERROR] twamp.c:LINE {status 0x300A5}\n",
 *          .traces = {entry("olv_twamp_..."), error(" Failed to acquire lock, ...\n"), error_status()},
 *          .calls = {"hyx_gettime", "olv_sys_sem_lock_wait"}}}};
 *     TEST(GlobalStatsGet, Rows) { rows.run(); }
 *
 * A row is written for log words that let everything through (`everything` in both records). It is run once so,
 * and then again, on a fresh bench each time, at the levels 0, 1, 3, 7 and 15 of both records in all
 * combinations, with the bits 0x10, 0x40 and 0x80 alone in either, and without a system record; the console
 * expected there is what the log rules let through of the row's. Traces and calls are the same at each of them,
 * but for hyx_gettime, which is called for function lines only. Text that is no log line, such as printed
 * counters, begins with "{plain}" and reaches to the next log line; it is always expected.
 *
 * Tables register themselves when the program starts; completeness_test.cpp looks at all of them.
 */
#ifndef OLV_TWAMP_TESTS_ROWS_HPP
#define OLV_TWAMP_TESTS_ROWS_HPP

#include "harness.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"

namespace olv_test {

using olv_sim::call;

struct planned_fault {
    call which;
    olv_sim::fault plan;
};

using operation = std::function<std::uint32_t(bench &)>;

struct row {
    std::string label; ///< In the message of each failure.
    options setup{};
    std::function<void(bench &)> arrange{}; ///< Run first, with neither faults nor observation.
    std::vector<planned_fault> faults{};    ///< Each has to fire.
    operation instead{};                    ///< Run this in place of the table's operation.
    std::uint32_t status = 0;
    std::string console{};            ///< See bench::expand() for what it may contain.
    std::vector<trace> traces{};      ///< Their texts are expanded as well.
    std::vector<std::string> calls{}; ///< Calls of kind service, in order.
    remains left{};
    std::function<void(bench &)> check{}; ///< Run last: what is particular to the row.

    /** Run at every log word. Not for operations that change the log words. */
    bool every_level = true;
    /** Run without a system record too. Not for operations that need one. */
    bool without_system = true;
    /** A line with this text is tested against the module's word alone. */
    std::string module_word_only{};
};

class table {
  public:
    table(std::string name, operation work, std::vector<row> rows);

    /** Run every row. */
    void run() const;

    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] const std::vector<row> &rows() const { return rows_; }

  private:
    std::string name_;
    operation work_;
    std::vector<row> rows_;
};

/** Run one row at the log words it is written for. */
void run_row(const row &expected, const operation &work);

/** Run one row at every log word, see above. */
void run_row_at_every_level(const row &expected, const operation &work);

/** What of a console text is printed at these log words; no system word: no system record. Lines of the
 *  system record's own turn into the module's then. */
[[nodiscard]] std::string filtered_console(const std::string &console, std::uint32_t module_flags,
                                           std::optional<std::uint32_t> system_flags,
                                           const std::string &module_word_only = {});

/** Every table of the program, in no particular order. Complete once main() runs. */
[[nodiscard]] const std::vector<const table *> &all_tables();

// Console texts that many rows share.

/** The function lines around an operation, as printed from the file @p source. */
#define OLV_ENTERING(source, operation)                                                                        \
    "[twamp_log: function] " source ":LINE [00000012:00000034] Entering " operation "\n"
#define OLV_EXITING(source, operation)                                                                         \
    "[twamp_log: function] " source ":LINE [00000012:00000034] Exiting " operation "\n"

/** The two lines of a lock that fails with code 0x1FF. */
#define OLV_LOCK_REFUSED(source)                                                                               \
    "[twamp_log: ERROR] " source ":LINE  Failed to acquire lock, RTE error code: 511. {rte 0x1FF}\n"           \
    "[twamp_log: ERROR] " source ":LINE {status 0x300A5}\n"
#define OLV_RELEASE_REFUSED(source)                                                                            \
    "[twamp_log: ERROR] " source ":LINE  Failed to release lock, RTE error code: 511. {rte 0x1FF}\n"           \
    "[twamp_log: ERROR] " source ":LINE {status 0x300A5}\n"

inline constexpr const char *lock_refused = " Failed to acquire lock, RTE error code: %d. %s\n";
inline constexpr const char *release_refused = " Failed to release lock, RTE error code: %d. %s\n";

/** Faults with code 0x1FF. */
inline planned_fault failing(call which, std::uint32_t skip = 0)
{
    return {which, {.code = 0x1FF, .skip = skip}};
}

} // namespace olv_test

#endif
