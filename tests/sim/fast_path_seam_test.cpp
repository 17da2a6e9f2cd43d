// What a fast path that cannot look into the platform gets: memory of its own for state, and news of changes.
#include "olv_sim/fast_path_seam.hpp"

#include <array>
#include <deque>
#include <map>
#include <stdexcept>
#include <thread>

#include <sys/mman.h>

#include "olv_sim/calls.hpp"
#include "olv_sim/faults.hpp"
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

/** Zeros that a fast path shares with somebody else; pages come when they are touched. */
class sparse_words {
  public:
    explicit sparse_words(std::size_t count) : bytes_(count * sizeof(std::uint32_t))
    {
        memory_ =
            mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    }
    ~sparse_words() { munmap(memory_, bytes_); }
    sparse_words(const sparse_words &) = delete;
    sparse_words &operator=(const sparse_words &) = delete;

    [[nodiscard]] bool are_there() const { return memory_ != MAP_FAILED; }
    [[nodiscard]] state_words words() const
    {
        return {static_cast<std::atomic<std::uint32_t> *>(memory_), bytes_ / sizeof(std::uint32_t)};
    }

  private:
    std::size_t bytes_;
    void *memory_;
};

// --------------------------------------------------------------------------------------------------------
// State in memory that is provided
// --------------------------------------------------------------------------------------------------------

using provided_memory = sim_test;

constexpr std::size_t stride = 16;

TEST_F(provided_memory, calls_and_fast_path_meet_in_it)
{
    const sparse_words entries{stride * 100};
    const sparse_words counters{32};
    const olv_sim::processor own{
        classifier_program::twamp(100),
        {.entries = {{"twamp_responder", entries.words(), stride}}, .global_statistics = counters.words()}};
    std::array<std::uint32_t, 15> state{};
    for (std::uint32_t index = 0; index < state.size(); ++index) {
        state[index] = 0x01000000 + index;
    }
    ASSERT_EQ(hyx_se_state_set(own.rte_handle(), 3, 0, state.data(), 60), 0u);
    for (std::uint32_t index = 0; index < entries.words().size(); ++index) {
        const bool written = index >= 2 * stride && index < 2 * stride + 15;
        ASSERT_EQ(entries.words()[index], written ? 0x01000000 + index - 2 * stride : 0) << index;
    }
    EXPECT_EQ(own.state(3).data(), &entries.words()[2 * stride]);
    EXPECT_EQ(own.state(3).size(), 15u);

    entries.words()[2 * stride + 8] += 5; // as a fast path counts
    counters.words()[31] = 7;
    std::uint32_t read[32] = {};
    EXPECT_EQ(hyx_se_state_get(own.rte_handle(), 3, 0, read, 60), 0u);
    EXPECT_EQ(read[8], 0x01000000u + 8 + 5);
    EXPECT_EQ(hyx_se_state_get(own.rte_handle(), 0x7008C1, 0, read, 128), 0u);
    EXPECT_EQ(read[31], 7u);
    EXPECT_EQ(hyx_se_state_get(own.rte_handle(), 101, 0, read, 60), 0x10Du);
}

TEST_F(provided_memory, sixteen_million_entries_can_be_sparse)
{
    constexpr std::uint32_t last = 0xFFFFFF;
    classifier_program program = classifier_program::twamp();
    ASSERT_EQ(program.namespaces[0].values(), last); // the value of the global statistics among them
    const sparse_words entries{std::size_t{last} * stride};
    ASSERT_TRUE(entries.are_there());
    const olv_sim::processor own{program, {.entries = {{"twamp_responder", entries.words(), stride}}}};
    EXPECT_LT(own.memory_bytes(), 1u << 20);
    for (const std::uint32_t id : {1u, 0x7008C0u, 0x7008C2u, last}) {
        ASSERT_EQ(hyx_se_state_set(own.rte_handle(), id, 0, &id, 4), 0u);
        EXPECT_EQ(entries.words()[(id - 1) * stride], id);
    }
    EXPECT_EQ(entries.words()[0x7008C0 * stride], 0u); // of the value that is left out
}

