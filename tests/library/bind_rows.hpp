/**
 * @file bind_rows.hpp
 * What the tables of bind, unbind and the inter-module call lookup share: requests, destinations with entry
 * point lookups of the tests' own, and the console texts of refusals.
 */
#ifndef OLV_TWAMP_TESTS_BIND_ROWS_HPP
#define OLV_TWAMP_TESTS_BIND_ROWS_HPP

#include "responder_rows.hpp"

namespace olv_test {

#define BIND_ERROR(text) OLV_ERROR("twamp_bind.c", text)
#define BIND_UNKNOWN(text) OLV_UNKNOWN("twamp_bind.c", text)
#define BIND_ENTERING OLV_ENTERING("twamp_bind.c", "olv_twamp_custom_bind")
#define BIND_EXITING OLV_EXITING("twamp_bind.c", "olv_twamp_custom_bind")
#define BIND_NOT_PERFORMED BIND_UNKNOWN("Failed to perform custom binding.")
#define UNBIND_ENTERING OLV_ENTERING("twamp_bind.c", "olv_twamp_custom_unbind")
#define UNBIND_EXITING OLV_EXITING("twamp_bind.c", "olv_twamp_custom_unbind")
#define UNBIND_NOT_PERFORMED BIND_UNKNOWN("Failed to perform custom un binding.")
#define BIND_SUPPORTED                                                                                         \
    "Following is only supported bind combination\n source module = TWAMP, destination module = IPV4\n "       \
    "source module = TWAMP, destination module = IPV6"

inline constexpr const char *null_info = "Invalid bind Info pointer0x%08x\n";
inline constexpr const char *invalid_source = "Invalid TWAMP module handle 0x%08x\n";
inline constexpr const char *cannot_bind = "Failed to create Custom bind entry \n";
inline constexpr const char *cannot_unbind = "Failed to remove Custom bind entry \n";
inline constexpr const char *path_refused = "Only OLV_BIND_PATH_DIRECT is supported\n";
inline constexpr const char *type_refused = "Unsupported Binding Type %d\n";
inline constexpr const char *bind_refused = "Only custom bind supported\n";
inline constexpr const char *entry_point_failed = "Failed to get Entry point function for destination module\n";
inline constexpr const char *no_entry_point = "Invalid Entry point function found for destination module\n";
inline constexpr const char *pair_refused = BIND_SUPPORTED "\n";
inline constexpr const char *bind_pattern_refused = "Failed to allocate the pattern structure\n";
inline constexpr const char *bind_key_refused = "Failed to extend the pattern structure\n";
inline constexpr const char *bind_not_performed = "Failed to perform custom binding.\n";
inline constexpr const char *unbind_not_performed = "Failed to perform custom un binding.\n";
inline constexpr const char *bind_done = "Custom Bind Successfully done.\n";
inline constexpr const char *unbind_done = "Custom Un Bind Successfully done.\n";

/** A request that is accepted: key 0x00ABCDEF, IPv4 module, direct path. */
struct request {
    explicit request(bench &b)
    {
        info.bind_type = 2;
        info.bind_subtype = 1;
        info.bind_path = 1;
        info.src_module = b.handle;
        info.src_instance = &key;
        info.src_location = 2;
        info.dst_module = b.framework.ipv4_module();
        info.dst_location = 2;
        info.custom_bind = 1;
        destination.magic = 0x53248791;
        destination.module_id = 1;
        destination.log_name = "destination";
    }
    request(const request &) = delete;
    request &operator=(const request &) = delete;

    std::uint32_t key = 0x00ABCDEF;
    olv_module_handle destination{}; ///< For requests that are pointed at it.
    olv_bind_info info{};
};

using change_request = void (*)(bench &, request &);

inline void unchanged(bench &, request &) {}

/** Bind or unbind, as one of the library's functions. */
using bind_function = uint32_t (*)(olv_system_handle *, const olv_bind_info *);

/** Puts another entry point lookup into a module's CPU services while it lives. */
class replaced_lookup {
  public:
    replaced_lookup(std::uint32_t module_id, olv_entry_point_lookup lookup)
        : place_(moduleMgrCpuServiceFn[module_id].entry_point_lookup), before_(place_)
    {
        place_ = lookup;
    }
    ~replaced_lookup() { place_ = before_; }
    replaced_lookup(const replaced_lookup &) = delete;
    replaced_lookup &operator=(const replaced_lookup &) = delete;

  private:
    olv_entry_point_lookup &place_;
    olv_entry_point_lookup before_;
};

inline std::uint32_t answer_zero(olv_module_handle *, const olv_bind_info *, std::uint32_t *)
{
    return 0;
}
inline std::uint32_t write_zero(olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point)
{
    *entry_point = 0;
    return 0;
}
inline std::uint32_t answer_0777(olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point)
{
    *entry_point = 0x0777;
    return 0;
}
inline std::uint32_t answer_and_fail(olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point)
{
    *entry_point = 0x0777;
    return 0x20002;
}

/** @p work on a changed request, with the bench's system record as first argument. */
inline operation with_request(bind_function work, change_request change)
{
    return [work, change](bench &b) {
        request asked(b);
        change(b, asked);
        return work(b.framework.system(), &asked.info);
    };
}

/** The same to the request's own destination, module @p module_id, with this entry point lookup. */
inline operation with_lookup(bind_function work, std::uint32_t module_id, olv_entry_point_lookup lookup,
                             change_request change)
{
    return [=](bench &b) {
        const replaced_lookup replaced(module_id, lookup);
        request asked(b);
        asked.destination.module_id = module_id;
        asked.info.dst_module = &asked.destination;
        change(b, asked);
        return work(b.framework.system(), &asked.info);
    };
}

/** Bind with the default request, quietly. */
inline void bind_quietly(bench &b)
{
    request asked(b);
    asked.info.src_module = b.module;
    (void)captured_console([&] { EXPECT_EQ(olv_twamp_custom_bind(b.framework.system(), &asked.info), 0u); });
}

/** The bind tree's action for a key; nothing where there is no entry. */
inline std::optional<std::array<std::uint32_t, 3>> bound_to(const bench &b, std::uint32_t key)
{
    const auto action = b.processor.tree(bind_tree)->lookup(key);
    if (!action) {
        return std::nullopt;
    }
    return std::array<std::uint32_t, 3>{action->word[0], action->word[1], action->word[2]};
}

/** A row of an operation whose system record is an argument. */
inline std::vector<row> with_system_always(std::vector<row> rows)
{
    for (row &each : rows) {
        each.without_system = false;
    }
    return rows;
}

} // namespace olv_test

#endif
