// A responder's maximum of sessions: written where packets are counted, without losing a count.

#include <cstring>
#include <ctime>
#include <filesystem>

#include <sys/resource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/site/site.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/fast_path_seam.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/process.hpp"

namespace twampctl {
namespace {

std::ptrdiff_t threads()
{
    using std::filesystem::directory_iterator;
    return std::distance(directory_iterator("/proc/self/task"), directory_iterator{});
}

/** Notes, whenever state is written, the bytes and how many threads there are then. */
class write_watcher : public olv_sim::processor_observer {
  public:
    struct write {
        std::array<std::uint8_t, 60> bytes{};
        std::ptrdiff_t threads = 0;
    };

    void learnt(const olv_sim::classifier_tree &, const olv_sim::tree_key &,
                const olv_sim::tree_action &) noexcept override
    {}
    void unlearnt(const olv_sim::classifier_tree &, const olv_sim::tree_key &) noexcept override {}
    void state_written(std::uint32_t id, std::uint32_t, olv_sim::state_words words) noexcept override
    {
        if (id == 1) {
            write &noted = writes_.emplace_back();
            for (std::size_t index = 0; index < words.size(); ++index) {
                const std::uint32_t word = words[index].load();
                std::memcpy(&noted.bytes[4 * index], &word, 4);
            }
            noted.threads = threads();
        }
    }
    [[nodiscard]] const std::vector<write> &writes() const { return writes_; }

  private:
    std::vector<write> writes_;
};

/** A site whose packets are answered by one thread. */
class Site : public testing::Test {
  protected:
    Site()
    {
        say_to(nullptr);
        place_.initialise();
        place_.processor().set_observer(&watcher_);
    }
    ~Site() override
    {
        place_.processor().set_observer(nullptr);
        (void)place_.tear_down();
        olv_sim::reset_process();
        say_to(stdout);
    }

    void listen_for(std::uint32_t responder_id)
    {
        (void)place_.listen(olv_net::parse_socket_address("127.0.0.1:0"),
                            {.responder_id = responder_id, .bind_key = 4});
        place_.start();
        ASSERT_EQ(threads(), threads_before_ + 1);
    }

