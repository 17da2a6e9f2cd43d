/**
 * @file bind_steps.hpp
 * Bind and unbind: the same steps, but for what stands in `direction`, and the rows of requests that are
 * changed.
 */
#ifndef OLV_TWAMP_TESTS_BIND_STEPS_HPP
#define OLV_TWAMP_TESTS_BIND_STEPS_HPP

#include "entry_steps.hpp"
#include "request.hpp"

namespace olv_test {

inline constexpr const char *bind_file = "twamp_bind.c";

struct direction {
    bool binds;
    const char *operation;
    uint32_t (*function)(olv_system_handle *, const olv_bind_info *);
    const char *invalid_module;
    const char *done;
    const char *not_performed;
    std::uint32_t pair_status;
};
inline const direction binding{true,
                               "olv_twamp_custom_bind",
                               olv_twamp_custom_bind,
                               "Failed to create Custom bind entry \n",
                               "Custom Bind Successfully done.\n",
                               "Failed to perform custom binding.\n",
                               9};
inline const direction unbinding{false,
                                 "olv_twamp_custom_unbind",
                                 olv_twamp_custom_unbind,
                                 "Failed to remove Custom bind entry \n",
                                 "Custom Un Bind Successfully done.\n",
                                 "Failed to perform custom un binding.\n",
                                 0x30009};

/** What is done with an entry of this key and entry point, in steps. */
class change {
  public:
    explicit change(const bench &b, const direction &way, std::uint32_t entry_point = 0x401,
                    std::uint32_t key = 0xABCDEF)
        : b_(b), way_(way), frame_(b, bind_file, way.operation), entry_(bind_entry(key, entry_point))
    {}

    /** The platform's lookup of the destination is asked for the entry point. */
    [[nodiscard]] story asks(std::uint32_t module_id) const
    {
        return frame_.begin +
               calls(call::entry_point_lookup, "module=%u", module_id)
                   .or_else(fails(bind_file, 0x3000D,
                                  "Failed to get Entry point function for destination module\n") +
                            gives_up());
    }
    [[nodiscard]] story begins() const { return frame_.begin; }

    [[nodiscard]] story succeeds() const
    {
        return makes_pattern() +
               (way_.binds ? learns(b_, entry_, refused(injected), gives_up())
                           : removes(b_, entry_, refused(injected), gives_up())) +
               frees_pattern(entry_) + says_text(severity::info, bind_file, way_.done) + frame_.end;
    }

    /** The tree refuses by itself: the key is there already, or it is not. */
    [[nodiscard]] story is_refused() const
    {
        const story failing = refused(injected) + frees_pattern(entry_) + gives_up();
        return makes_pattern() +
               (way_.binds ? asks_to_learn(b_, entry_) : asks_to_remove(b_, entry_)).or_else(failing) +
               refused(way_.binds ? 0x10B : 0x10C) + frees_pattern(entry_) + gives_up();
    }

    /** The key is refused with this status, by a fault of the row's own. */
    [[nodiscard]] story lacks_key(std::uint32_t status) const
    {
        return calls(call::olv_ptn_new, "width=24") +
               calls(call::olv_ptn_extend, "key=*/0, value=0xabcdef, width=24") + key_refused(status) +
               calls(call::olv_ptn_free, "key=*/0") + gives_up();
    }

    /** The line that ends every failure of the work, shown always. */
    [[nodiscard]] story gives_up() const
    {
        return says_unknown_text(bind_file, way_.not_performed) + frame_.end;
    }

