/**
 * @file interposed.hpp
 * Where tests stand between the library and the platform: they look at memory as it is handed over, and list
 * entries that no tree of the software platform would hold.
 */
#ifndef OLV_TWAMP_TESTS_INTERPOSED_HPP
#define OLV_TWAMP_TESTS_INTERPOSED_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "hyx.h"

namespace olv_test {

/** While it lives, these run; what is empty is left to the platform alone. One at a time. */
struct interposition {
    interposition();
    ~interposition();
    interposition(const interposition &) = delete;
    interposition &operator=(const interposition &) = delete;

    std::function<void(void *block, std::size_t size)> after_calloc;
    std::function<void(const void *block)> before_free;
    std::function<void()> before_symbol_lookup;
    std::function<void()> before_gettime;
    /** In place of the platform's listing, and of the faults planned for it. */
    std::function<std::uint32_t(std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context)> list;
};

struct listed_entry {
    std::uint32_t key;
    std::uint32_t key_length;                   ///< In bits; 0: an entry without a key.
    std::uint32_t third_word;                   ///< Of the pattern record as it is listed.
    std::optional<std::uint32_t> action = {0U}; ///< First word; nothing: the callback gets no action.
};

/** A pattern of the platform with another third word, while it lives. */
class made_pattern {
  public:
    explicit made_pattern(const listed_entry &entry);
    ~made_pattern();
    made_pattern(made_pattern &&moved) noexcept;
    made_pattern &operator=(made_pattern &&) = delete;

    olv_ptn pattern{};
};

/** While it lives, hyx_ptn_list_ptns() lists these entries, in this order, for every tree. */
class hand_made_listing {
  public:
    explicit hand_made_listing(const std::vector<listed_entry> &entries);

    /** Call back once without a context and once without a pattern before the entries. */
    void with_null_arguments() { null_arguments_ = true; }

    /** Fail with this code of the runtime environment after the entries. */
    void fail_afterwards(std::uint32_t code) { code_ = code; }

    /** Tree IDs that were listed. */
    [[nodiscard]] const std::vector<std::uint32_t> &listed_trees() const { return trees_; }

  private:
    std::uint32_t list(std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context);

    std::vector<made_pattern> patterns_;
    std::vector<std::optional<olv_ptn_action>> actions_;
    std::vector<std::uint32_t> trees_;
    bool null_arguments_ = false;
    std::uint32_t code_ = 0;
    interposition between_;
};

} // namespace olv_test

#endif
