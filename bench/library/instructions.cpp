// Runs each operation of the library once for Callgrind, which writes one dump for each, named after it. See
// scripts/instructions.sh.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>

#include <valgrind/callgrind.h>

#include "bed.hpp"

namespace {

/** Once round a module's life: what init makes is there before and after. */
constexpr olv_bench::operation lifecycle[] = {
    {"shutdown", [](olv_bench::bed &b) { return olv_twamp_shutdown(b.module); }},
    {"init", [](olv_bench::bed &b) { return olv_twamp_init(b.module); }},
};

/** Operations in turn. @param dump  Have Callgrind write what each cost. */
void run_operations(olv_bench::bed &bed, std::span<const olv_bench::operation> operations, bool dump)
{
    for (const olv_bench::operation &operation : operations) {
        CALLGRIND_ZERO_STATS;
        const std::uint32_t status = operation.run(bed);
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
        olv_bench::bed bed(16);
        for (const bool dump : {false, true}) { // what happens the first time only is not counted
            run_operations(bed, olv_bench::operations, dump);
            run_operations(bed, lifecycle, dump);
            bed.free_records();
        }
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "library_instructions: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
