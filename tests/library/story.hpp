/**
 * @file story.hpp
 * What an operation is expected to do and to show: the list of its steps, in literals. A step is a call of the
 * platform, a line of the log or a text that is printed; behind a call stands what follows when it fails.
 *
 *     story reads(const bench &b)
 *     {
 *         const frame of(b, "twamp.c", "olv_twamp_global_stats_get");
 *         return of.begin +
 *                calls(call::hyx_se_state_get, "rte=%u, index=0, length=24", b.module->rte_handle)
 *                    .or_else(fails("twamp.c", 0x3002B, "Failed to read: %s\n", rte_text(injected)) + of.end) +
 *                of.end;
 *     }
 *
 * tell() turns the steps into one text, for given log words and faults, and narrate() what was seen into
 * another; the two are compared as they are. Of what happens between two trace events, the calls stand first.
 */
#ifndef OLV_TWAMP_TESTS_STORY_HPP
#define OLV_TWAMP_TESTS_STORY_HPP

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "harness.hpp"
#include "module_log.hpp"

namespace olv_test {

/** What an operation leads to. */
struct outcome {
    std::uint32_t status = 0;
    std::string told; ///< The story, a line for each call and each trace event, the console as it is.
    remains left;
    std::uint32_t creations = 0; ///< Counted by the module since it was initialised.
    bool result_cleared = false; ///< The caller's record, for operations with one.
    bool result_written = false;
};

using effect = std::function<void(outcome &)>;

/** Whose name a line has and whose log words it asks. */
enum class voice : std::uint8_t {
    module,       ///< The module's name; its word or the system's.
    module_alone, ///< The module's name and word.
    system,       ///< The system record's name and word; where there is none the module's.
    nobody        ///< Shown always and traced as a forced error.
};

struct log_line {
    severity how = severity::error;
    voice by = voice::module;
    std::string file;
    std::string shown; ///< What the console has after name and place.
    bool with_place = true;
    std::optional<std::string> format; ///< As traced; nothing: NULL.
    std::string text;                  ///< As traced.
};

struct step;

class story {
  public:
    story() = default;
    explicit story(step only);

    story &operator+=(const story &next);
    friend story operator+(story first, const story &second) { return first += second; }

    /** When the call before fails, this is the rest of the story. */
    [[nodiscard]] story or_else(const story &rest) &&;
    /** When the call before fails, this happens, and the story goes on. */
    [[nodiscard]] story or_also(const story &more) &&;
    /** When the call before succeeds. */
    [[nodiscard]] story then(effect succeeded) &&;
    /** The lines of the log so far are another voice's. */
    [[nodiscard]] story said_by(voice by) &&;

    [[nodiscard]] const std::vector<std::shared_ptr<const step>> &steps() const { return steps_; }

  private:
    /** The last step, to be changed. */
    step &last();

    std::vector<std::shared_ptr<const step>> steps_; ///< Shared: stories are put together from the same parts.
};

struct step {
    std::optional<call> called{};
    std::string arguments{};
    std::optional<story> when_it_fails{}; ///< Nothing: as if it had succeeded, but for `then`.
    bool goes_on = true;                  ///< After `when_it_fails`.
    std::optional<log_line> said{};
    std::string printed{};
    std::optional<std::uint32_t> status{};
    effect then{};
};

// Steps

[[nodiscard]] [[gnu::format(printf, 2, 3)]] story calls(call which, const char *arguments, ...);
/** A message. Without arguments it is a line of its own; two end without a newline all the same. */
[[nodiscard]] [[gnu::format(printf, 3, 4)]] story says(severity how, const char *file, const char *format, ...);
/** A message in the unknown-handle form. */
[[nodiscard]] [[gnu::format(printf, 2, 3)]] story says_unknown(const char *file, const char *format, ...);
/** Messages without arguments, to be had from a variable. */
[[nodiscard]] story says_text(severity how, const char *file, const char *text);
[[nodiscard]] story says_unknown_text(const char *file, const char *text);
/** The status text that follows a message, and the status. */
[[nodiscard]] story reports(severity how, const char *file, std::uint32_t status);
/** An error, the text of its status, and that status. */
[[nodiscard]] [[gnu::format(printf, 3, 4)]] story fails(const char *file, std::uint32_t status,
                                                        const char *format, ...);
/** The same, fatal. */
[[nodiscard]] [[gnu::format(printf, 3, 4)]] story fails_fatally(const char *file, std::uint32_t status,
                                                                const char *format, ...);
/** A line of the log whose trace has no format. */
[[nodiscard]] story tells(log_line said);
[[nodiscard]] story dumps_zeros(const char *file, std::uint32_t namespace_id, std::size_t length);
[[nodiscard]] [[gnu::format(printf, 1, 2)]] story prints(const char *format, ...);
[[nodiscard]] story yields(std::uint32_t status);
[[nodiscard]] story changes(effect what);

// Effects

[[nodiscard]] effect adds(std::size_t remains::*what);
[[nodiscard]] effect takes(std::size_t remains::*what);
[[nodiscard]] effect writes_result();

/** What stands around the work of an operation. An operation without name has neither entry nor exit line. */
struct frame {
    frame(const bench &b, const char *file, const std::string &name);
    story begin; ///< Entry line and lock.
    story end;   ///< Unlock and exit line.
};
[[nodiscard]] story enters(const char *file, const std::string &name);
[[nodiscard]] story exits(const char *file, const std::string &name);

/** An operation refuses the bench's handle in two lines. */
[[nodiscard]] story refuses_module(const bench &b, const char *file, const char *failed);

/** The text of an error code of the runtime environment. */
[[nodiscard]] const char *rte_text(std::uint32_t code);
/** Low 32 bits, as messages show addresses. */
[[nodiscard]] std::uint32_t low_word(const void *address);
// Telling

/** What a story depends on beside its steps. */
struct circumstances {
    std::optional<std::uint32_t> system_flags; ///< Nothing: no system record.
    bool locked = true;
    /** Whether the Nth call that can fail does, from 1. */
    std::function<bool(std::uint32_t)> fails = [](std::uint32_t) { return false; };
    /** Whether the tracer loses the Nth event, from 1, forced errors not counted. */
    std::function<bool(std::uint32_t)> loses = [](std::uint32_t) { return false; };
};

/** What the steps lead to. @param before  What is there, with the module's log word. */
[[nodiscard]] outcome tell(const story &steps, const circumstances &given, outcome before);

/** The text of what was seen of an operation of the bench's module. */
[[nodiscard]] std::string narrate(const observation &seen, const bench &b);

} // namespace olv_test

#endif
