/**
 * @file silence.hpp
 * Standard output that goes nowhere for a while.
 */
#ifndef OLV_TWAMP_TESTS_SILENCE_HPP
#define OLV_TWAMP_TESTS_SILENCE_HPP

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace olv_test {

/** While it lives, what is written to standard output is lost. */
class silence {
  public:
    silence()
    {
        std::fflush(stdout);
        console_ = dup(STDOUT_FILENO);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    ~silence()
    {
        std::fflush(stdout);
        dup2(console_, STDOUT_FILENO);
        close(console_);
    }
    silence(const silence &) = delete;
    silence &operator=(const silence &) = delete;

  private:
    int console_ = -1;
};

} // namespace olv_test

#endif
