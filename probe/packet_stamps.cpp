#include "probe/packet_stamps.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>

#include <linux/errqueue.h>
#include <linux/net_tstamp.h>
#include <netinet/in.h>

namespace olv_probe {
namespace {

/** Departures taken from the system at once. */
constexpr std::size_t departures_at_once = 32;
constexpr std::size_t departure_control_room = 256;
/** By which the stamps of two clocks may contradict each other. */
constexpr std::chrono::microseconds inaccuracy{20};

bool request_stamps(int socket, unsigned kinds)
{
    // Departures come without the packets, numbered as the packets were sent.
    const unsigned flags = kinds | SOF_TIMESTAMPING_OPT_ID | SOF_TIMESTAMPING_OPT_TSONLY;
    return setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPING, &flags, sizeof flags) == 0;
}

constexpr unsigned kernel_kinds =
    SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
constexpr unsigned hardware_kinds =
    SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;

template <typename Content> Content content_of(const cmsghdr &part)
{
    Content content{};
    std::memcpy(&content, CMSG_DATA(&part), sizeof content);
    return content;
}

/** @return The number of the packet that left; nothing: the message is about something else. */
std::optional<std::uint32_t> key_of(msghdr &message)
{
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        const bool ipv4 = part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_RECVERR;
        const bool ipv6 = part->cmsg_level == IPPROTO_IPV6 && part->cmsg_type == IPV6_RECVERR;
        if (ipv4 || ipv6) {
            const auto error = content_of<sock_extended_err>(*part);
            return error.ee_origin == SO_EE_ORIGIN_TIMESTAMPING ? std::optional{error.ee_data} : std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace

void packet_stamps::enable(int socket, const session_options &options)
{
    const timestamp_source wanted = options.timestamps.value_or(timestamp_source::kernel);
    if (wanted == timestamp_source::user) {
        return;
    }
    if (wanted == timestamp_source::hardware) {
        hardware_ = std::make_unique<hardware_clock>(socket, options);
    }
    if (request_stamps(socket, hardware_ ? hardware_kinds : kernel_kinds)) {
        source_ = wanted;
    } else if (options.timestamps) {
        throw std::runtime_error(std::string("the system gives no time stamps: ") + std::strerror(errno) +
                                 "; --timestamps user takes the program's own");
    }
}

std::optional<steady_clock::time_point> packet_stamps::instant_of_message(msghdr &message) const
{
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_TIMESTAMPING) {
            continue;
        }
        const auto stamps = content_of<scm_timestamping>(*part);
        const auto &stamp = stamps.ts[hardware_ ? 2 : 0];
        const std::uint64_t nanoseconds = static_cast<std::uint64_t>(stamp.tv_sec) * 1'000'000'000u +
                                          static_cast<std::uint64_t>(stamp.tv_nsec);
        if (nanoseconds != 0) {
            return clock_.instant_of_stamp(hardware_ ? hardware_->wall_time_of(nanoseconds) : nanoseconds);
        }
    }
    return std::nullopt;
}

void packet_stamps::read_at(const olv_net::clock_reading &now)
{
    clock_.read(now);
    if (hardware_ && clock_.was_set()) {
        hardware_->compare();
    }
}

steady_clock::time_point packet_stamps::arrival_of(msghdr &message)
{
    if (source_ == timestamp_source::user) {
        return steady_clock::now();
    }
    const olv_net::clock_reading now = read_clocks();
    read_at(now);
    const std::optional<steady_clock::time_point> came = instant_of_message(message);
    counts_.replies += came ? 1 : 0;
    return came.value_or(instant_of(now));
}

void packet_stamps::take_departures(int socket, measurement &sent)
{
    if (source_ == timestamp_source::user) {
        return;
    }
    std::array<mmsghdr, departures_at_once> messages{};
    alignas(cmsghdr) std::array<std::array<char, departure_control_room>, departures_at_once> controls{};
    int taken = departures_at_once;
    while (taken == departures_at_once) {
        for (std::size_t index = 0; index < departures_at_once; ++index) {
            messages[index].msg_hdr.msg_control = controls[index].data();
            messages[index].msg_hdr.msg_controllen = departure_control_room;
        }
        taken = recvmmsg(socket, messages.data(), departures_at_once, MSG_ERRQUEUE | MSG_DONTWAIT, nullptr);
        if (taken <= 0) {
            return; // none is left; what else is wrong with the socket shows where it is read
        }
        read_at(read_clocks());
        for (int index = 0; index < taken; ++index) {
            msghdr &message = messages[static_cast<std::size_t>(index)].msg_hdr;
            const std::optional<std::uint32_t> key = key_of(message);
            const std::optional<steady_clock::time_point> left = instant_of_message(message);
            if (key && left) {
                correct(*key, *left, sent);
            }
        }
    }
}

void packet_stamps::correct(std::uint32_t key, steady_clock::time_point left, measurement &sent)
{
    for (;; ++skipped_keys_) {
        const std::uint32_t number = key - skipped_keys_;
        const bool is_sent = static_cast<std::int32_t>(number - sent.sent()) < 0;
        const std::optional<steady_clock::time_point> departure = sent.departure_of(number);
        if (is_sent && !departure) {
            return; // kept no longer
        }
        if (departure && left - *departure >= -inaccuracy) {
            sent.correct_departure(number, left - *departure);
            ++counts_.requests;
            return;
        }
        // Some systems number packets, too, that they then refuse: then it is a packet before.
        if (skipped_keys_ == refused_) {
            return;
        }
    }
}

} // namespace olv_probe
