#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp.c";

std::uint32_t update(bench &b)
{
    return olv_twamp_service_function_update(b.handle);
}

story hands_over(const bench &b)
{
    return calls(call::olv_module_service_function_update, "module=%u, table=set, lli=0x0",
                 b.module->module_id);
}

story refused(std::uint32_t status)
{
    return fails(file, status, "Failed to update service functions");
}

story updates(const bench &b)
{
    const frame of(b, file, "olv_twamp_service_function_update");
    return of.begin + hands_over(b).or_else(refused(injected_in_framework) + of.end) + of.end;
}

/** The framework's answer comes back as it is, whatever module it names. */
row refused_with(std::uint32_t status)
{
    return {.label = "refused with " + std::to_string(status),
            .faults = {{call::olv_module_service_function_update, {.code = status}}},
            .work = update,
            .tells = [status](const bench &b) {
                const frame of(b, file, "olv_twamp_service_function_update");
                return of.begin + hands_over(b) + refused(status) + of.end;
            }};
}

const table rows{"olv_twamp_service_function_update",
                 row_list{{.label = "module", .work = update, .tells = updates},
                          {.label = "updated before",
                           .arrange = [](bench &b) { quiet([&] { return update(b); }); },
                           .work = update,
                           .tells = updates},
                          refused_with(0x10007),
                          refused_with(7),
                          refused_with(0xF0007)} +
                     unusable_handles({.work = update}, [](const bench &b) {
                         return refuses_module(b, file, "Service function update failed");
                     })};

TEST(ServiceFunctionUpdate, GoesAsEachRowSays)
{
    rows.run();
}

} // namespace
} // namespace olv_test
