// Lookups and listings beside changes. They go on until they have seen what they look for.
#include "sim_fixture.hpp"

namespace {

using namespace olv_sim;

/** An entry's action tells its key and its round, in words that belong together. */
class tree_concurrency : public sim_test {
  protected:
    static constexpr std::uint32_t keys = 4;

    /** The first key is none. */
    static std::uint32_t width_of(std::uint32_t key) { return key == 0 ? 0 : 24; }
    static std::uint32_t value_of(std::uint32_t key) { return key * 0x10001; }
    static bool is_whole(const words &action, std::uint32_t key)
    {
        return action[0] % keys == key && action[1] == action[0] + 1 && action[2] == ~action[0];
    }

    /** Learn and unlearn every second key from the first on, over and over, until the end. */
    void churn(std::uint32_t first)
    {
        for (std::uint32_t round = 0; !end_; ++round) {
            for (std::uint32_t key = first; key < keys; key += 2) {
                const std::uint32_t value = round * keys + key;
                EXPECT_EQ(learn(responder_tree, value_of(key), {{value, value + 1, ~value}}, width_of(key)),
                          0u);
                EXPECT_EQ(unlearn(responder_tree, value_of(key), width_of(key)), 0u);
            }
        }
    }

    /** Look each key up until it was there and was not there so often. */
    void look_up_all()
    {
        for (std::uint32_t key = 0; key < keys; ++key) {
            for (int found = 0, absent = 0; found < 30000 || absent < 30000;) {
                const words action = look_up(value_of(key));
                // What is not there leads to the entry without a key.
                ASSERT_TRUE(action.empty() || is_whole(action, key) || is_whole(action, 0)) << key;
                ++(!action.empty() && is_whole(action, key) ? found : absent);
                ASSERT_FALSE(patience_.over()) << key << ": found " << found << ", absent " << absent;
            }
        }
    }

    std::atomic<bool> end_{false};
    deadline patience_;
};

TEST_F(tree_concurrency, lookups_see_whole_entries_or_none)
{
    in_threads(3, [this](std::uint32_t number) {
        if (number < 2) {
            return churn(number);
        }
        look_up_all();
        end_ = true;
    });
    EXPECT_EQ(list(responder_tree), shown_entries{});
}

TEST_F(tree_concurrency, listings_show_what_stays_once_and_what_changes_whole)
{
    ASSERT_EQ(learn(responder_tree, 0xFFFFFF, {{7, 7, 7}}), 0u);
    in_threads(2, [this](std::uint32_t number) {
        if (number == 0) {
            return churn(1);
        }
        for (int with = 0, without = 0; (with < 50 || without < 50) && !patience_.over();) {
            shown_entries shown = list(responder_tree);
            EXPECT_EQ(shown.back(), (words{24, 0xFFFFFF, 0, 7, 7, 7}));
            shown.pop_back();
            for (const words &each : shown) {
                EXPECT_TRUE(is_whole({each.begin() + 3, each.end()}, each[1] / 0x10001));
            }
            ++(shown.empty() ? without : with);
        }
        end_ = true;
    });
    EXPECT_FALSE(patience_.over());
}

} // namespace
