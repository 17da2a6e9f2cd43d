#include "apps/twampctl/figures/http_server.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include <microhttpd.h>
#include <poll.h>
#include <strings.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "net/binding.hpp"
#include "net/start_thread.hpp"

namespace twampctl {
namespace {

MHD_Result queue(MHD_Connection *connection, const http_answer &answer)
{
    // The library copies the text before it writes anything.
    MHD_Response *response = MHD_create_response_from_buffer(
        answer.text.size(), const_cast<char *>(answer.text.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO; // no memory: the connection ends
    }
    (void)MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type); // clients do without it
    if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        (void)MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD"); // it is advice only
    }
    const MHD_Result queued = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response);
    return queued;
}

/** Of "/metrics" and of "http://host/metrics". */
std::string_view path_of(std::string_view target)
{
    const std::size_t scheme = target.find("://");
    if (target.starts_with('/') || scheme == std::string_view::npos) {
        return target;
    }
    const std::size_t path = target.find('/', scheme + 3);
    return path == std::string_view::npos ? "/" : target.substr(path);
}

/** That the library does not notice itself. */
bool has_two_hosts(MHD_Connection *connection)
{
    std::size_t hosts = 0;
    const auto count = [](void *counted, MHD_ValueKind /*kind*/, const char *name, const char * /*value*/) {
        *static_cast<std::size_t *>(counted) += strcasecmp(name, MHD_HTTP_HEADER_HOST) == 0 ? 1 : 0;
        return MHD_YES;
    };
    (void)MHD_get_connection_values(connection, MHD_HEADER_KIND, count, &hosts); // how many headers there are
    return hosts > 1;
}

MHD_Result handle_request(void *context, MHD_Connection *connection, const char *target, const char *method,
                          const char * /*version*/, const char * /*upload*/, std::size_t *upload_size,
                          void **state)
{
    const std::string_view asked = method;
    if (asked != MHD_HTTP_METHOD_GET && asked != MHD_HTTP_METHOD_HEAD) {
        *upload_size = 0; // not read
        return queue(connection, {MHD_HTTP_METHOD_NOT_ALLOWED, plain_type, "only GET and HEAD\n"});
    }
    if (*state == nullptr || *upload_size != 0) { // an answer before the request's end would end the connection
        *state = context;
        *upload_size = 0;
        return MHD_YES;
    }
    if (has_two_hosts(connection)) {
        return queue(connection, {MHD_HTTP_BAD_REQUEST, plain_type, "only one Host\n"});
    }
    return queue(connection, static_cast<const http_server *>(context)->answer_to(path_of(target)));
}

void notice_connection(void *context, MHD_Connection *connection, void ** /*own*/,
                       MHD_ConnectionNotificationCode what)
{
    auto &server = *static_cast<http_server *>(context);
    if (what == MHD_CONNECTION_NOTIFY_STARTED) {
        server.connection_opened(connection);
    } else {
        server.connection_closed(connection);
    }
}

void notice_completion(void *context, MHD_Connection *connection, void ** /*state*/,
                       MHD_RequestTerminationCode /*how*/)
{
    static_cast<http_server *>(context)->request_completed(connection);
}

bool has_octets(int socket)
{
    int octets = 0;
    return ioctl(socket, FIONREAD, &octets) == 0 && octets > 0;
}

} // namespace

http_server::http_server(olv_net::descriptor listener, handler handle)
    : handle_(std::move(handle)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    connections_.reserve(most_connections);
    if (wake_.is_open()) {
        daemon_ =
            MHD_start_daemon(MHD_USE_EPOLL, 0, nullptr, nullptr, handle_request, this, MHD_OPTION_LISTEN_SOCKET,
                             listener.number(), MHD_OPTION_CONNECTION_LIMIT, most_connections,
                             MHD_OPTION_PER_IP_CONNECTION_LIMIT, most_connections_of_an_address,
                             MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_NOTIFY_CONNECTION, notice_connection,
                             this, MHD_OPTION_NOTIFY_COMPLETED, notice_completion, this, MHD_OPTION_END);
    }
    if (daemon_ == nullptr) {
        throw std::runtime_error(olv_net::reason_against_descriptor(errno));
    }
    (void)listener.release(); // the daemon closes it
    events_ = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    try {
        thread_ = olv_net::start_thread([this] { serve(); });
    } catch (...) {
        MHD_stop_daemon(daemon_);
        throw;
    }
}

http_server::~http_server()
{
    is_ending_ = true;
    (void)eventfd_write(wake_.number(), 1); // fails when it is awake already
    thread_.join();
    MHD_stop_daemon(daemon_);
}

void http_server::serve()
{
    while (!is_ending_) {
        std::array<pollfd, 2> watched{{{.fd = events_, .events = POLLIN, .revents = 0},
                                       {.fd = wake_.number(), .events = POLLIN, .revents = 0}}};
        (void)poll(watched.data(), watched.size(), milliseconds_to_wait()); // an error is as good as an event
        note_begun_requests();
        (void)MHD_run(daemon_); // fails for daemons with a thread of their own
        end_overdue();
    }
}

int http_server::milliseconds_to_wait() const
{
    using milliseconds = std::chrono::milliseconds;
    milliseconds wait = longest_request;
    MHD_UNSIGNED_LONG_LONG wanted = 0;
    if (MHD_get_timeout(daemon_, &wanted) == MHD_YES) {
        wait = std::min<milliseconds>(wait, milliseconds(wanted));
    }
    const clock::time_point now = clock::now();
    for (const open_connection &each : connections_) {
        wait = std::min(wait, std::chrono::ceil<milliseconds>(each.since + longest_request - now));
    }
    return static_cast<int>(std::max(wait, milliseconds(0)).count());
}

/** Before the library reads them. */
void http_server::note_begun_requests()
{
    for (open_connection &each : connections_) {
        if (each.is_idle && has_octets(each.socket)) {
            each.is_idle = false;
            each.since = clock::now();
        }
    }
}

void http_server::end_overdue()
{
    const clock::time_point now = clock::now();
    for (open_connection &each : connections_) {
        if (now - each.since >= longest_request) {
            const linger at_once{.l_onoff = 1, .l_linger = 0}; // the system would keep what was not read
            (void)setsockopt(each.socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
            (void)shutdown(each.socket, SHUT_RDWR); // the library sees it, and closes
        }
    }
}

std::vector<http_server::open_connection>::iterator http_server::find(MHD_Connection *connection)
{
    return std::find_if(connections_.begin(), connections_.end(),
                        [connection](const open_connection &each) { return each.connection == connection; });
}

void http_server::connection_opened(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    connections_.push_back({.connection = connection, .socket = info->connect_fd, .since = clock::now()});
}

void http_server::connection_closed(MHD_Connection *connection)
{
    connections_.erase(find(connection));
}

void http_server::request_completed(MHD_Connection *connection)
{
    const auto found = find(connection);
    found->is_idle = true;
    found->since = clock::now();
}

} // namespace twampctl
