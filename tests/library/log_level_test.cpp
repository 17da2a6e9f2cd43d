// Setting and mapping log levels.
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *mapping_file = "twamp_internal.c";
constexpr const char *not_supported = "Unsupported log-level in TWAMP!";
constexpr const char *null_result = "Null Mapped Level Pointer\n";

operation sets(std::uint32_t level)
{
    return [level](bench &b) { return olv_twamp_sys_log(b.handle, level); };
}

/** The whole log word is replaced before that is told of, so that the new word decides what is shown. */
row supported(std::uint32_t level, options setup = {})
{
    return {.label = "level " + std::to_string(level) + " in place of " + std::to_string(setup.module_flags),
            .setup = std::move(setup),
            .work = sets(level),
            .tells = [level](const bench &b) {
                const frame of(b, file, "olv_twamp_sys_log");
                return of.begin + changes([level](outcome &result) { result.left.log_flags = level; }) +
                       says(severity::info, file, "TWAMP module 0x%08x log-level set to 0x%x\n",
                            low_word(b.handle), level) +
                       of.end;
            }};
}

/** Refused at every log word, which stays as it was. */
row unsupported(std::uint32_t level)
{
    return {.label = "unsupported level " + std::to_string(level),
            .work = sets(level),
            .tells = [level](const bench &b) {
                const frame of(b, file, "olv_twamp_sys_log");
                return of.begin + fails(mapping_file, 15, not_supported) +
                       fails(file, 15, "Failed to set log-level %d\n", static_cast<int>(level)) + of.end;
            }};
}

const table rows{"olv_twamp_sys_log",
                 row_list{supported(0), supported(1), supported(3), supported(7), supported(15),
                          supported(1, {.module_flags = 0xFFFFFFFF}), unsupported(2), unsupported(4),
                          unsupported(14), unsupported(16), unsupported(0x1F), unsupported(0xFFFFFFFF)} +
                     unusable_handles({.work = sets(0xABC)}, [](const bench &b) {
                         return says_unknown(file, "Invalid TWAMP module handle 0x%08x\n", low_word(b.handle)) +
                                says_unknown(file, "Failed to set log-level 0x%x for TWAMP\n", 0xABCu) +
                                yields(1);
                     })};

TEST(SysLog, GoesAsEachRowSays)
{
    rows.run();
}

// Mapping

constexpr std::uint32_t untouched = 0xDEADBEEF;
std::uint32_t mapped = untouched;

operation maps(std::uint32_t level)
{
    return [level](bench &b) {
        mapped = untouched;
        return olv_twamp_map_sys_log(b.handle, level, &mapped);
    };
}

void is_unmapped(bench & /*unused*/, const outcome & /*unused*/)
{
    EXPECT_EQ(mapped, untouched);
}

row mapped_level(std::uint32_t level)
{
    return {.label = "level " + std::to_string(level),
            .work = maps(level),
            .tells = [](const bench &) { return story(); },
            .afterwards = [level](bench &, const outcome &) { EXPECT_EQ(mapped, level); }};
}

row unmapped_level(std::uint32_t level)
{
    return {.label = "unsupported level " + std::to_string(level),
            .work = maps(level),
            .tells = [](const bench &) { return fails(mapping_file, 15, not_supported); },
            .afterwards = is_unmapped};
}

std::uint32_t maps_into_nothing(bench &b)
{
    return olv_twamp_map_sys_log(b.handle, 3, nullptr);
}

row_list named(const char *prefix, row_list list)
{
    for (row &each : list) {
        each.label = prefix + each.label;
    }
    return list;
}

/** One line for a handle that is of no use, of which nothing is read; a supported level needs no handle. */
const row_list unusable =
    named("level, ", unusable_handles(mapped_level(7), [](const bench &) { return story(); })) +
    named("unsupported level, ", unusable_handles(unmapped_level(2),
                                                  [](const bench &) {
                                                      return says_unknown(mapping_file, not_supported) +
                                                             yields(15);
                                                  })) +
    named("null result, ", unusable_handles({.work = maps_into_nothing}, [](const bench &) {
              return says_unknown(mapping_file, null_result) + yields(0x30008);
          }));

const table map_rows{
    "olv_twamp_map_sys_log",
    row_list{mapped_level(0), mapped_level(1), mapped_level(3), mapped_level(7), mapped_level(15),
             unmapped_level(2), unmapped_level(4), unmapped_level(5), unmapped_level(8), unmapped_level(16),
             unmapped_level(0x80000003),
             row{.label = "null result",
                 .work = maps_into_nothing,
                 .tells = [](const bench &) { return fails(mapping_file, 0x30008, null_result); }},
             row{.label = "null result, unsupported level",
                 .work = [](bench &b) { return olv_twamp_map_sys_log(b.handle, 2, nullptr); },
                 .tells = [](const bench &) { return fails(mapping_file, 15, not_supported); }}} +
        unusable};

TEST(MapSysLog, GoesAsEachRowSays)
{
    map_rows.run();
}

} // namespace
} // namespace olv_test
