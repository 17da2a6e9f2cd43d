/**
 * @file metrics_server.hpp
 * The figures for Prometheus to fetch over HTTP.
 */
#ifndef OLV_TWAMPCTL_METRICS_SERVER_HPP
#define OLV_TWAMPCTL_METRICS_SERVER_HPP

#include <functional>
#include <optional>
#include <string>

#include "apps/twampctl/figures/figures.hpp"
#include "apps/twampctl/figures/http_server.hpp"
#include "net/socket_address.hpp"

namespace twampctl {

/**
 * Answers /metrics with what is collected at that moment, /healthz with whether packets are answered, / with a
 * line that points to them, anything else with 404. Figures that cannot be collected give 500 with the reason;
 * packets that are not answered give 503, with the reason, too.
 */
class metrics_server {
  public:
    /** Called from the server's thread, for one request at a time; both. */
    using collector = std::function<figures()>;
    /** @return Why packets are not answered; empty: they are. */
    using health_check = std::function<std::string()>;

    /**
     * @param address  Port 0: one that the system chooses; an IPv6 address takes IPv6 alone.
     * @throw std::runtime_error  One line: the address, and why it cannot be served at.
     */
    metrics_server(const olv_net::socket_address &address, collector collect, health_check check);
    metrics_server(const metrics_server &) = delete;
    metrics_server &operator=(const metrics_server &) = delete;

    /** "http://127.0.0.1:9862/metrics", with the port that the socket really has. */
    [[nodiscard]] const std::string &url() const { return url_; }

  private:
    [[nodiscard]] http_answer page(std::string_view path) const;
    [[nodiscard]] http_answer metrics() const;

    collector collect_;
    health_check reason_against_health_;
    std::string url_;
    std::optional<http_server> server_; ///< Ends before what it reads.
};

} // namespace twampctl

#endif
