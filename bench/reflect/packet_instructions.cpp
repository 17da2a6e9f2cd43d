// packet_instructions: what callgrind counts for one packet of a known session, from
// reflector::batch::reflect() to the time of departure in the reply, in a dump for each length of requests. See
// scripts/instructions.sh.
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <string>
#include <vector>

#include <valgrind/callgrind.h>

#include "fastpath/core/reflector.hpp"
#include "fastpath/core/reply.hpp"
#include "net/wall_clock.hpp"
#include "reflector_server.hpp"

namespace {

constexpr std::uint32_t sessions = 1000;
constexpr std::uint32_t batches = 32;
constexpr std::uint32_t batch_length = 32; ///< Packets that the server counts together.
constexpr std::uint32_t packets = batches * batch_length;
constexpr std::size_t lengths[] = {41, 44, 1400};

olv_fastpath::received_packet packet_of(std::uint32_t session, std::span<const std::uint8_t> request,
                                        std::uint64_t now)
{
    olv_fastpath::received_packet packet;
    packet.payload = request;
    packet.arrival_ticks = now;
    packet.ttl = 64;
    packet.sender.address = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 10, 0, 0, 0};
    packet.sender.address[14] = static_cast<std::uint8_t>(session >> 8);
    packet.sender.address[15] = static_cast<std::uint8_t>(session);
    packet.sender.port = 5000;
    return packet;
}

// Not inlined: counted by their own names.

[[gnu::noinline]] bool take(olv_fastpath::reflector::batch &batch, olv_fastpath::departing_replies &replies,
                            const olv_fastpath::received_packet &packet, const olv_fastpath::packet_path &path,
                            std::span<std::uint8_t> room)
{
    const olv_fastpath::verdict made = batch.reflect(packet, path, room);
    if (made.dropped) {
        return false;
    }
    replies.add(made.reply);
    return true;
}

[[gnu::noinline]] void end(olv_fastpath::reflector::batch &batch, olv_fastpath::departing_replies &replies,
                           const olv_fastpath::reflector &subject)
{
    batch.count();
    replies.stamp(subject.clock(), 0, subject.noted_departures());
}

class driver {
  public:
    /** @param length  Octets of a request. */
    explicit driver(std::size_t length) : request_(length), reply_(olv_fastpath::reply_length(length))
    {
        olv_net::store_ntp(&request_[olv_net::sender_packet::timestamp],
                           olv_net::ntp_time_of(olv_net::wall_time()));
    }

    /** Reflect packets of all sessions, in batches. Not inlined: its own instructions are left out by its name.
     *  @return Packets that were not reflected. */
    [[gnu::noinline]] std::uint32_t reflect_batches()
    {
        std::uint32_t failures = 0;
        for (std::uint32_t batch = 0; batch < batches; ++batch) {
            olv_fastpath::reflector::batch together{reflector_};
            for (std::uint32_t number = 0; number < batch_length; ++number) {
                failures += reflect(together, (batch * batch_length + number) * 7 % sessions) ? 0 : 1;
            }
            CALLGRIND_TOGGLE_COLLECT;
            end(together, replies_, reflector_);
            CALLGRIND_TOGGLE_COLLECT;
        }
        return failures;
    }

  private:
    bool reflect(olv_fastpath::reflector::batch &batch, std::uint32_t session)
    {
        const olv_fastpath::received_packet packet =
            packet_of(session, request_, site_.processor().timer_now());
        const olv_fastpath::packet_path path = site_.path();
        CALLGRIND_TOGGLE_COLLECT;
        const bool reflected = take(batch, replies_, packet, path, reply_);
        CALLGRIND_TOGGLE_COLLECT;
        return reflected;
    }

    std::vector<std::uint8_t> request_;
    std::vector<std::uint8_t> reply_;
    olv_bench::responder_site site_{sessions};
    olv_fastpath::reflector reflector_{site_.processor()};
    olv_fastpath::departing_replies replies_;
};

/** @param length  Octets of a request. @return Packets that were not reflected. */
std::uint32_t measure(std::size_t length)
{
    driver measured{length};
    std::uint32_t failures = measured.reflect_batches(); // begins the sessions
    failures += measured.reflect_batches();              // establishes them
    CALLGRIND_ZERO_STATS;
    failures += measured.reflect_batches();
    const std::string name = std::to_string(packets) + " packets of " + std::to_string(length) + " octets";
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    return failures;
}

} // namespace

int main()
{
    try {
        for (const std::size_t length : lengths) {
            const std::uint32_t failures = measure(length);
            if (failures != 0) {
                std::fprintf(stderr, "packet_instructions: %u packets of %zu octets were not reflected\n",
                             failures, length);
                return EXIT_FAILURE;
            }
        }
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "packet_instructions: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
