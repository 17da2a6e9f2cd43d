#include "sim/framework/pattern_arena.hpp"

#include <memory>
#include <vector>

#include "olv_sim/statuses.hpp"
#include "olv_sim/violations.hpp"
#include "olv_twamp.h"
#include "sim/faults/report_violation.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim::pattern_arena {
namespace {

constexpr std::uint32_t index_bits = 16;
constexpr std::uint32_t index_mask = (1u << index_bits) - 1;
constexpr std::uint32_t slots_in_chunk = 256;

struct slot {
    key content;
    std::uint32_t width = 0;
    // Part of word 0, never 0: a record that was kept beyond its pattern no longer matches.
    std::uint32_t generation = 1;
    bool in_use = false;
};

struct arena {
    std::vector<std::unique_ptr<std::array<slot, slots_in_chunk>>> chunks;
    std::vector<std::uint32_t> free;
    std::size_t live = 0;

    [[nodiscard]] slot &at(std::uint32_t index)
    {
        return (*chunks[index / slots_in_chunk])[index % slots_in_chunk];
    }

    /** NULL for a stale or foreign record. */
    [[nodiscard]] slot *find(const olv_ptn &record)
    {
        const std::uint32_t index = record.word[0] & index_mask;
        if (index >= chunks.size() * slots_in_chunk) {
            return nullptr;
        }
        slot &candidate = at(index);
        const bool matches = candidate.in_use && candidate.generation == record.word[0] >> index_bits;
        return matches ? &candidate : nullptr;
    }

    [[nodiscard]] bool grow()
    {
        const auto first = static_cast<std::uint32_t>(chunks.size()) * slots_in_chunk;
        if (first > index_mask) {
            return false;
        }
        chunks.push_back(std::make_unique<std::array<slot, slots_in_chunk>>());
        for (std::uint32_t offset = slots_in_chunk; offset > 0; --offset) {
            free.push_back(first + offset - 1);
        }
        return true;
    }
};

constexpr std::uint32_t low_bits(std::uint32_t width)
{
    return width >= 32 ? UINT32_MAX : (1u << width) - 1;
}

void report_stale(const char *user, const olv_ptn &record)
{
    char text[96];
    (void)std::snprintf(text, sizeof text, "%s: freed or foreign pattern 0x%08x", user,
                        static_cast<unsigned>(record.word[0]));
    violations::report(text);
}

} // namespace

std::uint32_t key::field(std::uint32_t offset, std::uint32_t width) const
{
    const std::size_t first = offset / 32;
    const std::uint64_t pair = (std::uint64_t{word[first]} << 32) | word[first + 1];
    return static_cast<std::uint32_t>(pair >> (64 - offset % 32 - width)) & low_bits(width);
}

void key::append(std::uint32_t value, std::uint32_t width)
{
    const std::size_t first = bits / 32;
    const std::uint64_t placed = std::uint64_t{value & low_bits(width)} << (64 - bits % 32 - width);
    word[first] |= static_cast<std::uint32_t>(placed >> 32);
    word[first + 1] |= static_cast<std::uint32_t>(placed);
    bits += width;
}

std::uint32_t create(std::uint32_t width, olv_ptn &record)
{
    if (width == 0 || width > maximum_width) {
        return framework_invalid_width;
    }
    const locked<arena> all;
    if (all->free.empty() && !all->grow()) {
        return framework_no_pattern;
    }
    const std::uint32_t index = all->free.back();
    all->free.pop_back();
    slot &taken = all->at(index);
    taken.content = {};
    taken.width = width;
    taken.in_use = true;
    ++all->live;
    record = {{taken.generation << index_bits | index, 0, 0}};
    return OLV_STATUS_OK;
}

std::uint32_t extend(olv_ptn &record, std::uint32_t value, std::uint32_t width)
{
    const locked<arena> all;
    slot *found = all->find(record);
    if (found == nullptr) {
        report_stale("olv_ptn_extend", record);
        return framework_invalid_pattern;
    }
    if (width == 0 || width > 32) {
        return framework_invalid_width;
    }
    if (width > found->width - found->content.bits) {
        violations::report("olv_ptn_extend: " + std::to_string(found->content.bits) + " + " +
                           std::to_string(width) + " bits in a pattern of " + std::to_string(found->width));
        return framework_pattern_overflow;
    }
    found->content.append(value, width);
    record.word[1] = found->content.bits;
    return OLV_STATUS_OK;
}

void release(const olv_ptn &record)
{
    const locked<arena> all;
    slot *found = all->find(record);
    if (found == nullptr) {
        report_stale("olv_ptn_free", record);
        return;
    }
    found->in_use = false;
    found->generation = found->generation == index_mask ? 1 : found->generation + 1;
    --all->live;
    all->free.push_back(record.word[0] & index_mask);
}

std::optional<key> find(const olv_ptn &record)
{
    const locked<arena> all;
    const slot *found = all->find(record);
    return found == nullptr ? std::nullopt : std::optional{found->content};
}

std::optional<key> read(const olv_ptn &record, const char *user)
{
    std::optional<key> found = find(record);
    if (!found) {
        report_stale(user, record);
    }
    return found;
}

std::string text(const olv_ptn &record)
{
    const std::optional<key> found = find(record);
    if (!found) {
        return "invalid";
    }
    if (found->bits == 0) {
        return "*/0";
    }
    std::string digits;
    // The leading digit takes the bits that do not fill one.
    std::uint32_t width = (found->bits + 3) % 4 + 1;
    for (std::uint32_t offset = 0; offset < found->bits; width = 4) {
        digits += "0123456789abcdef"[found->field(offset, width)];
        offset += width;
    }
    return "0x" + digits + "/" + std::to_string(found->bits);
}

} // namespace olv_sim::pattern_arena

namespace olv_sim::patterns {

std::size_t live()
{
    return locked<pattern_arena::arena>()->live;
}

} // namespace olv_sim::patterns
