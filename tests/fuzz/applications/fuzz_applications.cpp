// What the programs read: command lines, addresses, prefixes of addresses, replies. None of it may end a
// program other than by an error that says what is wrong.
#include <algorithm>
#include <array>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <netdb.h>

#include "apps/twamp-probe/probe_options.hpp"
#include "apps/twampctl/run/run_options.hpp"
#include "byte_source.hpp"
#include "difference.hpp"
#include "net/address_prefix.hpp"
#include "net/socket_address.hpp"
#include "probe/probe_figures.hpp"
#include "stream_capture.hpp"
#include "target.hpp"

/** In the place of the system's: names are not looked up, or each input would ask the network. */
extern "C" int getaddrinfo(const char *host, const char *port, const addrinfo *hints, addrinfo **found)
{
    static const auto of_the_system = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    addrinfo numeric = hints == nullptr ? addrinfo{} : *hints;
    numeric.ai_flags |= AI_NUMERICHOST;
    return of_the_system(host, port, &numeric, found);
}

namespace {

using olv_fuzz::report_difference;
using olv_fuzz::require;

/** What the programs promise; a test can change it, to see that a difference is noticed. */
struct {
    int usage_status = 2;
    std::string_view after_name = ": ";
    unsigned largest_dscp = 63;
    std::string_view address_prefix = "address '";
} expected;

/** The words of a command line, one on each line of the input. */
std::vector<std::string> words_of(std::string_view text)
{
    std::vector<std::string> words;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        words.emplace_back(line.substr(0, line.find('\0')));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

/** Read a command line. @return Whether @p options is filled. */
template <typename Options>
bool reads(std::string_view text, const char *program,
           std::optional<int> (*read)(const std::vector<std::string> &, Options &), Options &options)
{
    const std::vector<std::string> words = words_of(text);
    static olv_fuzz::stream_capture errors{stderr};
    static olv_fuzz::stream_capture prints{stdout};
    const std::optional<int> status =
        errors.during([&] { return prints.during([&] { return read(words, options); }); });
    const std::string &error = errors.text();
    const std::string &output = prints.text();
    if (!status) {
        require(error.empty() && output.empty(), "a command line that is taken prints nothing");
        return true;
    }
    require(*status == 0 || *status == expected.usage_status, "a command line is refused with its own status");
    if (*status == 0) {
        require(error.empty() && !output.empty(), "help is printed");
    } else {
        const std::string beginning = program + std::string{expected.after_name};
        require(error.starts_with(beginning) && error.size() > beginning.size() + 1,
                "an error begins with the program's name: " + error);
        require(error.ends_with('\n'), "an error ends its line");
    }
    return false;
}

void twampctl_command_line(std::string_view text)
{
    constexpr std::string_view command = "run\n";
    text.remove_prefix(text.starts_with(command) ? command.size() : 0);
    twampctl::run_options options;
    if (!reads(text, twampctl::program_name, twampctl::read_options, options)) {
        return;
    }
    require(!options.places.empty(), "something to listen on");
    require(options.responders >= 1 && options.responders <= 1000000, "responders in their range");
    require(options.capacity >= 1 && options.capacity <= 0xFFFFFE, "capacity in its range");
    require(!options.duration || options.duration->count() >= 0, "a duration is not negative");
    static constexpr std::array<std::uint32_t, 5> levels{0, 1, 3, 7, 15};
    require(!options.log_level || std::count(levels.begin(), levels.end(), *options.log_level) == 1,
            "a log level");
    require(options.fast_path.refwait_seconds >= 1, "a session has time");
    require(options.fast_path.workers >= 1 && options.fast_path.workers <= 64, "workers in their range");
}

void probe_command_line(std::string_view text)
{
    olv_probe::probe_options options;
    if (!reads(text, olv_probe::program_name, olv_probe::read_options, options)) {
        return;
    }
    const olv_probe::session_options &session = options.session;
    require(options.reflector.port != 0 && !options.reflector.host.empty(), "something to send to");
    require(session.count >= 1 && session.senders >= 1, "something to send");
    require(session.duration || std::uint64_t{session.count} * session.senders <= 10000000,
            "count in its range");
    require(!session.window || (*session.window >= 1 && *session.window <= 65536), "window in its range");
    require(session.interval.count() >= 0 && session.timeout.count() >= 0, "times are not negative");
    require(session.size >= (session.stamp ? 44u : 14u) && session.size <= 65507, "size in its range");
    require(session.ttl >= 1, "TTL in its range");
    require(!session.stamp || session.zero_padding, "STAMP packets are filled with zeros");
    require(session.dscp <= expected.largest_dscp, "DSCP in its range");
}

/** Parse a text. Refused: one line that says why. Taken: its own text means the same. */
template <typename Value>
void text_of(std::string_view text, Value (*parse)(std::string_view), const char *kind)
{
    std::string own;
    try {
        own = parse(text).text();
    } catch (const std::exception &error) {
        const std::string_view reason{error.what()};
        require(reason.starts_with(kind), "why a text is refused: " + std::string{reason});
        return;
    }
    try {
        require(parse(own).text() == own, "the text of what was parsed means the same: " + own);
    } catch (const std::exception &error) {
        report_difference("the text of what was parsed is refused: " + std::string{error.what()});
    }
}

void socket_address(std::string_view text)
{
    text_of(text, olv_net::parse_socket_address, expected.address_prefix.data());
}

void address_prefix(std::string_view text)
{
    text_of(text, olv_net::parse_address_prefix, "prefix '");
}

/** A session of some packets takes any replies: its counts add up, and what it measured is possible. */
void probe_reply(std::string_view text)
{
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(text.data());
    olv_fuzz::byte_source input{{bytes, text.size()}};
    const bool stamp = input.flag();
    const std::size_t length = std::max<std::size_t>(input.byte(), stamp ? 44 : 14);
    const auto stamps = input.flag() ? olv_probe::stamp_format::ptp : olv_probe::stamp_format::ntp;
    const auto judged = input.flag() ? olv_probe::judging::strict : olv_probe::judging::lenient;
    const olv_probe::test_packet_format format{length, stamp, input.byte(), stamps};
    olv_probe::measurement session{format, 255, judged};
    constexpr std::uint32_t packets = 8;
    const olv_probe::steady_clock::time_point start;
    std::vector<std::uint8_t> request(format.request_length());
    std::vector<olv_net::ntp_time> departures;
    for (std::uint32_t sequence = 0; sequence < packets; ++sequence) {
        departures.push_back({0xEC000000u + sequence + input.byte() / 250, std::uint32_t{input.byte()} << 24});
        session.request_sent(departures.back(), start + std::chrono::seconds(sequence));
    }
    for (unsigned replies = input.byte(); replies > 0; --replies) {
        const std::uint32_t sequence = input.byte() % packets;
        format.write_request(request, sequence, departures[sequence]);
        std::vector<std::uint8_t> reply(std::max<std::size_t>(input.byte(), format.reply_length()));
        std::copy_n(request.begin(), 14, reply.begin() + 24);
        std::copy_n(request.begin() + 4, 8, reply.begin() + 16);
        std::copy_n(request.begin() + 4, 8, reply.begin() + 4);
        for (unsigned changes = input.byte() % 8; changes > 0; --changes) {
            reply[input.byte() % reply.size()] = input.byte();
        }
        if (input.flag()) {
            reply.resize(input.byte());
        }
        (void)session.reply_received(
            {reply, start + std::chrono::seconds(packets) + std::chrono::milliseconds(input.byte()),
             input.byte()});
    }
    const olv_probe::measurement *result = &session;
    const olv_probe::probe_figures figures = olv_probe::figures_of({&result, 1});
    const olv_probe::packet_counts &counts = figures.counts;
    require(counts.valid + counts.odd + counts.duplicates <= counts.received, "counts of replies");
    require(counts.measured <= counts.valid + counts.odd && counts.valid + counts.odd <= counts.answered,
            "counts of what was measured");
    require(figures.lost.forward + figures.lost.backward + figures.lost.unknown == counts.lost(),
            "losses by direction");
    require(figures.round_trip.delay.count == counts.measured, "samples of what was measured");
    require(counts.measured == 0 || figures.round_trip.delay.minimum >= -10'000'000, "a round trip below 0");
}

// More parsers come at the end: the first byte of an input picks one.
constexpr std::array parsers{twampctl_command_line, probe_command_line, socket_address, address_prefix,
                             probe_reply};

} // namespace

const std::map<std::string_view, void (*)()> olv_fuzz::expectation_changes{
    {"status", [] { expected.usage_status = 1; }},
    {"error-text", [] { expected.after_name = " - "; }},
    {"range", [] { expected.largest_dscp = 62; }},
    {"reason", [] { expected.address_prefix = "prefix '"; }},
};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size > 0) {
        const std::string text{reinterpret_cast<const char *>(data) + 1, size - 1};
        parsers[data[0] % parsers.size()](text);
    }
    return 0;
}