TEST_F(provided_memory, has_to_fit)
{
    const sparse_words memory{stride * 100};
    const state_words words = memory.words();
    const struct {
        const char *label;
        provided_state provided;
        bool fits;
    } rows[] = {
        {"the last entry may end early",
         {.entries = {{"twamp_responder", words.first(stride * 99 + 15), stride}}},
         true},
        {"one entry beside the other", {.entries = {{"twamp_responder", words.first(1500), 15}}}, true},
        {"more than enough", {.entries = {}, .global_statistics = words}, true},
        {"a word too few", {.entries = {{"twamp_responder", words.first(stride * 99 + 14), stride}}}, false},
        {"no words", {.entries = {{"twamp_responder", {}, stride}}}, false},
        {"entries that overlap", {.entries = {{"twamp_responder", words, 14}}}, false},
        {"no stride", {.entries = {{"twamp_responder", words, 0}}}, false},
        {"no such namespace", {.entries = {{"nothing", words, stride}}}, false},
        {"a namespace without state", {.entries = {{"twamp_reflector_session", words, stride}}}, false},
        {"twice", {.entries = {{"twamp_responder", words, stride}, {"twamp_responder", words, stride}}}, false},
        {"counters a word too few", {.entries = {}, .global_statistics = words.first(31)}, false},
    };
    for (const auto &row : rows) {
        const auto make = [&] { const olv_sim::processor own{classifier_program::twamp(100), row.provided}; };
        if (row.fits) {
            EXPECT_NO_THROW(make()) << row.label;
        } else {
            EXPECT_THROW(make(), std::invalid_argument) << row.label;
        }
    }
}

// --------------------------------------------------------------------------------------------------------
// News of changes
// --------------------------------------------------------------------------------------------------------

/** Entries by tree and key, as a second fast path keeps them; counts what does not follow from what was. */
class mirror : public processor_observer {
  public:
    using entries = std::map<std::pair<std::uint32_t, tree_key>, std::array<std::uint32_t, 3>>;

    void learnt(const classifier_tree &tree, const tree_key &key, const tree_action &action) noexcept override
    {
        const std::array<std::uint32_t, 3> words{action.word[0], action.word[1], action.word[2]};
        contradictions_ += entries_.emplace(std::pair{tree.id(), key}, words).second ? 0 : 1;
        ++changes_;
    }
    void unlearnt(const classifier_tree &tree, const tree_key &key) noexcept override
    {
        contradictions_ += entries_.erase({tree.id(), key}) == 1 ? 0 : 1;
        ++changes_;
    }
    void state_written(std::uint32_t namespace_id, std::uint32_t index, state_words words) noexcept override
    {
        written_.push_back({namespace_id, index, words[0], static_cast<std::uint32_t>(words.size())});
    }

    [[nodiscard]] const entries &all() const { return entries_; }
    [[nodiscard]] std::uint32_t changes() const { return changes_; }
    [[nodiscard]] std::uint32_t contradictions() const { return contradictions_; }
    /** Namespace ID, index, first word, number of words. */
    [[nodiscard]] const std::vector<std::array<std::uint32_t, 4>> &written() const { return written_; }

  private:
    entries entries_;
    std::atomic<std::uint32_t> changes_{0};
    std::uint32_t contradictions_ = 0;
    std::vector<std::array<std::uint32_t, 4>> written_;
};

class observed_processor : public sim_test {
  protected:
    ~observed_processor() override { processor.set_observer(nullptr); }

    /** Both trees as hyx_ptn_list_ptns() lists them. */
    [[nodiscard]] mirror::entries listed() const
    {
        struct listing {
            mirror::entries entries;
            std::uint32_t tree = 0;
        } all;
        const auto add = [](void *context, void *, const olv_ptn *pattern, const olv_ptn_action *action) {
            auto *into = static_cast<listing *>(context);
            tree_key key{.bits = pattern->word[1]};
            const auto width = static_cast<std::uint16_t>(key.bits);
            EXPECT_EQ(olv_ptn_parse(pattern, width == 0 ? 0 : 1, &width, &key.value), 0u);
            into->entries[{into->tree, key}] = {action->word[0], action->word[1], action->word[2]};
        };
        for (all.tree = responder_tree; all.tree <= bind_tree; ++all.tree) {
            EXPECT_EQ(hyx_ptn_list_ptns(rte, all.tree, add, &all), 0u);
        }
        return all.entries;
    }

    mirror seen;
};

TEST_F(observed_processor, tells_of_each_change_before_its_call_returns)
{
    processor.set_observer(&seen);
    EXPECT_EQ(seen.changes(), 0u);
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    EXPECT_EQ(seen.all(), (mirror::entries{{{0x104, {24, 5}}, {1, 2, 3}}}));
    ASSERT_EQ(learn(bind_tree, 0, {{4, 5, 6}}, 0), 0u);
    ASSERT_EQ(learn(bind_tree, 7, {{7, 8, 9}}, 16), 0u);
    EXPECT_EQ(seen.all(),
              (mirror::entries{
                  {{0x104, {24, 5}}, {1, 2, 3}}, {{0x105, {0, 0}}, {4, 5, 6}}, {{0x105, {16, 7}}, {7, 8, 9}}}));
    ASSERT_EQ(unlearn(responder_tree, 5), 0u);
    ASSERT_EQ(unlearn(bind_tree, 0, 0), 0u);
    EXPECT_EQ(seen.all(), (mirror::entries{{{0x105, {16, 7}}, {7, 8, 9}}}));
    EXPECT_EQ(seen.contradictions(), 0u);

    const std::uint32_t words[15] = {0x11223344};
    ASSERT_EQ(hyx_se_state_set(rte, 9, 0, words, 60), 0u);
    ASSERT_EQ(hyx_se_state_set(rte, 0x7008C1, 0, words, 4), 0u);
    EXPECT_EQ(seen.written(), (std::vector<std::array<std::uint32_t, 4>>{{9, 0, 0x11223344, 15},
                                                                         {0x7008C1, 0, 0x11223344, 32}}));
}

