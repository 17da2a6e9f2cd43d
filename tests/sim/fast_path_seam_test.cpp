// What a fast path that cannot look into the platform gets: memory of its own for state, and news of changes.
#include "olv_sim/fast_path_seam.hpp"

#include <deque>
#include <map>
#include <stdexcept>

#include <sys/mman.h>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

constexpr std::size_t stride = 16;

/** Zeros, as memory that a fast path shares with somebody else begins. */
using word_memory = std::vector<std::atomic<std::uint32_t>>;

provided_state for_responders(state_words words, std::size_t words_of_stride = stride)
{
    return {.entries = {{"twamp_responder", words, words_of_stride}}};
}

using provided_memory = sim_test;

TEST_F(provided_memory, calls_and_fast_path_meet_in_it)
{
    word_memory entries(stride * 100);
    word_memory counters(32);
    provided_state provided = for_responders(entries);
    provided.global_statistics = counters;
    const olv_sim::processor own{classifier_program::twamp(100), provided};
    words state(32, 0x01020304);
    ASSERT_EQ(hyx_se_state_set(own.rte_handle(), 3, 0, state.data(), 60), 0u);
    for (std::size_t index = 0; index < entries.size(); ++index) {
        const bool written = index >= 2 * stride && index < 2 * stride + 15;
        ASSERT_EQ(entries[index], written ? 0x01020304 : 0) << index;
    }
    EXPECT_EQ(own.state(3).data(), &entries[2 * stride]);
    EXPECT_EQ(own.state(3).size(), 15u);

    entries[2 * stride + 8] += 5; // as a fast path counts
    counters[31] = 7;
    EXPECT_EQ(hyx_se_state_get(own.rte_handle(), 3, 0, state.data(), 60), 0u);
    EXPECT_EQ(state[8], 0x01020304u + 5);
    EXPECT_EQ(hyx_se_state_get(own.rte_handle(), 0x7008C1, 0, state.data(), 128), 0u);
    EXPECT_EQ(state[31], 7u);
    EXPECT_EQ(hyx_se_state_get(own.rte_handle(), 101, 0, state.data(), 60), 0x10Du);
}

TEST_F(provided_memory, sixteen_million_entries_can_be_sparse)
{
    constexpr std::uint32_t last = 0xFFFFFF;
    const classifier_program program = classifier_program::twamp();
    ASSERT_EQ(program.namespaces[0].values(), last); // the value of the global statistics among them
    constexpr std::size_t bytes = std::size_t{last} * stride * 4;
    void *pages =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    const state_words sparse{static_cast<std::atomic<std::uint32_t> *>(pages), bytes / 4};
    {
        const olv_sim::processor own{program, for_responders(sparse)};
        EXPECT_LT(own.memory_bytes(), 1u << 20);
        for (const std::uint32_t id : {1u, 0x7008C0u, 0x7008C2u, last}) {
            ASSERT_EQ(hyx_se_state_set(own.rte_handle(), id, 0, &id, 4), 0u);
            EXPECT_EQ(sparse[(id - 1) * stride], id);
        }
        EXPECT_EQ(sparse[0x7008C0 * stride], 0u); // of the value that is left out
    }
    munmap(pages, bytes);
}

TEST_F(provided_memory, has_to_fit)
{
    word_memory memory(stride * 100);
    const state_words all{memory};
    const provided_entries entries{"twamp_responder", all, stride};
    const struct {
        const char *label;
        provided_state provided;
        bool fits;
    } rows[] = {
        {"last entry without a whole stride", for_responders(all.first(stride * 99 + 15)), true},
        {"a word too few", for_responders(all.first(stride * 99 + 14)), false},
        {"no words", for_responders({}), false},
        {"one entry right after the other", for_responders(all.first(1500), 15), true},
        {"entries that overlap", for_responders(all, 14), false},
        {"no stride", for_responders(all, 0), false},
        {"no such namespace", {.entries = {{"nothing", all, stride}}}, false},
        {"a namespace without state", {.entries = {{"twamp_reflector_session", all, stride}}}, false},
        {"twice", {.entries = {entries, entries}}, false},
        {"more counters than needed", {.global_statistics = all}, true},
        {"a counter too few", {.global_statistics = all.first(31)}, false},
    };
    for (const auto &row : rows) {
        bool fits = true;
        try {
            const olv_sim::processor own{classifier_program::twamp(100), row.provided};
        } catch (const std::invalid_argument &) {
            fits = false;
        }
        EXPECT_EQ(fits, row.fits) << row.label;
    }
}

