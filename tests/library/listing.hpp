/**
 * @file listing.hpp
 * Classifier listings made by hand: entries that no tree of the software platform would hold.
 */
#ifndef OLV_TWAMP_TESTS_LISTING_HPP
#define OLV_TWAMP_TESTS_LISTING_HPP

#include <cstdint>
#include <optional>
#include <vector>

#include "hyx.h"

namespace olv_test {

struct listed_entry {
    std::uint32_t key;
    std::uint32_t key_length; ///< In bits; 0: an entry without a key.
    std::uint32_t third_word; ///< Of the pattern record as it is listed.
    std::uint32_t action;     ///< First word of the action.
    bool has_action = true;   ///< false: the callback gets none.
};

/**
 * While it lives, hyx_ptn_list_ptns() lists these entries, in this order, for every tree. The platform's own
 * listing, and the faults planned for it, are not reached.
 */
class hand_made_listing {
  public:
    explicit hand_made_listing(const std::vector<listed_entry> &entries);
    ~hand_made_listing();
    hand_made_listing(const hand_made_listing &) = delete;
    hand_made_listing &operator=(const hand_made_listing &) = delete;

    /** Call back once without a context and once without a pattern before the entries. */
    void with_null_arguments() { null_arguments_ = true; }

    /** Tree IDs that were listed. */
    [[nodiscard]] const std::vector<std::uint32_t> &listed_trees() const { return trees_; }

    /** What hyx_ptn_list_ptns() does instead. */
    std::uint32_t list(std::uint32_t tree_id, hyx_ptn_list_fn callback, void *context);

  private:
    std::vector<olv_ptn> patterns_;
    std::vector<std::optional<olv_ptn_action>> actions_;
    std::vector<std::uint32_t> trees_;
    bool null_arguments_ = false;
};

/** A pattern of the platform, its third word replaced; to be freed with olv_ptn_free() unless it has no key. */
[[nodiscard]] olv_ptn make_pattern(const listed_entry &entry);

} // namespace olv_test

#endif
