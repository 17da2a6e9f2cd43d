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
    /** @param own  The client's address. */
    explicit connection(const std::string &host, const std::string &own = "")
    {
        const olv_net::socket_address address = olv_net::parse_socket_address(host);
        socket_ = olv_net::descriptor{socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0)};
        const int few_octets = 4096; // what is not read waits at the server
        (void)setsockopt(socket_.number(), SOL_SOCKET, SO_RCVBUF, &few_octets, sizeof few_octets);
        if (!own.empty()) {
            const olv_net::socket_address from = olv_net::parse_socket_address(own + ":0");
            EXPECT_EQ(bind(socket_.number(), from.generic(), from.length), 0);
        }
        connected_ = connect(socket_.number(), address.generic(), address.length) == 0;
    }

    [[nodiscard]] bool is_open() const { return connected_; }
    void send_text(const std::string &text) const
    {
        (void)send(socket_.number(), text.data(), text.size(), MSG_NOSIGNAL); // the test sees what is missing
    }
    /** What comes within this time, at most 4096 octets; nothing: the server has closed. */
    [[nodiscard]] std::optional<std::string> receive_within(std::chrono::milliseconds limit) const
    {
        std::array<char, 4096> part{};
        pollfd watched{.fd = socket_.number(), .events = POLLIN, .revents = 0};
        if (poll(&watched, 1, static_cast<int>(limit.count())) <= 0) {
            return "";
        }
        const ssize_t length = recv(socket_.number(), part.data(), part.size(), 0);
        return length <= 0 ? std::nullopt
                           : std::optional{std::string(part.data(), static_cast<std::size_t>(length))};
    }
    /** All that comes until the server closes. */
    [[nodiscard]] std::string receive_all() const
    {
        std::string all;
        for (std::optional<std::string> part = "some"; part && !part->empty();) {
            part = receive_within(std::chrono::seconds(20));
            all += part.value_or("");
        }
        return all;
    }
    /** Whether the server closes before long. */
    [[nodiscard]] bool is_closed() const { return !receive_within(std::chrono::seconds(20)); }

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

std::string all_is_well()
{
    return "";
}

olv_net::socket_address any_port(const char *host = "127.0.0.1:0")
{
    return olv_net::parse_socket_address(host);
}