/** Entries of each tree, as a second fast path keeps them; counts what does not follow from what was. */
struct mirror : processor_observer {
    void learnt(const classifier_tree &tree, const tree_key &key, const tree_action &action) noexcept override
    {
        const bool is_new = trees[tree.id()].emplace(key, action).second;
        contradictions += is_new ? 0 : 1;
        ++changes;
    }
    void unlearnt(const classifier_tree &tree, const tree_key &key) noexcept override
    {
        contradictions += trees[tree.id()].erase(key) == 1 ? 0 : 1;
        ++changes;
    }
    void state_written(std::uint32_t namespace_id, std::uint32_t index, state_words entry) noexcept override
    {
        written.push_back({namespace_id, index, entry[0], static_cast<std::uint32_t>(entry.size())});
    }

    /** As a listing shows them, by width and key. */
    [[nodiscard]] shown_entries entries(std::uint32_t tree)
    {
        shown_entries all;
        for (const auto &[key, action] : trees[tree]) {
            all.push_back({key.bits, key.value, 0, action.word[0], action.word[1], action.word[2]});
        }
        return all;
    }

    std::map<std::uint32_t, std::map<tree_key, tree_action>> trees;
    std::atomic<std::uint32_t> changes{0};
    std::uint32_t contradictions = 0;
    std::vector<words> written; ///< Namespace ID, index, first word, number of words.
};

class observed_processor : public sim_test {
  protected:
    ~observed_processor() override { processor.set_observer(nullptr); }

    mirror seen;
};

TEST_F(observed_processor, tells_of_each_change_before_its_call_returns)
{
    processor.set_observer(&seen);
    EXPECT_EQ(seen.changes, 0u);
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    EXPECT_EQ(seen.entries(responder_tree), (shown_entries{{24, 5, 0, 1, 2, 3}}));
    ASSERT_EQ(learn(bind_tree, 0, {{4, 5, 6}}, 0), 0u);
    ASSERT_EQ(learn(bind_tree, 7, {{7, 8, 9}}, 16), 0u);
    EXPECT_EQ(seen.entries(bind_tree), (shown_entries{{0, 0, 0, 4, 5, 6}, {16, 7, 0, 7, 8, 9}}));
    ASSERT_EQ(unlearn(responder_tree, 5), 0u);
    ASSERT_EQ(unlearn(bind_tree, 0, 0), 0u);
    EXPECT_EQ(seen.entries(responder_tree), shown_entries{});
    EXPECT_EQ(seen.entries(bind_tree), (shown_entries{{16, 7, 0, 7, 8, 9}}));
    EXPECT_EQ(seen.contradictions, 0u);

    const std::uint32_t state[15] = {0x11223344};
    ASSERT_EQ(hyx_se_state_set(rte, 9, 0, state, 60), 0u);
    ASSERT_EQ(hyx_se_state_set(rte, 0x7008C1, 0, state, 4), 0u);
    EXPECT_EQ(seen.written, (std::vector<words>{{9, 0, 0x11223344, 15}, {0x7008C1, 0, 0x11223344, 32}}));
}

TEST_F(observed_processor, tells_nothing_of_what_was_refused)
{
    processor.set_observer(&seen);
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    const std::uint32_t word = 0;
    EXPECT_EQ(learn(responder_tree, 5, {{9, 9, 9}}), 0x10Bu);
    EXPECT_EQ(unlearn(responder_tree, 6), 0x10Cu);
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, &word, 61), 0x10Eu);
    for (const call fails : {call::hyx_ptn_learn, call::hyx_ptn_unlearn, call::hyx_se_state_set}) {
        ASSERT_TRUE(faults::set(fails, {}));
    }
    EXPECT_EQ((words{learn(responder_tree, 6, {{9, 9, 9}}), unlearn(responder_tree, 5),
                     hyx_se_state_set(rte, 1, 0, &word, 4)}),
              words(3, 0x1FF));
    EXPECT_EQ(seen.changes, 1u);
    EXPECT_EQ(seen.written, std::vector<words>{});
}

