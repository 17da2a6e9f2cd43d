/**
 * @file generator.hpp
 * Keeps a number of requests on their way to a server and measures what comes back.
 */
#ifndef OLV_BENCH_GENERATOR_HPP
#define OLV_BENCH_GENERATOR_HPP

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

#include "net/socket_address.hpp"
#include "udp_socket.hpp"

namespace olv_bench {

struct traffic_options {
    std::uint32_t window = 1;   ///< Requests on their way at the same time.
    std::uint32_t sessions = 1; ///< Source addresses, used in turn; one session is a connected socket.
    std::size_t length = 44;    ///< Octets of a request; 4 to 1472.
    bool spins = true;          ///< Look for replies without sleeping; needs a core of its own.
    /** Requests that wait are lost once no reply at all has come for so long. */
    std::chrono::milliseconds patience{200};
};

struct traffic_figures {
    std::uint64_t sent = 0;
    std::uint64_t received = 0;             ///< Replies, each to a request that waited for it.
    std::uint64_t lost = 0;                 ///< Requests whose reply did not come: sent = received + lost.
    double seconds = 0;                     ///< From the first request to the end of the last turn.
    std::vector<std::uint32_t> round_trips; ///< Nanoseconds, one for each reply.

    [[nodiscard]] double replies_per_second() const
    {
        return seconds > 0 ? static_cast<double>(received) / seconds : 0;
    }
};

/**
 * One socket, and the thread of its caller. Requests are sent, and replies received, in batches of as many as
 * there are; a batch has one time stamp. The sessions' source addresses are 127.1.0.1 and those that follow.
 */
class generator {
  public:
    using clock = std::chrono::steady_clock;

    explicit generator(const traffic_options &options);

    /** @param number_position  Where a reply has the request's first four octets. */
    void aim(const olv_net::socket_address &server, std::size_t number_position);
    /** Send so many requests, and take what comes back.
     *  @throw std::runtime_error  None can be sent, here and below. */
    void send_requests(std::uint64_t requests);
    /** Send requests for so long. Those under way at the end are waited for, and count. */
    [[nodiscard]] traffic_figures run(std::chrono::nanoseconds duration);

    /** Replies that the kernel has dropped. */
    [[nodiscard]] std::uint64_t dropped() const { return socket_.dropped(); }

  private:
    static constexpr std::size_t batch_length = 64;
    static constexpr std::size_t longest = 2048;

    struct request {
        std::uint32_t number = 0;
        bool waits = false;
        clock::time_point sent;
    };
    struct control_buffer {
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> bytes{};
    };

    void prepare_messages();
    void fill_window(std::uint64_t most);
    void give_up_sending(clock::time_point now) const;
    /** @return How many were sent. */
    [[nodiscard]] std::uint32_t send_batch(std::uint32_t requests);
    void write_request(std::size_t place, std::uint32_t number, clock::time_point now);
    std::size_t take_replies();
    void take_reply(std::size_t place, clock::time_point now);
    [[nodiscard]] bool await_replies();
    void give_up_waiting();
    void forget_late_replies();

    traffic_options options_;
    udp_socket socket_;
    olv_net::socket_address server_{};
    std::size_t number_position_ = 0;
    std::vector<request> requests_; ///< By number, modulo their count.
    std::uint32_t next_number_ = 0;
    std::uint32_t next_session_ = 0;
    std::uint32_t waiting_ = 0;
    clock::time_point last_reply_;
    traffic_figures figures_;

    std::vector<std::array<unsigned char, longest>> request_bytes_;
    std::vector<std::array<unsigned char, longest>> reply_bytes_;
    std::array<iovec, batch_length> request_parts_{};
    std::array<iovec, batch_length> reply_parts_{};
    std::array<control_buffer, batch_length> sources_{};
    std::array<mmsghdr, batch_length> request_messages_{};
    std::array<mmsghdr, batch_length> reply_messages_{};
};

} // namespace olv_bench

#endif
