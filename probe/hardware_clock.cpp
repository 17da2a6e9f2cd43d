#include "probe/hardware_clock.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/ptp_clock.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "net/ip_address.hpp"
#include "net/socket_address.hpp"

namespace olv_probe {
namespace {

/** Clocks of interfaces drift by less than 100 nanoseconds in this time, as a rule. */
constexpr std::chrono::milliseconds between_comparisons{10};
constexpr unsigned readings = 5;

[[noreturn]] void refuse(const std::string &interface, const std::string &reason)
{
    throw std::runtime_error("no hardware time stamps at " + interface + ": " + reason +
                             "; --timestamps kernel takes the system's");
}

/** @return The interface that has this address; empty: none has it. */
std::string interface_of(const olv_net::socket_address &local)
{
    ifaddrs *all = nullptr;
    std::string name;
    if (getifaddrs(&all) != 0) {
        return name;
    }
    const olv_net::ip_address wanted = olv_net::endpoint_of(local.address).address;
    for (const ifaddrs *each = all; each != nullptr && name.empty(); each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != local.family()) {
            continue;
        }
        sockaddr_storage address{};
        std::memcpy(&address, each->ifa_addr, local.length);
        if (olv_net::endpoint_of(address).address == wanted) {
            name = each->ifa_name;
        }
    }
    freeifaddrs(all);
    return name;
}

std::int64_t nanoseconds_of(const ptp_clock_time &time)
{
    return time.sec * 1'000'000'000 + time.nsec;
}

} // namespace

hardware_clock::hardware_clock(int socket, const session_options &options)
    : interface_(options.interface), control_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    if (interface_.empty()) {
        const auto local = olv_net::local_address_of(socket);
        interface_ = local ? interface_of(*local) : "";
    }
    if (interface_.empty()) {
        throw std::runtime_error("no interface has the sender's address; choose one with --interface");
    }
    check_interface();
    open_clock();
    compare();
    switch_on(); // last: whatever is refused before leaves the interface as it was
}

hardware_clock::~hardware_clock()
{
    restore();
}

void hardware_clock::restore()
{
    if (changed_) {
        (void)request(SIOCSHWTSTAMP, &before_); // nobody is left to be told
    }
}

int hardware_clock::request(int command, void *argument) const
{
    ifreq call{};
    (void)interface_.copy(call.ifr_name, sizeof call.ifr_name - 1); // the system knows no longer names
    call.ifr_data = static_cast<char *>(argument);
    return ioctl(control_.number(), static_cast<unsigned long>(command), &call);
}

void hardware_clock::check_interface()
{
    ethtool_ts_info abilities{};
    abilities.cmd = ETHTOOL_GET_TS_INFO;
    if (request(SIOCETHTOOL, &abilities) != 0) {
        refuse(interface_, std::strerror(errno));
    }
    constexpr unsigned needed =
        SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
    if ((abilities.so_timestamping & needed) != needed || abilities.phc_index < 0) {
        refuse(interface_, "the interface has no clock that stamps packets");
    }
    clock_number_ = abilities.phc_index;
}

void hardware_clock::open_clock()
{
    const std::string path = "/dev/ptp" + std::to_string(clock_number_);
    clock_ = olv_net::descriptor{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (!clock_.is_open()) {
        refuse(interface_, path + ": " + std::strerror(errno));
    }
}

void hardware_clock::switch_on()
{
    const bool known = request(SIOCGHWTSTAMP, &before_) == 0;
    if (known && before_.tx_type == HWTSTAMP_TX_ON && before_.rx_filter == HWTSTAMP_FILTER_ALL) {
        return;
    }
    hwtstamp_config wanted{.flags = 0, .tx_type = HWTSTAMP_TX_ON, .rx_filter = HWTSTAMP_FILTER_ALL};
    if (request(SIOCSHWTSTAMP, &wanted) != 0) {
        refuse(interface_,
               errno == EPERM ? "switching them on needs the capability CAP_NET_ADMIN" : std::strerror(errno));
    }
    changed_ = known;
    if (wanted.rx_filter != HWTSTAMP_FILTER_ALL) { // the driver writes there what it does
        restore();
        refuse(interface_, "the interface stamps PTP packets alone");
    }
}

void hardware_clock::compare()
{
    ptp_sys_offset offsets{};
    offsets.n_samples = readings;
    if (ioctl(clock_.number(), PTP_SYS_OFFSET, &offsets) != 0) {
        refuse(interface_, std::string("cannot read its clock: ") + std::strerror(errno));
    }
    // The system's clock stands before and after each reading: the one that took the least time is the best.
    std::int64_t least = INT64_MAX;
    for (unsigned index = 0; index < readings; ++index) {
        const std::int64_t before = nanoseconds_of(offsets.ts[std::size_t{2} * index]);
        const std::int64_t there = nanoseconds_of(offsets.ts[std::size_t{2} * index + 1]);
        const std::int64_t after = nanoseconds_of(offsets.ts[std::size_t{2} * index + 2]);
        if (after - before < least) {
            least = after - before;
            ahead_ = there - before - (after - before) / 2;
        }
    }
    compared_ = std::chrono::steady_clock::now();
}

std::uint64_t hardware_clock::wall_time_of(std::uint64_t stamp)
{
    if (std::chrono::steady_clock::now() - compared_ >= between_comparisons) {
        compare();
    }
    return stamp - static_cast<std::uint64_t>(ahead_);
}

} // namespace olv_probe
