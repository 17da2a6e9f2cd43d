/**
 * @file resident_memory.hpp
 * How much memory this process has.
 */
#ifndef OLV_TESTS_RESIDENT_MEMORY_HPP
#define OLV_TESTS_RESIDENT_MEMORY_HPP

#include <cstddef>
#include <fstream>

#include <unistd.h>

namespace olv_test {

/** Bytes of this process in memory. */
inline std::size_t resident_bytes()
{
    std::ifstream file{"/proc/self/statm"};
    std::size_t all = 0;
    std::size_t resident = 0;
    file >> all >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

} // namespace olv_test

#endif
