#include "rows.hpp"

namespace olv_test {
namespace {

std::uint32_t is_valid(bench &b)
{
    return olv_twamp_valid_module_handle(b.handle);
}

row answers(const char *label, std::uint32_t answer, std::function<void(bench &)> arrange)
{
    return {.label = label, .arrange = std::move(arrange), .work = is_valid, .tells = [answer](const bench &) {
                return yields(answer);
            }};
}

const table rows{
    "olv_twamp_valid_module_handle",
    {answers("initialised module", 1, {}),
     answers("the record's own magic is not tested", 1, [](bench &b) { b.handle = &b.foreign; }),
     answers("no context", 0, [](bench &b) { quiet([&] { return olv_twamp_shutdown(b.module); }); })}};

TEST(ValidModuleHandle, GoesAsEachRowSays)
{
    rows.run();
}

TEST(ValidModuleHandle, RefusesEveryOtherContextMagic)
{
    bench b;
    for (const std::uint32_t magic : {0u, 1u, 0x18496125u, 0x24614918u, 0x53248791u, 0xFFFFFFFFu}) {
        b.set_context_magic(magic);
        EXPECT_EQ(is_valid(b), 0u) << magic;
    }
    b.set_context_magic(0x18496124);
    EXPECT_EQ(is_valid(b), 1u);
}

} // namespace
} // namespace olv_test
