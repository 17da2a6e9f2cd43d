// Control threads on one module and on several, while the fast path works: exact totals at the end.
#include <deque>
#include <memory>

#include <gtest/gtest.h>

#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_sim/violations.hpp"
#include "silence.hpp"
#include "site.hpp"

namespace olv_races {
namespace {

// ThreadSanitizer is about ten times slower than the program itself; it needs no more rounds to see a race.
#ifdef __SANITIZE_THREAD__
constexpr std::uint32_t packets = 20000;
#else
constexpr std::uint32_t packets = 200000;
#endif

/** Counts the events of each level. */
class counting_sink : public olv_sim::trace_sink {
  public:
    void event(const olv_sim::trace_event &event) override
    {
        entries_ += event.level == 8 ? 1 : 0;
        exits_ += event.level == 9 ? 1 : 0;
    }
    [[nodiscard]] std::uint32_t entries() const { return entries_; }
    [[nodiscard]] std::uint32_t exits() const { return exits_; }

  private:
    std::uint32_t entries_ = 0;
    std::uint32_t exits_ = 0;
};

/** The operations of one thread on one module: everything it makes it takes away again. */
class control {
  public:
    control(olv_sim::framework &framework, const site &place, std::size_t module, std::uint32_t key)
        : framework_(framework), place_(place), module_(place.module(module)), key_(key)
    {}

    void round(std::uint32_t number)
    {
        twamp_responder_handle *responder = create(number);
        read(responder);
        bind_and_unbind(number);
        look_around(number);
        expect_ok(olv_twamp_responder_delete(module_, responder), "delete");
        hyx_nvm_free(responder);
    }

    [[nodiscard]] std::uint32_t creations() const { return creations_; }
    [[nodiscard]] std::uint32_t operations() const { return operations_; } ///< That have entry and exit lines.
    [[nodiscard]] std::uint32_t walks() const { return walks_; }           ///< These have an entry line alone.

  private:
    void expect_ok(std::uint32_t status, const char *operation)
    {
        ++operations_;
        EXPECT_EQ(status, 0u) << operation;
    }

    twamp_responder_handle *create(std::uint32_t number)
    {
        const olv_twamp_responder_info info{static_cast<std::uint16_t>(number), 0};
        twamp_responder_handle *responder = nullptr;
        expect_ok(olv_twamp_responder_create(module_, &info, &responder), "create");
        ++creations_;
        EXPECT_NE(responder, nullptr);
        return responder;
    }

    void read(twamp_responder_handle *responder)
    {
        olv_twamp_responder_stats stats{};
        expect_ok(olv_twamp_responder_stats_get(module_, responder, &stats), "statistics");
        expect_ok(olv_twamp_responder_stats_get(module_, place_.staying(0), &stats), "statistics");
        expect_ok(olv_twamp_responder_stats_print(module_, place_.staying(1)), "print of statistics");
        olv_twamp_global_stats global{};
        expect_ok(olv_twamp_global_stats_get(module_, &global), "global statistics");
        expect_ok(olv_twamp_global_stats_print(module_), "print of global statistics");
    }

    void bind_and_unbind(std::uint32_t number)
    {
        const olv_bind_info info = olv_sim::make_bind_info(
            module_, number % 2 == 0 ? framework_.ipv4_module() : framework_.ipv6_module(), &key_);
        expect_ok(olv_twamp_custom_bind(framework_.system(), &info), "bind");
        std::uint32_t imc = 0;
        EXPECT_EQ(olv_twamp_get_imc(module_, &info, &imc), 0u);
        EXPECT_NE(imc, 0u);
        expect_ok(olv_twamp_custom_unbind(framework_.system(), &info), "unbind");
    }

    void look_around(std::uint32_t number)
    {
        constexpr std::uint32_t levels[] = {0, 1, 3, 7, 15};
        expect_ok(olv_twamp_sys_log(module_, levels[number % 5]), "log level");
        expect_ok(olv_twamp_service_function_update(module_), "service-function update");
        if (number % 8 == 0) {
            expect_ok(olv_twamp_tables_dump(module_, 3), "dump");
            ++walks_;
        }
    }

