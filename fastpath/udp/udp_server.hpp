/**
 * @file udp_server.hpp
 * Moves test packets between UDP sockets and a reflector.
 *
 *     olv_fastpath::reflector reflector{processor};
 *     olv_fastpath::udp_server server{reflector};
 *     server.add(olv_net::parse_socket_address("127.0.0.1:0"), {.responder_id = 1, .bind_key = 5});
 *     server.start();
 */
#ifndef OLV_FASTPATH_UDP_SERVER_HPP
#define OLV_FASTPATH_UDP_SERVER_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "fastpath/core/options.hpp"
#include "fastpath/core/packet.hpp"
#include "fastpath/core/reflector.hpp"
#include "fastpath/core/statistics.hpp"
#include "fastpath/udp/listening_socket.hpp"
#include "fastpath/udp/packet_carrier.hpp"
#include "fastpath/udp/socket_watch.hpp"
#include "net/socket_address.hpp"

namespace olv_fastpath {

/**
 * Listeners and the thread that serves them, in turn, so many packets each.
 *
 * The reflector belongs to the thread while it runs, and has to outlive the server. All calls may come from
 * any thread, start() and stop() from one at a time. Listeners can be added, removed and moved to another path
 * while the thread runs.
 */
class udp_server {
  public:
    /** @param options  With several workers, sessions that are idle here end within a second even though no
     *                  packet comes, so that others may begin at another worker's reflector.
     *  @param limits   That it shares with other servers; NULL: its own, by the options.
     *  @throw std::runtime_error  The system has no descriptors left. */
    explicit udp_server(reflector &reflecting, const fast_path_options &options = {},
                        std::shared_ptr<responder_limits> limits = nullptr);
    /** Stops and closes. */
    ~udp_server();
    udp_server(const udp_server &) = delete;
    udp_server &operator=(const udp_server &) = delete;

    /**
     * Open a socket. Its packets wait in it until the thread runs.
     * @return Its index; indices of removed ones are not used again.
     * @throw std::runtime_error  One line: the address, and why it cannot be listened on. Nothing is left open.
     */
    std::size_t add(const olv_net::socket_address &address, const packet_path &path)
    {
        return add(listening_socket{address}, path);
    }
    /** The same with a socket that is open, and let in to here. */
    std::size_t add(listening_socket socket, const packet_path &path);
    /** Close a socket. @throw std::out_of_range  No socket has this index, here and below. */
    void remove(std::size_t index) { (void)release(index); /* closes it */ }
    /** Serve a socket no more, without closing it. */
    listening_socket release(std::size_t index);
    void set_path(std::size_t index, const packet_path &path);
    [[nodiscard]] packet_path path(std::size_t index) const;
    /** The address with the port that the socket really has. */
    [[nodiscard]] olv_net::socket_address local_address(std::size_t index) const;

    /** Start the thread; nothing when it runs. @throw std::runtime_error  There is no thread to be had. */
    void start();
    /** End the thread and wait for it; nothing when there is none. It can be started again. */
    void stop();
    [[nodiscard]] bool running() const { return worker_.joinable(); }

    /** Of all listeners, removed ones included. */
    [[nodiscard]] listener_statistics statistics() const;
    [[nodiscard]] listener_statistics statistics(std::size_t index) const;
    /** The reflector's sessions at an instant, the longest idle one first; while the thread runs, too. */
    [[nodiscard]] std::vector<session_summary> sessions_at(std::uint64_t now) const;
    /** End the reflector's sessions, of one responder or of all. @return How many. */
    std::uint32_t clear_sessions(std::optional<std::uint32_t> responder_id);
    [[nodiscard]] std::uint64_t sessions_that_gave_way() const;
    /** Have the thread look soon whether another reflector asks for a place. */
    void ring() const { watch_.wake(); }

  private:
    /** A mutex that whoever waits for it gets next, however soon its holder wants it again. */
    class fair_mutex {
      public:
        void lock()
        {
            const std::lock_guard turn{next_};
            mutex_.lock();
        }
        void unlock() { mutex_.unlock(); }

      private:
        std::mutex next_; ///< Held while waiting.
        std::mutex mutex_;
    };

    /** @return The index. @throw std::out_of_range  No listener that is open has it. */
    [[nodiscard]] std::size_t open_index(std::size_t index) const;
    void run();
    /** How long to wait for packets, in milliseconds; -1: for ever. */
    [[nodiscard]] int longest_wait() const;
    void end_idle_sessions();
    void give_place();
    /** Serve a listener whose packets the watch has told of. */
    void serve_woken(std::size_t index);
    /** Serve the busy listeners, and watch those that are busy no more. @return Messages received. */
    std::size_t serve_busy();
    /** Watch the listener at a place of the busy ones. */
    void watch_again(std::size_t place);

    reflector &reflector_;
    fast_path_options options_;
    mutable fair_mutex mutex_; ///< Guards what follows; the thread holds it while it serves packets.
    packet_carrier carrier_;
    std::vector<udp_listener> listeners_;
    socket_watch watch_;
    /** Listeners that packets come to so fast that the thread looks by itself. They are not watched: telling
     *  the watch of each packet received and of each one sent would cost both sides more than looking. */
    std::vector<std::size_t> busy_;
    std::thread worker_;
    std::atomic<bool> stopping_{false};
};

} // namespace olv_fastpath

#endif
