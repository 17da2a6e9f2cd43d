// hyx_nvm_calloc, hyx_nvm_free.
#include "sim/faults/platform_call.hpp"
#include "sim/faults/report_violation.hpp"
#include "sim/process_wide.hpp"
#include "sim/rte/memory_arena.hpp"

using namespace olv_sim;

memory::usage memory::in_use()
{
    return locked<memory_arena>()->in_use();
}

bool memory::is_live(const void *block)
{
    return locked<memory_arena>()->size_of(block).has_value();
}

void *hyx_nvm_calloc(std::uint32_t count, std::uint32_t size)
{
    const platform_call current{call::hyx_nvm_calloc,
                                [&](argument_text &text) { text.number("count", count).number("size", size); }};
    const std::uint64_t bytes = std::uint64_t{count} * size;
    if (current.fails() || bytes == 0 || bytes > UINT32_MAX) {
        return nullptr;
    }
    return locked<memory_arena>()->allocate(static_cast<std::uint32_t>(bytes));
}

void hyx_nvm_free(void *block)
{
    plain_call(
        call::hyx_nvm_free,
        [&](argument_text &text) {
            const auto size = locked<memory_arena>()->size_of(block);
            if (size) {
                text.number("size", *size);
            } else {
                text.text("block", block == nullptr ? nullptr : "unknown");
            }
        },
        [&] {
            if (block != nullptr && !locked<memory_arena>()->release(block)) {
                violations::report("hyx_nvm_free: freed or foreign block");
            }
        });
}