TEST_F(observed_processor, tells_nothing_of_what_was_refused)
{
    processor.set_observer(&seen);
    ASSERT_EQ(learn(responder_tree, 5, {{1, 2, 3}}), 0u);
    ASSERT_EQ(seen.changes(), 1u);
    std::uint32_t word = 0;
    EXPECT_EQ(learn(responder_tree, 5, {{9, 9, 9}}), 0x10Bu);
    EXPECT_EQ(unlearn(responder_tree, 6), 0x10Cu);
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, &word, 61), 0x10Eu);
    faults::set_any({.skip = 2, .count = 1}); // after the two calls that make the pattern
    EXPECT_EQ(learn(responder_tree, 6, {{9, 9, 9}}), 0x1FFu);
    faults::set_any({.count = 1});
    EXPECT_EQ(hyx_se_state_set(rte, 1, 0, &word, 4), 0x1FFu);
    EXPECT_EQ(hyx_se_state_get(rte, 1, 0, &word, 4), 0u);
    EXPECT_EQ(seen.changes(), 1u);
    EXPECT_TRUE(seen.written().empty());
}

TEST_F(observed_processor, tells_first_of_what_is_there)
{
    const sparse_words memory{stride * 100};
    olv_sim::processor provided{classifier_program::twamp(100),
                                {.entries = {{"twamp_responder", memory.words(), stride}}}};
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
    EXPECT_EQ(seen.all(), listed());
    EXPECT_EQ(seen.all().size(), 3u);
    using writes = std::vector<std::array<std::uint32_t, 4>>;
    EXPECT_EQ(seen.written(), (writes{{90, 0, 5, 15}, {0xFFFFFF, 0, 5, 15}, {0x7008C1, 0, 5, 32}}));
    mirror of_provided;
    provided.set_observer(&of_provided);
    EXPECT_EQ(of_provided.written(), (writes{{0x7008C1, 0, 5, 32}})); // the memory itself has the rest

    mirror next;
    processor.set_observer(&next);
    EXPECT_EQ(next.all(), seen.all());
    ASSERT_EQ(unlearn(bind_tree, 0xFFFFFF), 0u);
    EXPECT_EQ(next.all().size(), 2u);
    EXPECT_EQ(seen.all().size(), 3u);
    processor.set_observer(nullptr);
    ASSERT_EQ(unlearn(responder_tree, 0, 0), 0u);
    EXPECT_EQ(next.all().size(), 2u);
}

/** Learns and unlearns in both trees, with keys and without, until told to end; some entries stay. */
void change_trees(std::uint32_t rte, std::uint32_t number, const std::atomic<bool> &end)
{
    for (std::uint32_t round = number; !end; round += 7) {
        const std::uint32_t tree = 0x104 + round % 2;
        const std::uint32_t bits = round % 5 == 0 ? 0 : 24;
        olv_ptn pattern{};
        EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
        if (bits != 0) {
            EXPECT_EQ(olv_ptn_extend(&pattern, round % 64, bits), 0u);
        }
        olv_ptn_action action{{round, number, 0}};
        if (hyx_ptn_learn(rte, tree, &pattern, &action) != 0) { // another thread's, or of an earlier round
            (void)hyx_ptn_unlearn(rte, tree, &pattern, bits, &action, 1);
        }
        olv_ptn_free(pattern);
    }
}

TEST_F(observed_processor, a_mirror_of_both_trees_follows_threads)
{
    std::atomic<bool> end{false};
    std::vector<std::thread> threads;
    for (std::uint32_t number = 0; number < 3; ++number) {
        threads.emplace_back([this, number, &end] { change_trees(rte, number, end); });
    }
    const deadline patience;
    std::deque<mirror> mirrors(3);
    for (mirror &each : mirrors) {
        processor.set_observer(&each);
        while (each.changes() < 10000 && !patience.over()) {
            std::this_thread::yield();
        }
    }
    end = true;
    for (std::thread &each : threads) {
        each.join();
    }
    EXPECT_EQ(mirrors.back().all(), listed());
    for (const mirror &each : mirrors) {
        EXPECT_EQ(each.contradictions(), 0u);
        EXPECT_GE(each.changes(), 10000u);
    }
}

} // namespace
