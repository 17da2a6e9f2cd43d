// olv_ptn_print, olv_ptn_action_print, olv_byte_string_print: everything goes through stdout of the C library,
// so that it stays in order with what the modules print there.
#include "sim/faults/platform_call.hpp"
#include "sim/faults/report_violation.hpp"
#include "sim/framework/pattern_arena.hpp"

using namespace olv_sim;

void olv_ptn_print(olv_ptn pattern)
{
    plain_call(
        call::olv_ptn_print, [&](argument_text &text) { text.pattern("key", &pattern); },
        [&] {
            (void)pattern_arena::read(pattern, "olv_ptn_print"); // Reports a stale record.
            (void)std::printf("<key = %s>", pattern_arena::text(pattern).c_str());
        });
}

void olv_ptn_action_print(olv_ptn_action action)
{
    plain_call(
        call::olv_ptn_action_print, [&](argument_text &text) { text.action("action", &action); },
        [&] { (void)std::printf("<action = %s>", action_text(action).c_str()); });
}

void olv_byte_string_print(const void *bytes, std::uint32_t length)
{
    plain_call(
        call::olv_byte_string_print,
        [&](argument_text &text) { text.bytes("bytes", bytes, length).number("length", length); },
        [&] {
            if (bytes != nullptr) {
                (void)std::fputs(hex_bytes(bytes, length, " ").c_str(), stdout);
            }
        });
}
