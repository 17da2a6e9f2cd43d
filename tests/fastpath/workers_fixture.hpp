/**
 * @file workers_fixture.hpp
 * Several workers at addresses of this system.
 */
#ifndef OLV_FASTPATH_TEST_WORKERS_FIXTURE_HPP
#define OLV_FASTPATH_TEST_WORKERS_FIXTURE_HPP

#include <algorithm>
#include <deque>
#include <optional>

#include "fastpath/udp/udp_workers.hpp"
#include "udp_fixture.hpp"

namespace olv_fastpath_test {

class workers_test : public fastpath_test {
  protected:
    udp_workers &make(const udp_workers_options &options) { return workers_.emplace(processor_, options); }

    /** Make workers that answer at an address. */
    void serve(const udp_workers_options &options, const char *address = "127.0.0.1:0")
    {
        make(options);
        index_ = workers_->add(parse_socket_address(address), usual_path);
        workers_->start();
    }

    [[nodiscard]] socket_address address() const { return workers_->local_address(index_); }

    /** Senders, each at a port of its own, and a request from each of them. */
    std::deque<client> send_from(std::size_t count) const
    {
        std::deque<client> senders;
        while (senders.size() < count)
            senders.emplace_back(AF_INET).send(address(), request_of(41));
        return senders;
    }

    /** Senders, each the first one of another worker. The system chooses: it is asked until all have one. */
    std::deque<client> sender_for_each_worker() const
    {
        const std::size_t count = workers_->statistics_by_worker().size();
        std::deque<client> senders;
        for (std::uint64_t sent = 1; sent <= 1000 && senders.size() < count; ++sent) {
            const client &sender = senders.emplace_back(AF_INET);
            sender.bind_to(parse_socket_address("127.0.0.2:0"));
            sender.send(address(), request_of(41));
            EXPECT_TRUE(have_taken(sent));
            if (workers_with_packets() < senders.size())
                senders.pop_back();
        }
        EXPECT_EQ(senders.size(), count);
        return senders;
    }

    /** Whether so many datagrams have been taken from the sockets, whatever became of them. */
    [[nodiscard]] bool have_taken(std::uint64_t datagrams) const
    {
        return eventually([&] {
            const udp_statistics all = workers_->statistics();
            return all.received + all.source_not_allowed + all.source_port + all.own_source + all.truncated +
                       all.answers + all.rate_limited ==
                   datagrams;
        });
    }

    std::optional<udp_workers> workers_;
    std::size_t index_ = 0;

  private:
    [[nodiscard]] std::size_t workers_with_packets() const
    {
        return static_cast<std::size_t>(std::ranges::count_if(
            workers_->statistics_by_worker(), [](const udp_statistics &each) { return each.received != 0; }));
    }
};

} // namespace olv_fastpath_test

#endif