    olv_sim::framework &framework_;
    const site &place_;
    olv_module_handle *module_;
    std::uint32_t key_;
    std::uint32_t creations_ = 0;
    std::uint32_t operations_ = 0;
    std::uint32_t walks_ = 0;
};

class Races : public testing::Test {
  protected:
    ~Races() override
    {
        olv_sim::tracer::set_sink(nullptr);
        EXPECT_EQ(olv_sim::violations::list(), std::vector<std::string>{});
        EXPECT_EQ(olv_sim::memory::in_use().live_blocks, blocks_before_);
        EXPECT_EQ(olv_sim::patterns::live(), patterns_before_);
        olv_sim::reset_process();
    }

    /** Let @p threads work on each module of the sites until all packets are reflected. */
    void work(std::deque<site> &sites, std::size_t modules_on_each, std::uint32_t threads)
    {
        const olv_test::silence quiet;
        std::deque<control> controls;
        std::vector<std::thread> running;
        for (site &place : sites) {
            place.start(packets);
            std::uint32_t key = site::staying_key;
            for (std::uint32_t number = 0; number < threads; ++number) {
                for (std::size_t module = 0; module < modules_on_each; ++module) {
                    control &each = controls.emplace_back(framework_, place, module, ++key);
                    running.emplace_back([&each, &place] {
                        std::uint32_t number_of_round = 0;
                        do {
                            each.round(number_of_round++);
                        } while ((number_of_round < 2 || place.running()) && !testing::Test::HasFailure());
                    });
                }
            }
        }
        for (std::thread &each : running) {
            each.join();
        }
        for (site &place : sites) {
            place.wait();
        }
        for (const control &each : controls) {
            creations_ += each.creations();
            operations_ += each.operations();
            walks_ += each.walks();
        }
    }

    olv_sim::framework framework_;
    std::uint32_t creations_ = 0;
    std::uint32_t operations_ = 0;
    std::uint32_t walks_ = 0;

  private:
    std::size_t blocks_before_ = olv_sim::memory::in_use().live_blocks;
    std::size_t patterns_before_ = olv_sim::patterns::live();
};

/** The count that the next creation on the module stores in its state entry. */
std::uint32_t next_creation_count(const site &place, olv_module_handle *module)
{
    const olv_twamp_responder_info info{};
    twamp_responder_handle *responder = nullptr;
    EXPECT_EQ(olv_twamp_responder_create(module, &info, &responder), 0u);
    const std::uint32_t count = hyx_ntohl(place.processor().state(responder->responder_id)[2].load());
    EXPECT_EQ(olv_twamp_responder_delete(module, responder), 0u);
    hyx_nvm_free(responder);
    return count;
}

TEST_F(Races, FourControlThreadsOnOneModuleAndTheFastPath)
{
    std::deque<site> sites;
    sites.emplace_back(framework_, 1);
    work(sites, 1, 4);
    sites[0].expect_exact_totals();
    EXPECT_GT(creations_, 4u);
    // No creation was lost, none was counted twice.
    EXPECT_EQ(next_creation_count(sites[0], sites[0].module(0)), site::staying_responders + creations_ + 1);
}

TEST_F(Races, SeveralModulesOnSeveralProcessors)
{
    std::deque<site> sites;
    sites.emplace_back(framework_, 2);
    sites.emplace_back(framework_, 1);
    work(sites, 1, 2);
    for (const site &place : sites) {
        place.expect_exact_totals();
    }
}

TEST_F(Races, TwoModulesOnOneProcessor)
{
    std::deque<site> sites;
    sites.emplace_back(framework_, 2);
    work(sites, 2, 2);
    sites[0].expect_exact_totals();
}

TEST_F(Races, EveryOperationTracesItsEntryAndItsExit)
{
    counting_sink sink;
    std::deque<site> sites;
    sites.emplace_back(framework_, 1);
    olv_sim::tracer::set_sink(&sink);
    work(sites, 1, 4);
    olv_sim::tracer::set_sink(nullptr);
    EXPECT_GT(walks_, 0u);
    EXPECT_EQ(sink.entries(), operations_ + walks_);
    EXPECT_EQ(sink.exits(), operations_);
    sites[0].expect_exact_totals();
}

} // namespace
} // namespace olv_races
