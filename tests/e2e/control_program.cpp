#include "control_program.hpp"

#include <sstream>
#include <stdexcept>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace e2e {
namespace {

std::vector<std::string> with_run(const std::vector<std::string> &arguments)
{
    std::vector<std::string> all{"run"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

} // namespace

control_program::control_program(const std::vector<std::string> &arguments)
    : program_(TWAMPCTL, with_run(arguments))
{
    std::istringstream line{program_.wait_for_line("ready ")};
    std::string word;
    line >> word; // "ready"
    while (line >> word) {
        addresses_.push_back(word);
    }
}

finished_program control_program::stop(int signal)
{
    program_.send_signal(signal);
    return wait();
}

finished_program control_program::wait()
{
    const int status = program_.wait();
    return {.status = status, .output = program_.output(), .errors = program_.errors()};
}

finished_program run_control(const std::vector<std::string> &arguments,
                             const child_program::preparation &prepare)
{
    return run_program(TWAMPCTL, with_run(arguments), prepare);
}

finished_program run_probe(const std::vector<std::string> &arguments)
{
    return run_program(TWAMP_PROBE, arguments);
}

int count_lines(const std::string &text, const std::string &part)
{
    std::istringstream lines{text};
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(part) != std::string::npos ? 1 : 0;
    }
    return count;
}

loopback_socket::loopback_socket() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    if (bind(socket_, reinterpret_cast<const sockaddr *>(&address), length) != 0 ||
        getsockname(socket_, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        throw std::runtime_error("no socket on loopback");
    }
    port_ = ntohs(address.sin_port);
}

loopback_socket::~loopback_socket()
{
    (void)close(socket_); // nothing is lost
}

std::string loopback_socket::address() const
{
    return "127.0.0.1:" + std::to_string(port_);
}

std::optional<std::vector<std::uint8_t>> loopback_socket::receive()
{
    pollfd watched{.fd = socket_, .events = POLLIN, .revents = 0};
    if (poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(patience).count())) <= 0) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> datagram(65536);
    socklen_t length = sizeof peer_;
    const ssize_t received =
        recvfrom(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&peer_), &length);
    if (received < 0) {
        return std::nullopt;
    }
    datagram.resize(static_cast<std::size_t>(received));
    return datagram;
}

void loopback_socket::answer(const std::vector<std::uint8_t> &datagram)
{
    (void)sendto(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&peer_),
                 sizeof peer_); // the test sees what is missing
}

void loopback_socket::send_to(const std::string &address, const std::vector<std::uint8_t> &datagram)
{
    peer_ = loopback(static_cast<std::uint16_t>(std::stoul(address.substr(address.rfind(':') + 1))));
    answer(datagram);
}

} // namespace e2e
