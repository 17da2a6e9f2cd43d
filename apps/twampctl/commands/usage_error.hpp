/**
 * @file usage_error.hpp
 * What commands throw that were typed wrongly.
 */
#ifndef OLV_TWAMPCTL_USAGE_ERROR_HPP
#define OLV_TWAMPCTL_USAGE_ERROR_HPP

#include <stdexcept>

namespace twampctl {

/** A command that cannot be understood: what is wrong, and what to type instead. */
class usage_error : public std::runtime_error {
  public:
    using runtime_error::runtime_error;
};

} // namespace twampctl

#endif
