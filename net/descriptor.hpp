/**
 * @file descriptor.hpp
 * A file descriptor that closes itself.
 */
#ifndef OLV_NET_DESCRIPTOR_HPP
#define OLV_NET_DESCRIPTOR_HPP

#include <utility>

#include <unistd.h>

namespace olv_net {

class descriptor {
  public:
    explicit descriptor(int number = closed) : number_(number) {}
    ~descriptor()
    {
        if (is_open()) {
            close(number_);
        }
    }
    descriptor(descriptor &&other) noexcept : number_(std::exchange(other.number_, closed)) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        descriptor taken{std::move(other)};
        std::swap(number_, taken.number_);
        return *this;
    }

    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] bool is_open() const { return number_ >= 0; }

  private:
    static constexpr int closed = -1;

    int number_;
};

} // namespace olv_net

#endif
