/**
 * @file descriptor.hpp
 * A file descriptor that closes itself.
 */
#ifndef OLV_NET_DESCRIPTOR_HPP
#define OLV_NET_DESCRIPTOR_HPP

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace olv_net {

/** Owns a descriptor, or none. What is written to it is checked where it is written: closing tells nothing, and
 *  leaves errno alone. */
class descriptor {
  public:
    /** @param number  What the system returned: below 0 where it has opened nothing. */
    explicit descriptor(int number = none) : number_(number) {}
    ~descriptor()
    {
        if (is_open()) {
            const int error = errno;
            (void)close(number_);
            errno = error;
        }
    }
    descriptor(descriptor &&other) noexcept : number_(other.release()) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        descriptor taken{std::move(other)};
        std::swap(number_, taken.number_);
        return *this;
    }

    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] bool is_open() const { return number_ >= 0; }
    /** @return The number, for somebody else to close. */
    [[nodiscard]] int release() { return std::exchange(number_, none); }

  private:
    static constexpr int none = -1;

    int number_;
};

} // namespace olv_net

#endif
