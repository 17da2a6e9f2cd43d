/**
 * @file silence.hpp
 * Standard output that goes nowhere for a while.
 */
#ifndef OLV_TWAMP_TESTS_SILENCE_HPP
#define OLV_TWAMP_TESTS_SILENCE_HPP

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include "net/descriptor.hpp"

namespace olv_test {

/** While it lives, what is written to standard output is lost. */
class silence {
  public:
    silence()
    {
        std::fflush(stdout);
        const olv_net::descriptor nowhere{open("/dev/null", O_WRONLY | O_CLOEXEC)};
        dup2(nowhere.number(), STDOUT_FILENO);
    }
    ~silence()
    {
        std::fflush(stdout);
        dup2(console_.number(), STDOUT_FILENO);
    }
    silence(const silence &) = delete;
    silence &operator=(const silence &) = delete;

  private:
    olv_net::descriptor console_{dup(STDOUT_FILENO)};
};

} // namespace olv_test

#endif
