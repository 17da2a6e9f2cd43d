#include "echo_server.hpp"

#include <memory>

#include <gtest/gtest.h>
#include <sys/time.h>

namespace {

using namespace reflect_bench;

struct server_row {
    const char *name;
    std::unique_ptr<server> (*make)();
};

const server_row servers[] = {
    {"plain", []() -> std::unique_ptr<server> { return std::make_unique<plain_echo>(); }},
    {"batched", []() -> std::unique_ptr<server> { return std::make_unique<batched_echo>(); }}};

void PrintTo(const server_row &row, std::ostream *out)
{
    *out << row.name;
}

class echo_server_test : public testing::TestWithParam<server_row> {
  protected:
    echo_server_test()
    {
        const timeval patience{.tv_sec = 30, .tv_usec = 0};
        EXPECT_EQ(setsockopt(sender_.number(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
    }

    void send(const std::string &payload) const
    {
        const olv_net::socket_address to = server_->address();
        EXPECT_EQ(sendto(sender_.number(), payload.data(), payload.size(), 0,
                         reinterpret_cast<const sockaddr *>(&to.address), to.length),
                  static_cast<ssize_t>(payload.size()));
    }

    [[nodiscard]] std::string receive() const
    {
        std::string payload(4096, '\0');
        const ssize_t length = recv(sender_.number(), payload.data(), payload.size(), 0);
        payload.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        return payload;
    }

    udp_socket sender_{olv_net::parse_socket_address("127.0.0.1:0")};
    std::unique_ptr<server> server_ = GetParam().make();
};

TEST_P(echo_server_test, sends_back_what_it_gets)
{
    server_->start();
    EXPECT_EQ(server_->number_position(), 0u);
    for (const std::size_t length : {1u, 44u, 1400u, 44u}) {
        const std::string payload(length, static_cast<char>('a' + length % 26));
        send(payload);
        EXPECT_EQ(receive(), payload);
    }
    server_->stop();
}

TEST_P(echo_server_test, sends_back_each_of_many)
{
    server_->start();
    for (int number = 0; number < 200; ++number)
        send("datagram " + std::to_string(number));
    for (int number = 0; number < 200; ++number)
        EXPECT_EQ(receive(), "datagram " + std::to_string(number));
    server_->stop();
}

TEST_P(echo_server_test, stops_and_starts_again)
{
    server_->stop();
    for (int round = 0; round < 3; ++round) {
        server_->start();
        send("round");
        EXPECT_EQ(receive(), "round");
        server_->stop();
        server_->stop();
    }
}

INSTANTIATE_TEST_SUITE_P(servers, echo_server_test, testing::ValuesIn(servers),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace
