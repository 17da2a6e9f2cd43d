// The framework's storage behind pattern records.
#ifndef OLV_SIM_PATTERN_ARENA_HPP
#define OLV_SIM_PATTERN_ARENA_HPP

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "olv.h"

namespace olv_sim::pattern_arena {

inline constexpr std::uint32_t maximum_width = 256;

/** A key, first field in the most significant bits of word 0. The last word stays 0, so that a field can be
 *  cut out of two neighbouring words anywhere. */
struct key {
    std::uint32_t bits = 0;
    std::array<std::uint32_t, maximum_width / 32 + 1> word{};

    /** @p width 1 to 32, inside the key. */
    [[nodiscard]] std::uint32_t field(std::uint32_t offset, std::uint32_t width) const;
    /** @p width 1 to 32, over bits that are still 0. */
    void append(std::uint32_t value, std::uint32_t width);
};

// Framework statuses; a stale or foreign record is reported as a violation.
std::uint32_t create(std::uint32_t width, olv_ptn &record);
std::uint32_t extend(olv_ptn &record, std::uint32_t value, std::uint32_t width);
void release(const olv_ptn &record);

/** The key so far; nothing and a violation for a stale or foreign record. */
[[nodiscard]] std::optional<key> read(const olv_ptn &record, const char *user);
/** The same without a violation. */
[[nodiscard]] std::optional<key> find(const olv_ptn &record);
/** Such as "0x000001/24", a pattern without a key "*" and "/0". "invalid" for a stale or foreign record. */
[[nodiscard]] std::string text(const olv_ptn &record);

} // namespace olv_sim::pattern_arena

#endif