TEST_F(observed_processor, tells_first_of_what_is_there)
{
    word_memory entries(stride * 100);
    olv_sim::processor provided{classifier_program::twamp(100), for_responders(entries)};
    ASSERT_EQ(learn(bind_tree, 0xFFFFFF, {{1, 2, 3}}), 0u);
    ASSERT_EQ(learn(responder_tree, 0, {{4, 5, 6}}, 0), 0u);
    ASSERT_EQ(learn(responder_tree, 1, {{7, 8, 9}}, 32), 0u);
    const std::uint32_t word = 5;
    const std::uint32_t zero = 0;
    for (const std::uint32_t handle : {rte, provided.rte_handle()}) {
        ASSERT_EQ(hyx_se_state_set(handle, 90, 0, &word, 4), 0u);
        ASSERT_EQ(hyx_se_state_set(handle, 91, 0, &zero, 4), 0u);
        ASSERT_EQ(hyx_se_state_set(handle, 0x7008C1, 0, &word, 4), 0u);
    }
    ASSERT_EQ(hyx_se_state_set(rte, 0xFFFFFF, 0, &word, 4), 0u);

    processor.set_observer(&seen);
    EXPECT_EQ(seen.entries(responder_tree), (shown_entries{{0, 0, 0, 4, 5, 6}, {32, 1, 0, 7, 8, 9}}));
    EXPECT_EQ(seen.entries(bind_tree), (shown_entries{{24, 0xFFFFFF, 0, 1, 2, 3}}));
    EXPECT_EQ(seen.written, (std::vector<words>{{90, 0, 5, 15}, {0xFFFFFF, 0, 5, 15}, {0x7008C1, 0, 5, 32}}));
    mirror of_provided;
    provided.set_observer(&of_provided);
    ASSERT_EQ(hyx_se_state_set(provided.rte_handle(), 91, 0, &word, 4), 0u);
    EXPECT_EQ(of_provided.written, (std::vector<words>{{0x7008C1, 0, 5, 32}, {91, 0, 5, 15}})); // not of 90

    mirror next; // in the place of the one before
    processor.set_observer(&next);
    ASSERT_EQ(unlearn(bind_tree, 0xFFFFFF), 0u);
    processor.set_observer(nullptr);
    ASSERT_EQ(unlearn(responder_tree, 0, 0), 0u);
    EXPECT_EQ(seen.changes, 3u);
    EXPECT_EQ(next.changes, 4u);
    EXPECT_EQ(next.entries(responder_tree), seen.entries(responder_tree));
}

TEST_F(observed_processor, a_mirror_of_both_treesfollows_threads)
{
    std::deque<mirror> mirrors(3);
    std::atomic<bool> end{false};
    const deadline patience;
    in_threads(4, [&](std::uint32_t number) {
        if (number == 3) { // one after the other, beside the changes
            for (mirror &each : mirrors) {
                processor.set_observer(&each);
                while (each.changes < 10000 && !patience.over()) {
                    std::this_thread::yield();
                }
            }
            end = true;
        }
        for (std::uint32_t round = number; !end; round += 7) {
            const std::uint32_t tree = responder_tree + round % 2;
            const std::uint32_t width = round % 5 == 0 ? 0 : 24;
            if (learn(tree, round % 64, {{round, number, 0}}, width) != 0) { // it is there, from whomever
                (void)unlearn(tree, round % 64, width);
            }
        }
    });
    EXPECT_EQ(mirrors.back().entries(responder_tree), list(responder_tree));
    EXPECT_EQ(mirrors.back().entries(bind_tree), list(bind_tree));
    for (mirror &each : mirrors) {
        EXPECT_EQ(each.contradictions, 0u);
        EXPECT_GE(each.changes, 10000u);
    }
}

} // namespace
