#include "control_program.hpp"

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

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

bound_sockets sockets_at(const std::string &address)
{
    std::array<char, 16> local{};
    (void)std::snprintf(local.data(), local.size(), "0100007F:%04X",
                        static_cast<unsigned>(std::stoul(address.substr(address.rfind(':') + 1))));
    std::ifstream table{"/proc/net/udp"};
    bound_sockets found;
    for (std::string line; std::getline(table, line);) {
        std::istringstream words{line};
        std::string number;
        std::string own;
        std::string peer;
        std::string state;
        std::string queues; // octets to be sent and to be taken
        words >> number >> own >> peer >> state >> queues;
        if (own == local.data()) {
            ++found.count;
            found.hold_packets = found.hold_packets || !queues.ends_with(":00000000");
        }
    }
    return found;
}

bool wait_until_taken(const std::string &address)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (sockets_at(address).hold_packets) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

loopback_socket::loopback_socket(const std::string &host)
    : local_(olv_net::parse_socket_address(host + ":0")),
      socket_(socket(local_.family(), SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    auto *address = reinterpret_cast<sockaddr *>(&local_.address);
    if (bind(socket_, address, local_.length) != 0 || getsockname(socket_, address, &local_.length) != 0) {
        (void)close(socket_); // nothing was sent
        throw std::runtime_error("no socket on " + host);
    }
}

loopback_socket::~loopback_socket()
{
    (void)close(socket_); // nothing is lost
}

std::optional<std::vector<std::uint8_t>> loopback_socket::receive(std::chrono::milliseconds limit)
{
    pollfd watched{.fd = socket_, .events = POLLIN, .revents = 0};
    if (poll(&watched, 1, static_cast<int>(limit.count())) <= 0) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> datagram(65536);
    peer_.length = sizeof peer_.address;
    const ssize_t received = recvfrom(socket_, datagram.data(), datagram.size(), 0,
                                      reinterpret_cast<sockaddr *>(&peer_.address), &peer_.length);
    if (received < 0) {
        return std::nullopt;
    }
    datagram.resize(static_cast<std::size_t>(received));
    return datagram;
}

void loopback_socket::answer(const std::vector<std::uint8_t> &datagram)
{
    (void)sendto(socket_, datagram.data(), datagram.size(), 0,
                 reinterpret_cast<const sockaddr *>(&peer_.address),
                 peer_.length); // the test sees what is missing
}

void loopback_socket::send_to(const std::string &address, const std::vector<std::uint8_t> &datagram)
{
    peer_ = olv_net::parse_socket_address(address);
    answer(datagram);
}

} // namespace e2e
