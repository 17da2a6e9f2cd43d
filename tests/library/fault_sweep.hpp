/**
 * @file fault_sweep.hpp
 * Fault sweeps: an operation as the list of its steps with what follows when a step fails, and a sweep that
 * fails its platform calls one by one, from each on, and in all pairs, and compares everything that can be
 * seen.
 *
 *     path stats_get()
 *     {
 *         const path last = unlocks("twamp.c", exits("twamp.c", "olv_twamp_global_stats_get"));
 *         return join({enters("twamp.c", "olv_twamp_global_stats_get"),
 *                      locks("twamp.c", join({calls(call::hyx_se_state_get, {}, join({fails(...), last})),
 * last}))});
 *     }
 *     TEST(FaultSweep, GlobalStatsGet) { sweep({.label = ..., .work = ..., .steps = stats_get()}); }
 *
 * Texts are literals; what a plan of faults leads to is put together from the steps.
 */
#ifndef OLV_TWAMP_TESTS_FAULT_SWEEP_HPP
#define OLV_TWAMP_TESTS_FAULT_SWEEP_HPP

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "responder_rows.hpp"

namespace olv_test::sweeping {

struct step;
using path = std::vector<step>;

/** What can be seen of an operation and what it leaves behind. */
struct outcome {
    std::uint32_t status = 0;
    std::string console;
    std::vector<trace> traces;
    std::vector<std::string> calls; ///< Of kind service.
    remains left;
    std::string state;           ///< Of the state entry that the sweep watches, in hexadecimal.
    std::uint32_t creations = 0; ///< Creations counted by the module since it was initialised.

    bool timer_was_read = false;
    bool record_was_cleared = false; ///< The caller's, for those who check it.
    bool record_was_written = false;
};

using effect = std::function<void(outcome &)>;

/** A platform call, a message, or both left out: a change of what is expected, such as the status. */
struct step {
    std::optional<call> called{};
    std::string console{};
    std::optional<trace> traced{};
    effect then{};               ///< A call's when it succeeds.
    std::optional<path> else_{}; ///< The rest of the operation when the call fails; nothing: it goes on.
};

[[nodiscard]] path join(std::initializer_list<path> parts);

// Steps. Each is a path, so that join() takes them all.

/** A call; @p succeeded is its effect. */
[[nodiscard]] path calls(call which, effect succeeded = {});
/** A call, and what follows instead of the remaining steps when it fails. */
[[nodiscard]] path calls(call which, effect succeeded, path rest_when_it_fails);
/** A message: console text and trace. */
[[nodiscard]] path says(std::string console, trace traced);
/** Console text that is no message. */
[[nodiscard]] path prints(std::string console);
[[nodiscard]] path yields(std::uint32_t status);
/** No call: something changes by the way. */
[[nodiscard]] path changes(effect what);

// What operations share. `source` is a file name as printed.

/** An error, the text of a status, and that status as the result. */
[[nodiscard]] path fails(const std::string &source, const std::string &text, const std::string &format,
                         std::uint32_t status);
/** The status-text line of an error. */
[[nodiscard]] path reports(const std::string &source, std::uint32_t status);
[[nodiscard]] path enters(const std::string &source, const std::string &operation);
[[nodiscard]] path exits(const std::string &source, const std::string &operation);
/** Takes the lock, after which come the steps of @p work. */
[[nodiscard]] path locks(const std::string &source, path work);
/** Releases the lock, after which come @p last. */
[[nodiscard]] path unlocks(const std::string &source, const path &last = {});

// Effects.

[[nodiscard]] effect adds(std::size_t remains::*what);
[[nodiscard]] effect takes(std::size_t remains::*what);

/** Of an operation that prints what another one reads and keeps every failure to itself. */
[[nodiscard]] effect prints_unless_failed(const std::string &console);

/** One operation in one starting state. */
struct subject {
    std::string label;
    options setup = known();
    std::function<void(bench &)> arrange{};
    operation work{};
    path steps{};
    effect at_last{}; ///< On what the steps led to.
    remains before{}; ///< What the starting state holds.
    std::uint32_t creations_before = 0;
    std::uint32_t watched_state = 1; ///< Namespace ID of the state entry in outcome::state.
    bool every_level = true;         ///< Sweep at other log words too. Not where the work changes them.
    bool without_system = true;      ///< Sweep without a system record too. Not where the work needs one.
    std::function<void(bench &, const outcome &)> afterwards{}; ///< What is particular to it.
};

/** Sweep it, and print how many points were swept. */
void sweep(const subject &under_test);

} // namespace olv_test::sweeping

#endif
