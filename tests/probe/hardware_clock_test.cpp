// The clock of a network interface, as a card's driver would have it. The system's calls about it are here.

#include "probe/hardware_clock.hpp"

#include <cerrno>
#include <cstdarg>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/ptp_clock.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr unsigned all_kinds =
    SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;

/** An interface and its driver. */
struct card {
    unsigned kinds = all_kinds;
    int clock = 7;
    hwtstamp_config set{};
    int refuses_to_switch = 0;            ///< An errno.
    int filter = HWTSTAMP_FILTER_ALL;     ///< What it makes of any other.
    int refuses_to_tell = 0;              ///< Its clock's time: an errno.
    std::vector<std::int64_t> readings{}; ///< System, card, system, ...: nanoseconds.
    std::vector<std::string> opened{};
    std::vector<std::string> interfaces{}; ///< That something was asked of.
};

card present; // NOLINT(cert-err58-cpp): nothing in it can fail

int fail(int error)
{
    errno = error;
    return -1;
}

int answer(unsigned long command, void *argument)
{
    if (command == PTP_SYS_OFFSET) {
        auto *offsets = static_cast<ptp_sys_offset *>(argument);
        for (std::size_t index = 0; index < present.readings.size(); ++index) {
            offsets->ts[index].sec = present.readings[index] / 1'000'000'000;
            offsets->ts[index].nsec = static_cast<std::uint32_t>(present.readings[index] % 1'000'000'000);
        }
        return present.refuses_to_tell == 0 ? 0 : fail(present.refuses_to_tell);
    }
    auto *call = static_cast<ifreq *>(argument);
    present.interfaces.emplace_back(call->ifr_name);
    if (command == SIOCETHTOOL) {
        auto *abilities = reinterpret_cast<ethtool_ts_info *>(call->ifr_data);
        abilities->so_timestamping = present.kinds;
        abilities->phc_index = present.clock;
        return 0;
    }
    auto *config = reinterpret_cast<hwtstamp_config *>(call->ifr_data);
    if (command == SIOCGHWTSTAMP) {
        *config = present.set;
        return 0;
    }
    if (present.refuses_to_switch != 0) {
        return fail(present.refuses_to_switch);
    }
    if (config->rx_filter != HWTSTAMP_FILTER_NONE) {
        config->rx_filter = present.filter;
    }
    present.set = *config;
    return 0;
}

} // namespace

extern "C" int ioctl(int descriptor, unsigned long command, ...) noexcept
{
    va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    const bool is_of_the_card = command == PTP_SYS_OFFSET || command == SIOCETHTOOL ||
                                command == SIOCGHWTSTAMP || command == SIOCSHWTSTAMP;
    return is_of_the_card ? answer(command, argument)
                          : static_cast<int>(syscall(SYS_ioctl, descriptor, command, argument));
}

extern "C" int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (std::string_view(path).starts_with("/dev/ptp")) {
        present.opened.emplace_back(path);
        return path == std::string("/dev/ptp9") ? fail(EACCES) : open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

namespace {

using namespace olv_probe;

class Hardware : public testing::Test {
  protected:
    Hardware()
    {
        present = {};
        // The second reading took the least time: the card is 37 s and 5 ns ahead.
        present.readings = {1000, 37'000'001'900, 2000, 37'000'002'055, 2100, 37'000'002'900,
                            3000, 37'000'003'900, 4000, 37'000'004'900, 5000};
        options_.interface = "card0";
    }

    /** Why there are no stamps to be had. */
    [[nodiscard]] std::string refusal() const
    {
        try {
            const hardware_clock clock{-1, options_};
        } catch (const std::runtime_error &error) {
            return error.what();
        }
        return "";
    }

    session_options options_;
};

TEST_F(Hardware, StampsAreToldInTheSystemsTime)
{
    hardware_clock clock{-1, options_};
    EXPECT_EQ(present.opened, std::vector<std::string>{"/dev/ptp7"});
    EXPECT_EQ(clock.wall_time_of(37'000'010'005), 10'000u);
    present.readings.assign(11, 0);
    clock.compare();
    EXPECT_EQ(clock.wall_time_of(10'000), 10'000u);
}

TEST_F(Hardware, IsSwitchedOnAndLeftAsItWas)
{
    {
        const hardware_clock clock{-1, options_};
        EXPECT_EQ(present.set.tx_type, HWTSTAMP_TX_ON);
        EXPECT_EQ(present.set.rx_filter, HWTSTAMP_FILTER_ALL);
    }
    EXPECT_EQ(present.set.tx_type, HWTSTAMP_TX_OFF);
    EXPECT_EQ(present.set.rx_filter, HWTSTAMP_FILTER_NONE);
    for (const std::string &each : present.interfaces) {
        EXPECT_EQ(each, "card0");
    }
}

TEST_F(Hardware, ThatIsOnAlreadyIsLeftAlone)
{
    present.set = {.flags = 0, .tx_type = HWTSTAMP_TX_ON, .rx_filter = HWTSTAMP_FILTER_ALL};
    present.refuses_to_switch = EPERM;
    EXPECT_EQ(refusal(), "");
}

TEST_F(Hardware, WithoutStampsSaysWhyAndIsLeftAsItWas)
{
    const auto reason = [](const std::string &text) {
        return "no hardware time stamps at card0: " + text + "; --timestamps kernel takes the system's";
    };
    const struct {
        card has;
        std::string reason;
    } rows[] = {
        {{.kinds = SOF_TIMESTAMPING_TX_HARDWARE}, "the interface has no clock that stamps packets"},
        {{.clock = -1}, "the interface has no clock that stamps packets"},
        {{.clock = 9}, "/dev/ptp9: Permission denied"},
        {{.refuses_to_switch = EPERM}, "switching them on needs the capability CAP_NET_ADMIN"},
        {{.refuses_to_switch = ERANGE}, "Numerical result out of range"},
        {{.filter = HWTSTAMP_FILTER_PTP_V2_EVENT}, "the interface stamps PTP packets alone"},
        {{.refuses_to_tell = EOPNOTSUPP}, "cannot read its clock: Operation not supported"},
    };
    for (const auto &row : rows) {
        present = row.has;
        EXPECT_EQ(refusal(), reason(row.reason));
        EXPECT_EQ(present.set.tx_type, HWTSTAMP_TX_OFF) << row.reason;
        EXPECT_EQ(present.set.rx_filter, HWTSTAMP_FILTER_NONE) << row.reason;
    }
}

TEST_F(Hardware, IsThatOfTheSendersAddress)
{
    options_.interface.clear();
    EXPECT_EQ(refusal(), "no interface has the sender's address; choose one with --interface");
    const olv_net::descriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const olv_net::socket_address local = olv_net::parse_socket_address("127.0.0.1:0");
    ASSERT_EQ(bind(socket.number(), local.generic(), local.length), 0);
    const hardware_clock clock{socket.number(), options_};
    EXPECT_EQ(present.interfaces.front(), "lo");
}

} // namespace
