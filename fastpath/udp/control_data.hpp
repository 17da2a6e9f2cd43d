/**
 * @file control_data.hpp
 * What the system tells, or is told, of a message besides its octets.
 */
#ifndef OLV_FASTPATH_CONTROL_DATA_HPP
#define OLV_FASTPATH_CONTROL_DATA_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include <sys/socket.h>

#include "net/ip_address.hpp"

namespace olv_fastpath {

struct control_buffer {
    alignas(cmsghdr) std::array<std::uint8_t, 256> bytes;
};

/** The address that a reply leaves from, where the socket has several. */
struct reply_source {
    olv_net::ip_address address{};
    unsigned interface = 0; ///< 0: the one that routing chooses.

    friend bool operator==(const reply_source &, const reply_source &) = default;
};

/** One record of control data. */
class control_record {
  public:
    explicit control_record(const cmsghdr *header) : header_(header) {}

    [[nodiscard]] bool is(int level, int type) const
    {
        return header_->cmsg_level == level && header_->cmsg_type == type;
    }
    template <typename Value> [[nodiscard]] Value value() const
    {
        Value value{};
        std::memcpy(&value, CMSG_DATA(header_), sizeof value);
        return value;
    }

  private:
    const cmsghdr *header_;
};

/** Go through a message's control data. */
template <typename Visitor> void for_each_control_record(const msghdr &message, Visitor visit)
{
    const auto *place = static_cast<const std::uint8_t *>(message.msg_control);
    std::size_t left = message.msg_controllen;
    while (left >= sizeof(cmsghdr)) {
        const auto *header = reinterpret_cast<const cmsghdr *>(place);
        if (header->cmsg_len < sizeof(cmsghdr) || header->cmsg_len > left) {
            return;
        }
        visit(control_record{header});
        const std::size_t step = std::min<std::size_t>(CMSG_ALIGN(header->cmsg_len), left);
        place += step;
        left -= step;
    }
}

/** Writes control data, one record after the other. */
class control_writer {
  public:
    /** @param length  Of what stands in the buffer already. */
    explicit control_writer(control_buffer &buffer, std::size_t length = 0)
        : buffer_(buffer.bytes), length_(length)
    {}

    template <typename Value> void add(int level, int type, const Value &value)
    {
        cmsghdr header{};
        header.cmsg_level = level;
        header.cmsg_type = type;
        header.cmsg_len = CMSG_LEN(sizeof value);
        std::memcpy(&buffer_[length_], &header, sizeof header);
        std::memcpy(&buffer_[length_ + CMSG_LEN(0)], &value, sizeof value);
        length_ += CMSG_SPACE(sizeof value);
    }

    [[nodiscard]] std::size_t length() const { return length_; }

  private:
    std::span<std::uint8_t> buffer_;
    std::size_t length_;
};

} // namespace olv_fastpath

#endif
