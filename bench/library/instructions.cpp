// Runs each operation of the library once for Callgrind, which writes one dump for each, named after it. See
// scripts/instructions.sh.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include <valgrind/callgrind.h>

#include "bed.hpp"

namespace {

/** Every operation in turn. @param dump  Have Callgrind write what each cost. */
void run_operations(olv_bench::bed &bed, bool dump)
{
    for (const olv_bench::operation &operation : olv_bench::operations) {
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
    bed.free_records();
}

} // namespace

int main()
{
    try {
        olv_bench::bed bed(16);
        run_operations(bed, false); // what happens the first time only is not counted
        run_operations(bed, true);
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "library_instructions: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
