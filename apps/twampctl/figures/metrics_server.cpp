#include "apps/twampctl/figures/metrics_server.hpp"

#include <cerrno>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <utility>

#include <sys/socket.h>

#include "apps/twampctl/figures/figures_output.hpp"
#include "net/binding.hpp"

namespace twampctl {
namespace {

constexpr const char *exposition_type = "text/plain; version=0.0.4; charset=utf-8";
constexpr unsigned ok = 200;
constexpr unsigned not_found = 404;
constexpr unsigned server_error = 500;
constexpr unsigned unavailable = 503;

const std::string places = "the metrics are at /metrics, the health at /healthz\n";

[[noreturn]] void refuse(const olv_net::socket_address &address, const std::string &reason)
{
    throw std::runtime_error("cannot serve metrics at " + address.text() + ": " + reason);
}

olv_net::descriptor listen_at(const olv_net::socket_address &address)
{
    olv_net::descriptor listener = olv_net::bound_socket(address, SOCK_STREAM);
    if (!listener.is_open() || listen(listener.number(), http_server::most_connections) != 0) {
        refuse(address, olv_net::reason_against_socket(address, errno));
    }
    return listener;
}

} // namespace

metrics_server::metrics_server(const olv_net::socket_address &address, collector collect, health_check check)
    : collect_(std::move(collect)), reason_against_health_(std::move(check))
{
    olv_net::descriptor listener = listen_at(address);
    const std::optional<olv_net::socket_address> local = olv_net::local_address_of(listener.number());
    if (!local) {
        refuse(address, std::strerror(errno));
    }
    url_ = "http://" + local->text() + "/metrics";
    try {
        server_.emplace(std::move(listener), [this](std::string_view path) { return page(path); });
    } catch (const std::exception &error) {
        refuse(*local, error.what());
    }
}

http_answer metrics_server::page(std::string_view path) const
{
    if (path == "/metrics") {
        return metrics();
    }
    if (path == "/healthz") {
        const std::string reason = reason_against_health_();
        return reason.empty() ? http_answer{ok, plain_type, "packets are answered\n"}
                              : http_answer{unavailable, plain_type, reason + "\n"};
    }
    return path == "/" ? http_answer{ok, plain_type, places}
                       : http_answer{not_found, plain_type, "nothing here; " + places};
}

http_answer metrics_server::metrics() const
{
    try {
        return {ok, exposition_type, format(collect_(), output_format::prometheus)};
    } catch (const std::exception &error) {
        return {server_error, plain_type, std::string("no figures: ") + error.what() + "\n"};
    }
}

} // namespace twampctl
