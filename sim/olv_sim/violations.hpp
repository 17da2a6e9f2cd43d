/**
 * @file violations.hpp
 * Breaches of the platform's contract by whoever uses it.
 */
#ifndef OLV_SIM_VIOLATIONS_HPP
#define OLV_SIM_VIOLATIONS_HPP

#include <cstddef>
#include <string>
#include <vector>

namespace olv_sim {

/**
 * Breaches of the platform's contract by its users: double free, free of a foreign block, post without a
 * wait, use of a pattern after it was freed, a pattern extended beyond its width, unknown handles and the
 * like. The call itself returns an error where it can; the breach is also written to standard error.
 */
namespace violations {

/** The breaches so far, each as a text. */
[[nodiscard]] std::vector<std::string> list();
/** How many breaches there were. */
[[nodiscard]] std::size_t count();
/** Forget the breaches. */
void clear();
/** Write each breach to standard error when it happens (on by default). */
void set_echo(bool on);

} // namespace violations

} // namespace olv_sim

#endif
