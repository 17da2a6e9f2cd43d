// Runs each operation of the library once for Callgrind, which writes one dump for each, named after it. See
// scripts/instructions.sh.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>

#include <valgrind/callgrind.h>

#include "measured_module.hpp"

namespace {

/** Once round a module's life: what init makes is there before and after. */
constexpr olv_bench::operation lifecycle[] = {
    {"shutdown", [](olv_bench::measured_module &m) { return olv_twamp_shutdown(m.module); }},
    {"init", [](olv_bench::measured_module &m) { return olv_twamp_init(m.module); }},
};

/** Operations in turn. @param dump  Have Callgrind write what each cost. */
void run_operations(olv_bench::measured_module &module, std::span<const olv_bench::operation> operations,
                    bool dump)
{
    for (const olv_bench::operation &operation : operations) {
        CALLGRIND_ZERO_STATS;
        const std::uint32_t status = operation.run(module);
        if (dump) {
            CALLGRIND_DUMP_STATS_AT(operation.name);
        }
        if (status != OLV_STATUS_OK) {
            std::fprintf(stderr, "library_instructions: %s failed with status 0x%x\n", operation.name, status);
            std::exit(EXIT_FAILURE);
        }
    }
}

} // namespace

int main()
{
    try {
        olv_bench::measured_module module(16);
        for (const bool dump : {false, true}) { // what happens the first time only is not counted
            run_operations(module, olv_bench::library::operations, dump);
            run_operations(module, lifecycle, dump);
            module.free_records();
        }
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "library_instructions: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
