/**
 * @file metrics_server.hpp
 * The figures for Prometheus to fetch over HTTP.
 */
#ifndef OLV_TWAMPCTL_METRICS_SERVER_HPP
#define OLV_TWAMPCTL_METRICS_SERVER_HPP

#include <functional>
#include <string>

#include "apps/twampctl/figures/figures.hpp"
#include "net/socket_address.hpp"

struct MHD_Daemon;

namespace twampctl {

/**
 * Answers GET and HEAD of /metrics with what is collected at that moment, of / with a line that points there,
 * of anything else with 404, from one thread of its own. Figures that cannot be collected give 500 with the
 * reason.
 */
class metrics_server {
  public:
    /** Called from the server's thread, for one request at a time. */
    using collector = std::function<figures()>;

    /**
     * @param address  Port 0: one that the system chooses; an IPv6 address takes IPv6 alone.
     * @throw std::runtime_error  One line: the address, and why it cannot be served at.
     */
    metrics_server(const olv_net::socket_address &address, collector collect);
    /** Ends the thread and all connections; the collector is not called any more. */
    ~metrics_server();
    metrics_server(const metrics_server &) = delete;
    metrics_server &operator=(const metrics_server &) = delete;

    /** "http://127.0.0.1:9862/metrics", with the port that the socket really has. */
    [[nodiscard]] const std::string &url() const { return url_; }
    /** What is answered to a GET of /metrics, or why there is nothing. @return Whether there is. */
    [[nodiscard]] bool page(std::string &text) const;

  private:
    collector collect_;
    std::string url_;
    MHD_Daemon *daemon_ = nullptr;
};

} // namespace twampctl

#endif