    const std::ptrdiff_t threads_before_ = threads();
    site place_{{.program = olv_sim::classifier_program::twamp(8), .fast_path = {}}};
    write_watcher watcher_;
};

TEST_F(Site, MaximumOfSessionsIsAllThatChangesInTheEntry)
{
    (void)place_.create_responder({.name = "west", .info = {0x1234, 5}, .sessions = 7});
    ASSERT_EQ(watcher_.writes().size(), 2u);
    std::array<std::uint8_t, 60> expected = watcher_.writes()[0].bytes;
    EXPECT_EQ(expected[0], 0x12);
    const std::uint32_t usual = 32;
    EXPECT_EQ(std::memcmp(&expected[52], &usual, 4), 0);
    const std::uint32_t maximum = 7; // in the byte order of the host
    std::memcpy(&expected[52], &maximum, 4);
    EXPECT_EQ(watcher_.writes()[1].bytes, expected);
}

TEST_F(Site, NobodyCountsWhileTheMaximumIsWritten)
{
    listen_for(1);
    (void)place_.create_responder({.name = "west", .info = {}, .sessions = 7});
    ASSERT_EQ(watcher_.writes().size(), 2u);
    EXPECT_EQ(watcher_.writes()[0].threads, threads_before_ + 1);
    EXPECT_EQ(watcher_.writes()[1].threads, threads_before_);
    EXPECT_EQ(threads(), threads_before_ + 1);
}

TEST_F(Site, SaysWhyPacketsAreNotAnswered)
{
    EXPECT_EQ(place_.reason_against_answering(), "nothing listens");
    listen_for(1);
    EXPECT_EQ(place_.reason_against_answering(), "");
    place_.stop();
    EXPECT_EQ(place_.reason_against_answering(), "the listeners are stopped");
    place_.shut_down();
    EXPECT_EQ(place_.reason_against_answering(), "the module is not up");
}

TEST_F(Site, PacketsOfOthersAreAnsweredMeanwhile)
{
    listen_for(2);
    (void)place_.create_responder({.name = "west", .info = {}, .sessions = 7});
    ASSERT_EQ(watcher_.writes().size(), 2u);
    EXPECT_EQ(watcher_.writes()[1].threads, threads_before_ + 1);
}

TEST_F(Site, ResponderWhoseMaximumCannotBeWrittenIsDeleted)
{
    listen_for(1);
    const struct {
        olv_sim::call fails;
        std::uint32_t skip;
    } rows[] = {{olv_sim::call::hyx_se_state_get, 0}, {olv_sim::call::hyx_se_state_set, 1}};
    for (const auto &row : rows) {
        olv_sim::faults::set(row.fails, {.code = 0x10D, .skip = row.skip});
        try {
            (void)place_.create_responder({.name = "west", .info = {}, .sessions = 7});
            ADD_FAILURE() << olv_sim::call_name(row.fails) << " failed unnoticed";
        } catch (const step_failure &failure) {
            EXPECT_STREQ(failure.what(),
                         "cannot create responder west: its maximum of sessions cannot be written: "
                         "No such state entry");
        }
        EXPECT_EQ(olv_sim::faults::hits(row.fails), 1u);
        EXPECT_TRUE(place_.responders().empty());
        const platform_usage left = place_.usage();
        EXPECT_EQ(left.responder_ids, 0u);
        EXPECT_EQ(left.responder_entries, 0u);
        EXPECT_EQ(left.blocks, 1u) << "the module's context";
        EXPECT_EQ(threads(), threads_before_ + 1) << "packets are answered again";
    }
    EXPECT_EQ(place_.create_responder({.name = "west", .info = {}, .sessions = 7}).name, "west");
}

TEST_F(Site, ResponderThatCannotBeDeletedEitherStays)
{
    olv_sim::faults::set(olv_sim::call::hyx_se_state_get, {});
    olv_sim::faults::set(olv_sim::call::hyx_ptn_unlearn, {});
    try {
        (void)place_.create_responder({.name = "west", .info = {}, .sessions = 7});
        ADD_FAILURE() << "the faults went unnoticed";
    } catch (const step_failure &failure) {
        EXPECT_STREQ(
            failure.what(),
            "cannot create responder west: its maximum of sessions cannot be written: Injected fault; cannot "
            "delete responder west: status 0x30040 TWAMP_STATUS_LEARN_FAILED: TWAMP: entry could not be "
            "learnt or removed");
    }
    EXPECT_EQ(place_.responders().size(), 1u);
    place_.delete_responder("west");
}

/** Seconds that the processor takes for so many listeners, from the first one's opening to the last one's end.
 */
double seconds_for_listeners(int count)
{
    site_options options;
    options.program = olv_sim::classifier_program::twamp(8);
    site place{options};
    place.initialise();
    const auto begun = std::clock();
    std::vector<std::string> addresses;
    for (int number = 0; number < count; ++number) {
        const std::string host =
            "127.1." + std::to_string(number / 200) + '.' + std::to_string(number % 200 + 1);
        addresses.push_back(place.listen(olv_net::parse_socket_address(host + ":0"), {1, 5}));
    }
    for (const std::string &address : addresses)
        EXPECT_EQ(place.counters_of(address).received_packets, 0u);
    EXPECT_EQ(place.collect().listeners.size(), addresses.size());
    EXPECT_TRUE(place.tear_down());
    return static_cast<double>(std::clock() - begun) / CLOCKS_PER_SEC;
}

TEST(SiteOfManyListeners, TakesTimeInProportionToThem)
{
    rlimit descriptors{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &descriptors), 0);
    const rlimit raised{.rlim_cur = descriptors.rlim_max, .rlim_max = descriptors.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &raised), 0);
    say_to(nullptr);
    const double few = seconds_for_listeners(400);
    const double many = seconds_for_listeners(3200);
    say_to(stdout);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &descriptors), 0);
    EXPECT_LT(many / few, 20) << few << " s and " << many
                              << " s; 64 times as much where each looks at all others";
}

} // namespace
} // namespace twampctl
