// The one way into every exported symbol: note the call, ask the fault plan, do the work.
#ifndef OLV_SIM_PLATFORM_CALL_HPP
#define OLV_SIM_PLATFORM_CALL_HPP

#include <atomic>
#include <cstdint>
#include <optional>

#include "hyx.h"
#include "olv.h"
#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "sim/faults/argument_text.hpp"

namespace olv_sim {

// Both switches share one word, so that a call with everything off looks at a single atomic.
inline constexpr std::uint32_t faults_on = 1;
inline constexpr std::uint32_t record_on = 2;
extern std::atomic<std::uint32_t> call_switches;

namespace faults {

/** Count the call. @return The code to fail with, if it has to fail. */
std::optional<std::uint32_t> injected(call which);

} // namespace faults

namespace call_record {

/** Where a call's result is filled in later; the generation makes it void once the record starts anew. */
struct ticket {
    std::uint32_t generation = 0;
    std::size_t position = 0;
};

bool wants(call which);
ticket note(call which, std::string arguments);
void finish(const ticket &open, std::uint32_t result, bool injected);

} // namespace call_record

/** One call of the platform, from entry to return. */
class platform_call {
  public:
    /** @p describe fills an argument_text; it only runs when the call is recorded. */
    template <typename Describe> platform_call(call which, Describe &&describe)
    {
        const std::uint32_t on = call_switches.load(std::memory_order_relaxed);
        if (on == 0) [[likely]] {
            return;
        }
        if ((on & record_on) != 0 && call_record::wants(which)) {
            argument_text arguments;
            describe(arguments);
            ticket_ = call_record::note(which, arguments.take());
        }
        if ((on & faults_on) != 0 && can_fail(which)) {
            fault_ = faults::injected(which);
        }
        if (ticket_ && fault_) {
            call_record::finish(*ticket_, 0, true);
        }
    }

    [[nodiscard]] bool fails() const { return fault_.has_value(); }
    [[nodiscard]] std::uint32_t code() const { return fault_.value_or(0); }

    /** Note the status that the call returns, and yield it. */
    std::uint32_t result(std::uint32_t status) const
    {
        if (ticket_) {
            call_record::finish(*ticket_, status, fails());
        }
        return status;
    }

  private:
    std::optional<std::uint32_t> fault_;
    std::optional<call_record::ticket> ticket_;
};

/** A call that returns a status. */
template <typename Describe, typename Work>
std::uint32_t status_call(call which, Describe &&describe, Work &&work)
{
    const platform_call current{which, describe};
    return current.result(current.fails() ? current.code() : work());
}

/** A call that cannot fail. */
template <typename Describe, typename Work> auto plain_call(call which, Describe &&describe, Work &&work)
{
    [[maybe_unused]] const platform_call current{which, describe};
    return work();
}

} // namespace olv_sim

#endif
