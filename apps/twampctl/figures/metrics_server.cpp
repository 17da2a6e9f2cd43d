#include "apps/twampctl/figures/metrics_server.hpp"

#include <cerrno>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "apps/twampctl/figures/figures_output.hpp"
#include "net/descriptor.hpp"

namespace twampctl {
namespace {

constexpr unsigned connection_limit = 32;
constexpr unsigned connection_seconds = 10; ///< Without a byte; whoever wants to stay connects again.
constexpr const char *exposition_type = "text/plain; version=0.0.4; charset=utf-8";
constexpr const char *plain_type = "text/plain; charset=utf-8";

[[noreturn]] void refuse(const olv_net::socket_address &address, int error)
{
    throw std::runtime_error("cannot serve metrics at " + address.text() + ": " + std::strerror(error));
}

bool bind_and_listen(int descriptor, const olv_net::socket_address &address)
{
    const int on = 1;
    return setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
           (address.family() != AF_INET6 ||
            setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on) == 0) &&
           bind(descriptor, address.generic(), address.length) == 0 &&
           listen(descriptor, connection_limit) == 0;
}

MHD_Result answer(MHD_Connection *connection, unsigned status, const char *type, std::string_view text)
{
    // The library copies the text before it writes anything.
    MHD_Response *response =
        MHD_create_response_from_buffer(text.size(), const_cast<char *>(text.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO; // no memory: the connection ends
    }
    (void)MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type); // scrapers do without it
    if (status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        (void)MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD"); // it is advice only
    }
    const MHD_Result queued = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return queued;
}

MHD_Result handle(void *context, MHD_Connection *connection, const char *path, const char *method,
                  const char * /*version*/, const char * /*upload*/, std::size_t *upload_size, void **state)
{
    const auto &server = *static_cast<const metrics_server *>(context);
    const std::string_view asked = method;
    if (asked != MHD_HTTP_METHOD_GET && asked != MHD_HTTP_METHOD_HEAD) {
        *upload_size = 0; // not read
        return answer(connection, MHD_HTTP_METHOD_NOT_ALLOWED, plain_type, "only GET and HEAD\n");
    }
    if (*state == nullptr || *upload_size != 0) { // an answer before the request's end would end the connection
        *state = context;
        *upload_size = 0;
        return MHD_YES;
    }
    if (std::string_view(path) == "/") {
        return answer(connection, MHD_HTTP_OK, plain_type, "the metrics are at /metrics\n");
    }
    if (std::string_view(path) != "/metrics") {
        return answer(connection, MHD_HTTP_NOT_FOUND, plain_type,
                      "nothing here; the metrics are at /metrics\n");
    }
    std::string text;
    return server.page(text) ? answer(connection, MHD_HTTP_OK, exposition_type, text)
                             : answer(connection, MHD_HTTP_INTERNAL_SERVER_ERROR, plain_type, text);
}

} // namespace

metrics_server::metrics_server(const olv_net::socket_address &address, collector collect)
    : collect_(std::move(collect))
{
    olv_net::descriptor listener{socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    std::optional<olv_net::socket_address> local;
    if (listener.is_open() && bind_and_listen(listener.number(), address)) {
        local = olv_net::local_address_of(listener.number());
    }
    if (!local) {
        refuse(address, errno);
    }
    url_ = "http://" + local->text() + "/metrics";
    daemon_ =
        MHD_start_daemon(MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD, 0, nullptr, nullptr, handle, this,
                         MHD_OPTION_LISTEN_SOCKET, listener.number(), MHD_OPTION_CONNECTION_LIMIT,
                         connection_limit, MHD_OPTION_CONNECTION_TIMEOUT, connection_seconds, MHD_OPTION_END);
    if (daemon_ == nullptr) {
        refuse(*local, errno);
    }
    (void)listener.release(); // the daemon closes it
}

metrics_server::~metrics_server()
{
    MHD_stop_daemon(daemon_);
}

bool metrics_server::page(std::string &text) const
{
    try {
        text = format(collect_(), output_format::prometheus);
        return true;
    } catch (const std::exception &error) {
        text = std::string("no figures: ") + error.what() + "\n";
        return false;
    }
}

} // namespace twampctl