TEST(MetricsServer, AnswersWithWhatIsCollectedAtThatMoment)
{
    std::atomic<std::uint32_t> packets{0};
    const metrics_server server{any_port(),
                                [&packets] {
                                    twampctl::figures all = example_figures();
                                    all.module->total_rx = ++packets;
                                    return all;
                                },
                                all_is_well};
    const std::string first = ask(host_of(server), "GET /metrics");
    EXPECT_THAT(first, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(first, HasSubstr("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"));
    EXPECT_THAT(first, HasSubstr("\nolv_twamp_received_packets_total 1\n"));
    EXPECT_THAT(first, EndsWith("\nolv_twamp_platform_violations_total 56\n"));
    EXPECT_THAT(ask(host_of(server), "GET /metrics"), HasSubstr("\nolv_twamp_received_packets_total 2\n"));
}

TEST(MetricsServer, AnswersSeveralRequestsOnAConnection)
{
    const metrics_server server{any_port(), example_figures, all_is_well};
    const connection client{host_of(server)};
    client.send_text("GET / HTTP/1.1\r\nHost: test\r\n\r\n"
                     "GET /metrics HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
    const std::string answers = client.receive_all();
    EXPECT_THAT(answers,
                HasSubstr("\r\n\r\nthe metrics are at /metrics, the health at /healthz\nHTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answers, HasSubstr("\nolv_twamp_received_packets_total 10\n"));
}

TEST(MetricsServer, AnswersToMethodAndPath)
{
    const metrics_server server{any_port(), example_figures, all_is_well};
    const std::string places = "the metrics are at /metrics, the health at /healthz\n";
    const std::string nothing_here = "nothing here; " + places;
    const struct {
        const char *request;
        const char *status;
        std::string body;
    } rows[] = {{"HEAD /metrics", "200 OK", ""},
                {"GET /", "200 OK", places},
                {"GET /healthz", "200 OK", "packets are answered\n"},
                {"HEAD /healthz", "200 OK", ""},
                {"HEAD http://test/metrics", "200 OK", ""},
                {"GET HTTP://test:9862/healthz", "200 OK", "packets are answered\n"},
                {"GET http://test", "200 OK", places},
                {"GET http://test/metric", "404 Not Found", nothing_here},
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
    const metrics_server server{any_port(), example_figures, all_is_well};
    const connection client{host_of(server)};
    client.send_text("POST /metrics HTTP/1.1\r\nHost: test\r\nContent-Length: 3\r\n\r\nabc");
    const std::string answer = client.receive_all();
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 405 Method Not Allowed\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nAllow: GET, HEAD\r\n"));
}

TEST(MetricsServer, WantsTheHostWhereHttpDoes)
{
    const metrics_server server{any_port(), example_figures, all_is_well};
    const std::pair<const char *, const char *> rows[] = {
        {"GET /metrics HTTP/1.1\r\nConnection: close\r\n\r\n", "HTTP/1.1 400 Bad Request\r\n"},
        {"GET http://test/metrics HTTP/1.1\r\nConnection: close\r\n\r\n", "HTTP/1.1 400 Bad Request\r\n"},
        {"GET /metrics HTTP/1.1\r\nHost: one\r\nHost: other\r\nConnection: close\r\n\r\n",
         "HTTP/1.1 400 Bad Request\r\n"},
        {"GET /metrics HTTP/1.1\r\nHost:\r\nConnection: close\r\n\r\n", "HTTP/1.1 200 OK\r\n"},
        {"GET /metrics HTTP/1.0\r\n\r\n", "HTTP/1.1 200 OK\r\n"}};
    for (const auto &[request, status] : rows) {
        const connection client{host_of(server)};
        client.send_text(request);
        EXPECT_THAT(client.receive_all(), StartsWith(status)) << request;
    }
}

TEST(MetricsServer, SaysWhyPacketsAreNotAnswered)
{
    const metrics_server server{any_port(), example_figures, [] { return "the module is not up"; }};
    const std::string answer = ask(host_of(server), "GET /healthz");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 503 Service Unavailable\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\nthe module is not up\n"));
    EXPECT_THAT(ask(host_of(server), "GET /metrics"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

TEST(MetricsServer, SaysWhyThereAreNoFigures)
{
    const metrics_server server{
        any_port(), []() -> twampctl::figures { throw std::runtime_error("out of order"); }, all_is_well};
    const std::string answer = ask(host_of(server), "GET /metrics");
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 500 Internal Server Error\r\n"));
    EXPECT_THAT(answer, EndsWith("\r\n\r\nno figures: out of order\n"));
}

TEST(MetricsServer, ServesIpv6)
{
    const metrics_server server{any_port("[::1]:0"), example_figures, all_is_well};
    EXPECT_THAT(server.url(), StartsWith("http://[::1]:"));
    EXPECT_THAT(ask(host_of(server), "GET /metrics"), StartsWith("HTTP/1.1 200 OK\r\n"));
}

std::string reason_against(const std::string &address)
{
    try {
        const metrics_server server{any_port(address.c_str()), example_figures, all_is_well};
    } catch (const std::runtime_error &error) {
        return error.what();
    }
    return "none";
}

TEST(MetricsServer, RefusesAddressesThatItCannotServeAt)
{
    const metrics_server server{any_port(), example_figures, all_is_well};
    EXPECT_EQ(reason_against(host_of(server)),
              "cannot serve metrics at " + host_of(server) + ": Address already in use");
    EXPECT_EQ(reason_against("192.0.2.1:9862"),
              "cannot serve metrics at 192.0.2.1:9862: Cannot assign requested address");
}

TEST(MetricsServer, EndsAtOnceWhateverItsClientsDo)
{
    using clock = std::chrono::steady_clock;
    auto server = std::make_unique<metrics_server>(any_port(), example_figures, all_is_well);
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

TEST(MetricsServer, ServesOthersWhileOneAddressHoldsWhatItMay)
{
    const metrics_server server{any_port(), example_figures, all_is_well};
    std::vector<std::unique_ptr<connection>> idle;
    for (int count = 0; count < 8; ++count) {
        idle.push_back(std::make_unique<connection>(host_of(server)));
    }
    EXPECT_TRUE(connection{host_of(server)}.is_closed()) << "the ninth";
    const connection other{host_of(server), "127.0.0.2"};
    other.send_text("GET /metrics HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(other.receive_all(), StartsWith("HTTP/1.1 200 OK\r\n"));
    idle.front()->send_text("GET / HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n");
    EXPECT_THAT(idle.front()->receive_all(), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(ask(host_of(server), "GET /metrics"), StartsWith("HTTP/1.1 200 OK\r\n")) << "one has gone";
}

/** More than the buffers of a connection take. */
twampctl::figures very_many_figures()
{
    twampctl::figures all = example_figures();
    all.responders.resize(20'000, all.responders.front());
    return all;
}

TEST(MetricsServer, EndsRequestsThatTakeMoreThanTenSecondsInAll)
{
    using clock = std::chrono::steady_clock;
    using seconds = std::chrono::seconds;
    const metrics_server server{any_port(), very_many_figures, all_is_well};
    struct {
        const char *what;
        const char *begins; ///< One octet after the other follows.
        std::optional<clock::time_point> ended{};
    } clients[] = {
        {"asks an octet at a time", "GET /metrics HTTP/1.1\r\nHost: "},
        {"does so after an answer", "GET / HTTP/1.1\r\nHost: test\r\n\r\nG"},
        {"sends a body that never ends", "GET / HTTP/1.1\r\nHost: test\r\nContent-Length: 99999\r\n\r\n"},
        {"reads slowly", "GET /metrics HTTP/1.1\r\nHost: test\r\n\r\n"},
        {"is silent", ""}};
    const clock::time_point start = clock::now();
    std::vector<connection> connections;
    for (const auto &client : clients) {
        connections.emplace_back(host_of(server)).send_text(client.begins);
    }
    std::size_t ended = 0;
    while (ended < std::size(clients) && clock::now() - start < seconds(40)) {
        for (std::size_t index = 0; index < std::size(clients); ++index) {
            if (clients[index].ended) {
                continue;
            }
            if (*clients[index].begins != '\0') {
                connections[index].send_text("x");
            }
            if (!connections[index].receive_within(std::chrono::milliseconds(50))) {
                clients[index].ended = clock::now();
                ++ended;
            }
        }
    }
    for (const auto &client : clients) {
        ASSERT_TRUE(client.ended) << client.what;
        EXPECT_GE(*client.ended - start, seconds(10)) << client.what;
        EXPECT_LT(*client.ended - start, seconds(25)) << client.what;
    }
}

} // namespace
} // namespace apps_tests
