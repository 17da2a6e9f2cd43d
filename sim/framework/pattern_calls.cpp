// olv_ptn_new, olv_ptn_extend, olv_ptn_free, olv_ptn_parse.
#include "olv_sim/calls.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_twamp.h"
#include "sim/faults/platform_call.hpp"
#include "sim/framework/pattern_arena.hpp"

using namespace olv_sim;

namespace {

std::uint32_t parse(const olv_ptn *pattern, std::uint32_t field_count, const std::uint16_t *field_widths,
                    std::uint32_t *values)
{
    if (pattern == nullptr || field_widths == nullptr || values == nullptr) {
        return framework_null_pointer;
    }
    const auto key = pattern_arena::read(*pattern, "olv_ptn_parse");
    if (!key) {
        return framework_invalid_pattern;
    }
    std::uint32_t left = key->bits;
    for (std::uint32_t index = 0; index < field_count; ++index) {
        const std::uint32_t width = field_widths[index];
        if (width == 0 || width > 32 || width > left) {
            return framework_invalid_width;
        }
        left -= width;
    }
    std::uint32_t offset = 0;
    for (std::uint32_t index = 0; index < field_count; ++index) {
        values[index] = key->field(offset, field_widths[index]);
        offset += field_widths[index];
    }
    return OLV_STATUS_OK;
}

} // namespace

std::uint32_t olv_ptn_new(std::uint32_t width_bits, olv_ptn *pattern)
{
    return status_call(
        call::olv_ptn_new, [&](argument_text &text) { text.number("width", width_bits); },
        [&] {
            return pattern == nullptr ? std::uint32_t{framework_null_pointer}
                                      : pattern_arena::create(width_bits, *pattern);
        });
}

std::uint32_t olv_ptn_extend(olv_ptn *pattern, std::uint32_t value, std::uint32_t width_bits)
{
    return status_call(
        call::olv_ptn_extend,
        [&](argument_text &text) {
            text.pattern("key", pattern).hex("value", value).number("width", width_bits);
        },
        [&] {
            return pattern == nullptr ? std::uint32_t{framework_null_pointer}
                                      : pattern_arena::extend(*pattern, value, width_bits);
        });
}

void olv_ptn_free(olv_ptn pattern)
{
    plain_call(
        call::olv_ptn_free, [&](argument_text &text) { text.pattern("key", &pattern); },
        [&] { pattern_arena::release(pattern); });
}

std::uint32_t olv_ptn_parse(const olv_ptn *pattern, std::uint32_t field_count,
                            const std::uint16_t *field_widths, std::uint32_t *values)
{
    return status_call(
        call::olv_ptn_parse,
        [&](argument_text &text) { text.pattern("key", pattern).number("fields", field_count); },
        [&] { return parse(pattern, field_count, field_widths, values); });
}
