/**
 * @file reflector_server.hpp
 * The fast path as the control application runs it: a module on the software platform, whose library has made a
 * responder and bound it, and workers that answer.
 */
#ifndef OLV_BENCH_REFLECTOR_SERVER_HPP
#define OLV_BENCH_REFLECTOR_SERVER_HPP

#include <cstdint>
#include <vector>

#include "fastpath/udp/udp_workers.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"
#include "server.hpp"

namespace olv_bench {

/** A module with one responder that is bound to the IPv4 module. */
class responder_site {
  public:
    /** @param sessions  That the responder may have. @throw std::runtime_error  The library refuses. */
    explicit responder_site(std::uint32_t sessions);
    ~responder_site();
    responder_site(const responder_site &) = delete;
    responder_site &operator=(const responder_site &) = delete;

    [[nodiscard]] olv_sim::processor &processor() { return processor_; }
    [[nodiscard]] olv_fastpath::packet_path path() const;
    /** What the library says that the responder has counted. */
    [[nodiscard]] olv_twamp_responder_stats counters() const;

  private:
    static constexpr std::uint32_t bind_key = 4;

    void set_maximum_sessions(std::uint32_t sessions) const;

    olv_sim::framework framework_;
    olv_sim::processor processor_;
    olv_module_handle *module_;
    twamp_responder_handle *responder_ = nullptr;
};

class reflector_server final : public server {
  public:
    explicit reflector_server(std::uint32_t sessions, std::uint32_t workers = 1);
    void start() override
    {
        open();
        run();
    }
    void stop() override;
    /** The steps of start(): requests wait between them. */
    void open();
    void run() { workers_.start(); }

    [[nodiscard]] olv_net::socket_address address() const override
    {
        return workers_.local_address(listening_);
    }
    [[nodiscard]] std::uint64_t dropped() const override
    {
        return workers_.statistics().dropped_packets[olv_fastpath::drop_reason::socket_full];
    }
    [[nodiscard]] std::size_t number_position() const override
    {
        return olv_net::reflector_packet::sender_sequence_number;
    }

    [[nodiscard]] olv_twamp_responder_stats counters() const { return site_.counters(); }
    /** Since it was made, as the module counts. */
    [[nodiscard]] std::uint64_t replies() const { return counters().transmitted; }
    /** The same by worker, as their sockets count. */
    [[nodiscard]] std::vector<std::uint64_t> replies_by_worker() const;

  private:
    responder_site site_;
    olv_fastpath::udp_workers workers_;
    std::size_t listening_ = 0;
};

} // namespace olv_bench

#endif
