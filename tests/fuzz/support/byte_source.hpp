/**
 * @file byte_source.hpp
 * A fuzzer's input, read as bytes and numbers. Past the end everything reads as 0.
 */
#ifndef OLV_FUZZ_BYTE_SOURCE_HPP
#define OLV_FUZZ_BYTE_SOURCE_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace olv_fuzz {

class byte_source {
  public:
    explicit byte_source(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

    [[nodiscard]] bool empty() const { return rest_.empty(); }

    std::uint8_t byte()
    {
        if (rest_.empty()) {
            return 0;
        }
        const std::uint8_t value = rest_.front();
        rest_ = rest_.subspan(1);
        return value;
    }

    std::uint16_t half()
    {
        const unsigned high = byte();
        return static_cast<std::uint16_t>(high << 8 | byte());
    }

    std::uint32_t word()
    {
        const std::uint32_t high = half();
        return high << 16 | half();
    }

    /** One byte as a number below @p limit, which is at most 256. */
    std::uint32_t below(std::uint32_t limit) { return byte() % limit; }

    bool flag() { return (byte() & 1) != 0; }

    /** One byte picks a value. */
    template <typename Container> auto pick(const Container &values)
    {
        return *(std::begin(values) + below(static_cast<std::uint32_t>(std::size(values))));
    }

    /** The same of values that stand here. */
    template <std::uint32_t... Values> std::uint32_t one_of() { return pick(std::array{Values...}); }

    /** The next bytes, as many as there are. */
    std::span<const std::uint8_t> bytes(std::size_t count)
    {
        const std::span<const std::uint8_t> taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

  private:
    std::span<const std::uint8_t> rest_;
};

} // namespace olv_fuzz

#endif
