/**
 * @file control_program.hpp
 * The two programs with what tests usually do with them, and a socket of the test's own.
 */
#ifndef OLV_TESTS_CONTROL_PROGRAM_HPP
#define OLV_TESTS_CONTROL_PROGRAM_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "child_program.hpp"
#include "net/socket_address.hpp"

namespace e2e {

/** A twampctl that answers packets. */
class control_program {
  public:
    /** Waits until it is ready. @param arguments  What follows "run". */
    explicit control_program(const std::vector<std::string> &arguments);

    /** Empty when it did not become ready. */
    [[nodiscard]] const std::vector<std::string> &addresses() const { return addresses_; }
    /** Send it a signal and wait for its end. */
    finished_program stop(int signal);
    finished_program wait();

  private:
    child_program program_;
    std::vector<std::string> addresses_;
};

[[nodiscard]] finished_program run_control(const std::vector<std::string> &arguments,
                                           const child_program::preparation &prepare = {});
[[nodiscard]] finished_program run_probe(const std::vector<std::string> &arguments);

/** How many lines of the text contain this. */
[[nodiscard]] int count_lines(const std::string &text, const std::string &part);

/** UDP sockets of this system that are bound to "127.0.0.1:PORT". */
struct bound_sockets {
    int count = 0;
    bool hold_packets = false; ///< That nobody has taken yet.
};
[[nodiscard]] bound_sockets sockets_at(const std::string &address);
/** Wait until the program that listens at "127.0.0.1:PORT" has taken all that was sent there. @return Whether
 * it has. */
[[nodiscard]] bool wait_until_taken(const std::string &address);

/** A socket on a port of this host that the system chose. */
class loopback_socket {
  public:
    /** @param host  "127.0.0.1", "[::1]". @throw std::runtime_error  This host has no such address. */
    explicit loopback_socket(const std::string &host = "127.0.0.1");
    ~loopback_socket();
    loopback_socket(const loopback_socket &) = delete;
    loopback_socket &operator=(const loopback_socket &) = delete;

    [[nodiscard]] std::uint16_t port() const { return local_.port(); }
    /** "127.0.0.1:PORT". */
    [[nodiscard]] std::string address() const { return local_.text(); }

    /** Wait for a datagram and remember who sent it. @return Nothing when none comes. */
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> receive(std::chrono::milliseconds limit = patience);
    /** To whoever sent the last one. */
    void answer(const std::vector<std::uint8_t> &datagram);
    /** To "127.0.0.1:PORT", "[::1]:PORT". */
    void send_to(const std::string &address, const std::vector<std::uint8_t> &datagram);

  private:
    olv_net::socket_address local_;
    olv_net::socket_address peer_;
    int socket_;
};

} // namespace e2e

#endif
