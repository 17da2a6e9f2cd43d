// The figures over HTTP: what is answered, what is refused, how soon it ends.

#include <array>
#include <atomic>
#include <chrono>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "apps/twampctl/figures/metrics_server.hpp"
#include "example_figures.hpp"
#include "net/descriptor.hpp"

namespace apps_tests {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using twampctl::metrics_server;

/** "127.0.0.1:PORT" of "http://127.0.0.1:PORT/metrics". */
std::string host_of(const metrics_server &server)
{
    const std::string &url = server.url();
    return url.substr(7, url.size() - 7 - std::string("/metrics").size());
}

/** A TCP connection to a server. */
class connection {
  public:
    explicit connection(const std::string &host)
    {
        const olv_net::socket_address address = olv_net::parse_socket_address(host);
        socket_ = olv_net::descriptor{socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0)};
        connected_ = connect(socket_.number(), address.generic(), address.length) == 0;
    }

    [[nodiscard]] bool is_open() const { return connected_; }
    void send_text(const std::string &text) const
    {
        (void)send(socket_.number(), text.data(), text.size(), MSG_NOSIGNAL); // the test sees what is missing
    }
    /** All that comes until the server closes. */
    [[nodiscard]] std::string receive_all() const
    {
        std::string all;
        std::array<char, 4096> part{};
        pollfd watched{.fd = socket_.number(), .events = POLLIN, .revents = 0};
        while (poll(&watched, 1, 20000) > 0) {
            const ssize_t length = recv(socket_.number(), part.data(), part.size(), 0);
            if (length <= 0) {
                break;
            }
            all.append(part.data(), static_cast<std::size_t>(length));
        }
        return all;
    }

  private:
    olv_net::descriptor socket_;
    bool connected_ = false;
};

std::string ask(const std::string &host, const std::string &request_line)
{
    const connection client{host};
    client.send_text(request_line + " HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
    return client.receive_all();
}

olv_net::socket_address any_port(const char *host = "127.0.0.1:0")
{
    return olv_net::parse_socket_address(host);
}

TEST(MetricsServer, AnswersWithWhatIsCollectedAtThatMoment)
{
    std::atomic<std::uint32_t> packets{0};
    const metrics_server server{any_port(), [&packets] {
                                    twampctl::figures all = example_figures();
                                    all.module->total_rx = ++packets;
                                    return all;
                                }};
    const std::string first = ask(host_of(server), "GET /metrics");
    EXPECT_THAT(first, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(first, HasSubstr("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    EXPECT_THAT(first, HasSubstr("\nolv_twamp_received_packets_total 1\n"));
    EXPECT_THAT(first, EndsWith("\nolv_twamp_platform_violations_total 56\n"));
    EXPECT_THAT(ask(host_of(server), "GET /metrics"), HasSubstr("\nolv_twamp_received_packets_total 2\n"));
}

TEST(MetricsServer, AnswersSeveralRequestsOnAConnection)
{
    const metrics_server server{any_port(), example_figures};
    const connection client{host_of(server)};
    client.send_text("GET / HTTP/1.1\r\nHost: test\r\n\r\n"
                     "GET /metrics HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
    const std::string answers = client.receive_all();
    EXPECT_THAT(answers, HasSubstr("\r\n\r\nthe metrics are at /metrics\nHTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answers, HasSubstr("\nolv_twamp_received_packets_total 10\n"));
}

TEST(MetricsServer, AnswersToMethodAndPath)
{
    const metrics_server server{any_port(), example_figures};
    const std::string nothing_here = "nothing here; the metrics are at /metrics\n";
    const struct {
        const char *request;
        const char *status;
        std::string body;
    } rows[] = {{"HEAD /metrics", "200 OK", ""},
                {"GET /", "200 OK", "the metrics are at /metrics\n"},
                {"GET /metrics/", "404 Not Found", nothing_here},
                {"GET /metric", "404 Not Found", nothing_here},
                {"GET /../metrics", "404 Not Found", nothing_here},
                {"HEAD /favicon.ico", "404 Not Found", ""}};
    for (const auto &row : rows) {
        const std::string answer = ask(host_of(server), row.request);
        EXPECT_THAT(answer, StartsWith(std::string("HTTP/1.1 ") + row.status + "\r\n")) << row.request;
        EXPECT_THAT(answer, EndsWith("\r\n\r\n" + row.body)) << row.request;
    }
}

TEST(MetricsServer, TakesNoOtherMethod)
{
    const metrics_server server{any_port(), example_figures};
    const connection client{host_of(server)};
    client.send_text("POST /metrics HTTP/1.1\r\nHost: test\r\nContent-Length: 3\r\n\r\nabc");
    const std::string answer = client.receive_all();
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nAllow: GET, HEAD\r\n"));
}

TEST(MetricsServer, SaysWhyThereAreNoFigures)
{
    const metrics_server server{any_port(),
                                []() -> twampctl::figures { throw std::runtime_error("out of order"); }};
    const std::string answer = ask(host_of(server), "GET /metrics");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 500 Internal Server Error\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\nno figures: out of order\n"));
}

TEST(MetricsServer, ServesIpv6)
{
    const metrics_server server{any_port("[::1]:0"), example_figures};
    EXPECT_THAT(server.url(), StartsWith("http://[::1]:"));
    EXPECT_THAT(ask(host_of(server), "GET /metrics"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

std::string reason_against(const std::string &address)
{
    try {
        const metrics_server server{any_port(address.c_str()), example_figures};
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "none";
}

TEST(MetricsServer, RefusesAddressesThatItCannotServeAt)
{
    const metrics_server server{any_port(), example_figures};
    EXPECT_EQ(reason_against(host_of(server)),
              "cannot serve metrics at " + host_of(server) + ": Address already in use");
    EXPECT_EQ(reason_against("192.0.2.1:9862"),
              "cannot serve metrics at 192.0.2.1:9862: Cannot assign requested address");
}

TEST(MetricsServer, EndsAtOnceWhateverItsClientsDo)
{
    using clock = std::chrono::steady_clock;
    auto server = std::make_unique<metrics_server>(any_port(), example_figures);
    const std::string host = host_of(*server);
    const connection silent{host};
    const connection halfway{host};
    halfway.send_text("GET /metrics HTTP/1.1\r\nHos");
    const connection waiting{host};
    waiting.send_text("GET / HTTP/1.1\r\nHost: test\r\n\r\n");
    EXPECT_THAT(ask(host, "GET /"), StartsWith("HTTP/1.1 200 OK\r\n")); // the others came before it
    const clock::time_point start = clock::now();
    server.reset();
    EXPECT_LT(clock::now() - start, std::chrono::seconds(8)); // it waits 10 for a silent client otherwise
    EXPECT_FALSE(connection{host}.is_open());
    EXPECT_EQ(reason_against(host), "none") << "the port is free again";
}

TEST(MetricsServer, ServesOthersWhileManyConnectionsAreIdle)
{
    const metrics_server server{any_port(), example_figures};
    std::vector<std::unique_ptr<connection>> idle;
    for (int count = 0; count < 20; ++count) {
        idle.push_back(std::make_unique<connection>(host_of(server)));
    }
    EXPECT_THAT(ask(host_of(server), "GET /metrics"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

} // namespace
} // namespace apps_tests
