/**
 * @file entry_steps.hpp
 * Steps of the operations that change a classifier tree: an entry's pattern is made and given its key, the
 * entry is learnt or removed, which is told, and the pattern is freed.
 */
#ifndef OLV_TWAMP_TESTS_ENTRY_STEPS_HPP
#define OLV_TWAMP_TESTS_ENTRY_STEPS_HPP

#include "story.hpp"

namespace olv_test {

/** An entry as an operation learns or removes it. */
struct entry {
    const char *tree;
    std::uint32_t tree_id;
    std::uint32_t value; ///< Of which the low 24 bits are the key.
    std::uint32_t action_0;
    std::uint32_t action_1;
    const char *file;
    bool line_with_place; ///< Whether its line names the file.
    std::size_t remains::*counted;

    [[nodiscard]] std::string key() const;
    [[nodiscard]] std::string action() const;
};

[[nodiscard]] entry responder_entry(std::uint32_t id);
[[nodiscard]] entry bind_entry(std::uint32_t key, std::uint32_t entry_point);

/** What is said where a step fails, and the rest of the story then, once the pattern is freed. */
[[nodiscard]] story makes_key(const entry &of, const story &no_pattern, const story &no_key, const story &rest);
[[nodiscard]] story frees_pattern(const entry &of);

/** Likewise. */
[[nodiscard]] story learns(const bench &b, const entry &of, const story &refused, const story &rest);
[[nodiscard]] story removes(const bench &b, const entry &of, const story &refused, const story &rest);
/** The calls alone, which the platform refuses by itself. */
[[nodiscard]] story asks_to_learn(const bench &b, const entry &of);
[[nodiscard]] story asks_to_remove(const bench &b, const entry &of);

} // namespace olv_test

#endif
