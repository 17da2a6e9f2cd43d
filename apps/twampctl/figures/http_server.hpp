/**
 * @file http_server.hpp
 * HTTP by libmicrohttpd, in one thread, with an end to whatever takes too long.
 */
#ifndef OLV_TWAMPCTL_HTTP_SERVER_HPP
#define OLV_TWAMPCTL_HTTP_SERVER_HPP

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "net/descriptor.hpp"

struct MHD_Connection;
struct MHD_Daemon;

namespace twampctl {

inline constexpr const char *plain_type = "text/plain; charset=utf-8";

struct http_answer {
    unsigned status;
    const char *type; ///< Of its content.
    std::string text;
};

/**
 * Answers GET and HEAD, any other method with 405, what breaks HTTP's rules with 400. It has at most 32
 * connections, 8 of them of one address; a connection ends when no request came to its end for 10 seconds, or
 * when one took that long from its first octet to the last one of its answer.
 */
class http_server {
  public:
    /** Called from the server's thread, one at a time. @param path  "/metrics", without host and query. */
    using handler = std::function<http_answer(std::string_view path)>;

    static constexpr unsigned most_connections = 32;
    static constexpr unsigned most_connections_of_an_address = 8;
    static constexpr std::chrono::seconds longest_request{10};

    /** @param listener  Bound and listening. @throw std::runtime_error  What was not to be had. */
    http_server(olv_net::descriptor listener, handler handle);
    /** Ends the thread and all connections; the handler is not called any more. */
    ~http_server();
    http_server(const http_server &) = delete;
    http_server &operator=(const http_server &) = delete;

    /** @return What the handler says. */
    [[nodiscard]] http_answer answer_to(std::string_view path) const { return handle_(path); }

    // What the library tells of its connections, in the server's thread.
    void connection_opened(MHD_Connection *connection);
    void connection_closed(MHD_Connection *connection);
    void request_completed(MHD_Connection *connection);

  private:
    using clock = std::chrono::steady_clock;
    struct open_connection {
        MHD_Connection *connection;
        int socket;
        clock::time_point since; ///< It opened, its last answer ended, or the first octet after that came.
        bool is_idle = false;    ///< None has come since an answer.
    };

    void serve();
    [[nodiscard]] int milliseconds_to_wait() const;
    void note_begun_requests();
    void end_overdue();
    [[nodiscard]] std::vector<open_connection>::iterator find(MHD_Connection *connection);

    handler handle_;
    std::vector<open_connection> connections_; ///< Never grows beyond what is reserved.
    olv_net::descriptor wake_;
    MHD_Daemon *daemon_ = nullptr;
    int events_ = -1; ///< The library's.
    std::atomic<bool> is_ending_{false};
    std::thread thread_;
};

} // namespace twampctl

#endif
