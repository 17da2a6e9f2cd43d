/**
 * @file socket_watch.hpp
 * Waits for packets at several sockets.
 */
#ifndef OLV_FASTPATH_SOCKET_WATCH_HPP
#define OLV_FASTPATH_SOCKET_WATCH_HPP

#include <array>
#include <cstddef>
#include <span>

#include "net/descriptor.hpp"

namespace olv_fastpath {

class socket_watch {
  public:
    /** @throw std::runtime_error  The system has no descriptors left. */
    socket_watch();

    // Any thread. Both return false with errno set.
    /** @param index  What wait() calls the socket. */
    [[nodiscard]] bool watch(int socket, std::size_t index) const;
    [[nodiscard]] bool forget(int socket) const;
    /** End this wait(), or the next one. */
    void wake() const;

    // One thread.
    /** Wait until packets wait at sockets. @param milliseconds  At most; -1: for ever.
     *  @return Some of these sockets. A view: good until the next wait. */
    [[nodiscard]] std::span<const std::size_t> wait(int milliseconds);

  private:
    void clear_wakes() const;

    static constexpr std::size_t most_ready = 16;

    olv_net::descriptor epoll_;
    olv_net::descriptor wake_;
    std::array<std::size_t, most_ready> ready_{};
};

} // namespace olv_fastpath

#endif
