/**
 * @file rows.hpp
 * Tables: one per operation, a row for each starting state and request, with the story of what follows.
 *
 *     const table rows{"olv_twamp_global_stats_get", {
 *         {.label = "counters", .arrange = counted, .work = get, .tells = reads},
 *         {.label = "null record", .work = get_into_null, .tells = [](const bench &b) { ... }}}};
 *     TEST(GlobalStatsGet, GoesAsEachRowSays) { rows.run(); }
 *
 * A row is run at the levels 0, 1, 3, 7 and 15 of both records in all combinations, with the bits 0x8, 0x10,
 * 0x40 and 0x80 alone in either, and without a system record. Then it is swept: its platform calls fail one by
 * one, from each on, and in all pairs, with everything logged, with little and with nothing, without a lock and
 * without a system record; and the tracer loses one event after the other. Status, story and what is left
 * behind are compared each time, and after a sweep's run the module has to do all its work again.
 *
 * Tables register themselves when the program starts; completeness_test.cpp looks at all of them.
 */
#ifndef OLV_TWAMP_TESTS_ROWS_HPP
#define OLV_TWAMP_TESTS_ROWS_HPP

#include "olv_sim/faults.hpp"
#include "story.hpp"

namespace olv_test {

struct planned_fault {
    call which;
    olv_sim::fault plan;
};

using operation = std::function<std::uint32_t(bench &)>;
/** Asked once the row is arranged. */
using teller_of_row = std::function<story(const bench &)>;

struct row {
    std::string label{}; ///< In the message of each failure.
    options setup{};
    std::function<void(bench &)> arrange{}; ///< Run first, with neither faults nor observation.
    /** Each has to fire. A row with faults of its own is not swept: its story has them. */
    std::vector<planned_fault> faults{};
    operation work{};
    teller_of_row tells{};
    /** An operation that prints what it reads: this, once the story ends well. Its own status is always 0. */
    std::optional<std::string> figures{};
    std::function<void(bench &, const outcome &)> afterwards{}; ///< What is particular to the row.
    /** The system record is an argument: its word counts for a module without one, too. */
    bool system_is_argument = false;
    bool usable_afterwards = true; ///< Where the processor lets it.
    bool variation = false; ///< Of a row with the same steps: run and swept with everything logged alone.
};

using row_list = std::vector<row>;
[[nodiscard]] row_list operator+(row_list first, const row_list &second);

/** All but the first are variations of it. */
[[nodiscard]] row_list variations_of_first(row_list rows);

/** A row for each way in which a handle is unusable; an operation that tells a record that is no module's from
 * a module that is not initialised has @p refuses_record for the first two. */
[[nodiscard]] row_list unusable_handles(const row &base, const teller_of_row &refuses,
                                        const teller_of_row &refuses_record = {});

class table {
  public:
    table(std::string name, row_list rows);

    /** Run and sweep every row, and print how many points were swept. */
    void run() const;

    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] const row_list &rows() const { return rows_; }

  private:
    std::string name_;
    row_list rows_;
};

/** Run and sweep one row of an operation. */
void run_and_sweep(const std::string &name, const row &each);

/** Every table of the program, in no particular order. Complete once main() runs. */
[[nodiscard]] const std::vector<const table *> &all_tables();

} // namespace olv_test

#endif
