/**
 * @file step.hpp
 * What is done with the library.
 */
#ifndef OLV_TWAMPCTL_STEP_HPP
#define OLV_TWAMPCTL_STEP_HPP

#include <cstdint>

namespace twampctl {

/** A step of a run, as far as the log level can be raised for it alone. */
enum class step : std::uint8_t { bind, create, statistics, tables, imc, unbind, remove, shutdown };

} // namespace twampctl

#endif
