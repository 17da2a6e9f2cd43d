#include "fastpath/udp/socket_watch.hpp"

#include <cerrno>
#include <cstdint>
#include <stdexcept>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "net/binding.hpp"

namespace olv_fastpath {

namespace {

/** What stands for wake_, which is no socket. */
constexpr std::size_t woken = SIZE_MAX;

} // namespace

socket_watch::socket_watch()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!epoll_.is_open() || !wake_.is_open() || !watch(wake_.number(), woken)) {
        const int error = errno;
        throw std::runtime_error("cannot serve sockets: " + olv_net::reason_against_descriptor(error));
    }
}

bool socket_watch::watch(int socket, std::size_t index) const
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = index;
    return epoll_ctl(epoll_.number(), EPOLL_CTL_ADD, socket, &event) == 0;
}

bool socket_watch::forget(int socket) const
{
    return epoll_ctl(epoll_.number(), EPOLL_CTL_DEL, socket, nullptr) == 0;
}

std::span<const std::size_t> socket_watch::wait(int milliseconds)
{
    std::array<epoll_event, most_ready> events;
    const int count = epoll_wait(epoll_.number(), events.data(), most_ready, milliseconds);
    std::size_t sockets = 0;
    for (int number = 0; number < count; ++number) {
        const auto index = static_cast<std::size_t>(events[static_cast<std::size_t>(number)].data.u64);
        if (index == woken) {
            clear_wakes();
        } else {
            ready_[sockets++] = index;
        }
    }
    return {ready_.data(), sockets};
}

void socket_watch::wake() const
{
    const std::uint64_t one = 1;
    (void)!write(wake_.number(), &one, sizeof one); // fails only when it is to be woken already
}

void socket_watch::clear_wakes() const
{
    std::uint64_t wakes = 0;
    (void)!read(wake_.number(), &wakes, sizeof wakes); // fails only when there are none
}

} // namespace olv_fastpath
