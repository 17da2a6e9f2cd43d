/**
 * @file start_thread.hpp
 * Threads, and why there is none.
 */
#ifndef OLV_NET_START_THREAD_HPP
#define OLV_NET_START_THREAD_HPP

#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace olv_net {

/** @throw std::runtime_error  The system has no thread to give, and what limits them. */
template <typename Work> [[nodiscard]] std::thread start_thread(Work work)
{
    try {
        return std::thread{std::move(work)};
    } catch (const std::system_error &error) {
        throw std::runtime_error("no thread is to be had: " + error.code().message() +
                                 " (ulimit -u and -v, pids.max of the control group)");
    }
}

} // namespace olv_net

#endif
