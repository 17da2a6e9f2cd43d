#include "echo_server.hpp"

#include <array>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>

#include "fastpath/udp/receive_batch.hpp"

namespace olv_bench {
namespace {

constexpr std::size_t longest = 2048;
/** As many as the reflector takes at a time. */
constexpr std::size_t batch_length = olv_fastpath::receive_batch::capacity;

} // namespace

echo_server::~echo_server()
{
    end_thread();
}

void echo_server::start()
{
    socket_.emplace();
    stopping_ = false;
    thread_ = std::thread{[this] { loop_(socket_->number(), stopping_); }};
}

void echo_server::stop()
{
    end_thread();
    socket_.reset();
}

void echo_server::end_thread()
{
    if (!thread_.joinable()) {
        return;
    }
    stopping_ = true;
    // An empty datagram wakes the thread. Where the socket is full it cannot be sent, nor is it needed.
    const olv_net::socket_address own = address();
    (void)sendto(socket_->number(), "", 0, MSG_DONTWAIT, own.generic(), own.length);
    thread_.join();
}

void echo_one_by_one(int socket, const std::atomic<bool> &stopping)
{
    std::array<char, longest> buffer{};
    for (;;) {
        olv_net::socket_address sender;
        sender.length = sizeof sender.address;
        const ssize_t length =
            recvfrom(socket, buffer.data(), buffer.size(), 0, sender.generic(), &sender.length);
        if (stopping) {
            return;
        }
        if (length >= 0) {
            // What cannot be sent is lost; the generator counts it.
            (void)sendto(socket, buffer.data(), static_cast<std::size_t>(length), 0, sender.generic(),
                         sender.length);
        }
    }
}

void echo_in_batches(int socket, const std::atomic<bool> &stopping)
{
    std::vector<std::array<char, longest>> buffers(batch_length);
    std::array<sockaddr_in, batch_length> senders{};
    std::array<iovec, batch_length> parts{};
    std::array<mmsghdr, batch_length> messages{};
    for (std::size_t index = 0; index < batch_length; ++index) {
        messages[index].msg_hdr.msg_name = &senders[index];
        messages[index].msg_hdr.msg_namelen = sizeof senders[index];
        messages[index].msg_hdr.msg_iov = &parts[index];
        messages[index].msg_hdr.msg_iovlen = 1;
        parts[index] = {buffers[index].data(), longest};
    }
    for (;;) {
        const int received = recvmmsg(socket, messages.data(), batch_length, MSG_WAITFORONE, nullptr);
        if (stopping) {
            return;
        }
        const auto count = static_cast<std::size_t>(received < 0 ? 0 : received);
        for (std::size_t index = 0; index < count; ++index) {
            parts[index].iov_len = messages[index].msg_len;
        }
        for (std::size_t sent = 0; sent < count;) {
            const int taken = sendmmsg(socket, &messages[sent], static_cast<unsigned>(count - sent), 0);
            sent += taken > 0 ? static_cast<std::size_t>(taken) : 1; // one that cannot be sent is lost
        }
        for (std::size_t index = 0; index < count; ++index) {
            parts[index].iov_len = longest;
        }
    }
}

} // namespace olv_bench