  private:
    /** Unbind tells no status text, and has one status for both. */
    [[nodiscard]] story makes_pattern() const
    {
        constexpr const char *no_pattern = "Failed to allocate the pattern structure\n";
        return makes_key(entry_,
                         way_.binds ? fails(bind_file, 0x30012, no_pattern)
                                    : says(severity::error, bind_file, no_pattern) + yields(0x30012),
                         key_refused(0x301FF), gives_up());
    }
    [[nodiscard]] story key_refused(std::uint32_t status) const
    {
        constexpr const char *no_key = "Failed to extend the pattern structure\n";
        return way_.binds ? fails(bind_file, status, no_key)
                          : says(severity::error, bind_file, no_key) + yields(0x30012);
    }
    [[nodiscard]] story refused(std::uint32_t code) const
    {
        return way_.binds
                   ? fails(
                         bind_file, 0x30040,
                         "Failed to learn the tree entry, treeID = %d\nRTE error code:0x%x, error string: %s\n",
                         514, code, rte_text(code))
                   : fails(
                         bind_file, 0x30041,
                         "Failed to unlearn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
                         514, code, rte_text(code));
    }

    const bench &b_;
    const direction &way_;
    frame frame_;
    entry entry_;
};

// Rows

/** Unbind needs an entry to remove. */
inline std::function<void(bench &)> ready(const direction &way)
{
    return [&way](bench &b) {
        if (!way.binds) {
            b.learn(bind_tree_id, 0xABCDEF, 1, 0x401);
        }
    };
}

inline operation changed(const direction &way, const change_request &alter)
{
    return [&way, alter](bench &b) {
        request asked(b);
        alter(b, asked);
        return way.function(b.framework.system(), &asked.info);
    };
}

inline void unaltered(bench & /*unused*/, request & /*unused*/) {}

/** A row of a request that is changed. */
inline row asking(const direction &way, const char *label, const change_request &alter,
                  const teller_of_row &tells)
{
    return {.label = label,
            .arrange = ready(way),
            .work = changed(way, alter),
            .tells = tells,
            .system_is_argument = true};
}

/** A row of a request to a module whose entry point lookup is the test's own. */
inline row looking_up(const direction &way, const char *label, std::uint32_t module_id,
                      olv_entry_point_lookup lookup, const change_request &alter, const teller_of_row &tells)
{
    row each = asking(way, label, alter, tells);
    each.work = [&way, module_id, lookup, alter](bench &b) {
        const replaced_lookup replaced(module_id, lookup);
        request asked(b);
        asked.lead_to(module_id);
        alter(b, asked);
        return way.function(b.framework.system(), &asked.info);
    };
    return each;
}

inline teller_of_row succeeds(const direction &way, std::uint32_t module_id, std::uint32_t entry_point,
                              std::uint32_t key = 0xABCDEF)
{
    return [=, &way](const bench &b) {
        const change made(b, way, entry_point, key);
        return made.asks(module_id) + made.succeeds();
    };
}

inline teller_of_row succeeds_unasked(const direction &way, std::uint32_t entry_point)
{
    return [=, &way](const bench &b) {
        const change made(b, way, entry_point);
        return made.begins() + made.succeeds();
    };
}

inline constexpr const char *path_refused = "Only OLV_BIND_PATH_DIRECT is supported\n";

/** The work is refused with a message, before the platform's lookup is asked. */
inline teller_of_row refuses(const direction &way, std::uint32_t status, const char *text)
{
    return [=, &way](const bench &b) {
        const change made(b, way);
        return made.begins() + says_text(severity::error, bind_file, text) +
               reports(severity::error, bind_file, status) + made.gives_up();
    };
}

inline void no_custom_bind(bench & /*unused*/, request &asked)
{
    asked.info.custom_bind = 0;
}

// Entry point lookups of the tests' own

template <std::uint32_t answered>
std::uint32_t answer(olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point)
{
    *entry_point = answered;
    return 0;
}
inline std::uint32_t answer_nothing(olv_module_handle *, const olv_bind_info *, std::uint32_t *)
{
    return 0;
}
inline std::uint32_t answer_and_fail(olv_module_handle *, const olv_bind_info *, std::uint32_t *entry_point)
{
    *entry_point = 0x0777;
    return 0x20002;
}

inline void default_allowed(bench & /*unused*/, request &asked)
{
    asked.info.bind_subtype = 2;
    asked.destination.default_entry_point = 0x0123;
}

} // namespace olv_test

#endif
