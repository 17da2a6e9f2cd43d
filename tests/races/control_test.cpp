// Control threads on one module and on several, while the fast path works: exact totals at the end.
#include <deque>

#include <gtest/gtest.h>

#include "hyx.h"
#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_sim/violations.hpp"
#include "silence.hpp"
#include "site.hpp"
#include "threads.hpp"

namespace olv_races {
namespace {

// ThreadSanitizer is about ten times slower, and needs no more rounds to see a race.
#ifdef __SANITIZE_THREAD__
constexpr std::uint32_t packets = 20000;
#else
constexpr std::uint32_t packets = 200000;
#endif

/** Counts entry and exit lines. */
struct counting_sink : olv_sim::trace_sink {
    void event(const olv_sim::trace_event &event) override
    {
        entries += event.level == 8 ? 1 : 0;
        exits += event.level == 9 ? 1 : 0;
    }
    std::uint32_t entries = 0;
    std::uint32_t exits = 0;
};

struct work_done {
    std::uint32_t creations = 0;
    std::uint32_t operations = 0; ///< That have entry and exit lines.
    std::uint32_t walks = 0;      ///< These have an entry line alone.
};

/** The operations of one thread on one module: everything it makes it takes away again. */
class control {
  public:
    control(olv_sim::framework &framework, const site &place, std::size_t module, std::uint32_t key)
        : framework_(framework), place_(place), module_(place.module(module)), key_(key)
    {}

    void work_while_packets_flow()
    {
        const olv_test::deadline patience;
        std::uint32_t rounds = 0;
        do {
            round(rounds++);
        } while ((rounds < 2 || !place_.is_done()) && !testing::Test::HasFailure() && !patience.over());
        EXPECT_FALSE(patience.over());
    }

    [[nodiscard]] const work_done &done() const { return done_; }

  private:
    void round(std::uint32_t number)
    {
        twamp_responder_handle *responder = create(number);
        read(responder);
        bind_and_unbind(number);
        look_around(number);
        expect_ok(olv_twamp_responder_delete(module_, responder), "delete");
        hyx_nvm_free(responder);
    }

    void expect_ok(std::uint32_t status, const char *operation)
    {
        ++done_.operations;
        EXPECT_EQ(status, 0u) << operation;
    }

    twamp_responder_handle *create(std::uint32_t number)
    {
        const olv_twamp_responder_info info{static_cast<std::uint16_t>(number), 0};
        twamp_responder_handle *responder = nullptr;
        expect_ok(olv_twamp_responder_create(module_, &info, &responder), "create");
        ++done_.creations;
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
            ++done_.walks;
        }
    }

    olv_sim::framework &framework_;
    const site &place_;
    olv_module_handle *module_;
    std::uint32_t key_;
    work_done done_;
};

class Races : public testing::Test {
  protected:
    ~Races() override
    {
        olv_sim::tracer::set_sink(nullptr);
        sites_.clear();
        EXPECT_EQ(olv_sim::violations::list(), std::vector<std::string>{});
        EXPECT_EQ(olv_sim::memory::in_use().live_blocks, blocks_before_);
        EXPECT_EQ(olv_sim::patterns::live(), patterns_before_);
        olv_sim::reset_process();
    }

    /** Let so many threads work on each of the modules until all packets are reflected. */
    void work(std::size_t threads)
    {
        const olv_test::silence quiet;
        std::deque<control> controls;
        for (const site &place : sites_) {
            for (std::uint32_t number = 0; number < threads * place.modules(); ++number) {
                controls.emplace_back(framework_, place, number % place.modules(),
                                      site::staying_key + 1 + number);
            }
        }
        const std::size_t workers = sites_.size();
        olv_test::in_threads(static_cast<std::uint32_t>(workers + controls.size()), [&](std::uint32_t number) {
            number < workers ? sites_[number].reflect(packets)
                             : controls[number - workers].work_while_packets_flow();
        });
        for (const control &each : controls) {
            done_.creations += each.done().creations;
            done_.operations += each.done().operations;
            done_.walks += each.done().walks;
        }
    }

    olv_sim::framework framework_;
    std::deque<site> sites_;
    work_done done_;

  private:
    std::size_t blocks_before_ = olv_sim::memory::in_use().live_blocks;
    std::size_t patterns_before_ = olv_sim::patterns::live();
};

/** The count that the next creation on the module stores in its state entry. */
std::uint32_t next_creation_count(olv_module_handle *module)
{
    const olv_twamp_responder_info info{};
    twamp_responder_handle *responder = nullptr;
    EXPECT_EQ(olv_twamp_responder_create(module, &info, &responder), 0u);
    std::uint32_t words[3] = {};
    EXPECT_EQ(hyx_se_state_get(module->rte_handle, responder->responder_id, 0, words, sizeof words), 0u);
    EXPECT_EQ(olv_twamp_responder_delete(module, responder), 0u);
    hyx_nvm_free(responder);
    return hyx_ntohl(words[2]);
}

TEST_F(Races, FourControlThreadsOnOneModuleAndTheFastPath)
{
    sites_.emplace_back(framework_, 1);
    work(4);
    sites_[0].expect_exact_totals();
    EXPECT_GT(done_.creations, 4u);
    // No creation was lost, none was counted twice.
    EXPECT_EQ(next_creation_count(sites_[0].module(0)), site::staying_responders + done_.creations + 1);
}

TEST_F(Races, SeveralModulesOnAProcessorAndSeveralProcessors)
{
    sites_.emplace_back(framework_, 2);
    sites_.emplace_back(framework_, 1);
    work(2);
    for (site &place : sites_) {
        place.expect_exact_totals();
    }
}

TEST_F(Races, EveryOperationTracesItsEntryAndItsExit)
{
    counting_sink sink;
    sites_.emplace_back(framework_, 1);
    olv_sim::tracer::set_sink(&sink);
    work(4);
    olv_sim::tracer::set_sink(nullptr);
    EXPECT_GT(done_.walks, 0u);
    EXPECT_EQ(sink.entries, done_.operations + done_.walks);
    EXPECT_EQ(sink.exits, done_.operations);
    sites_[0].expect_exact_totals();
}

} // namespace
} // namespace olv_races
