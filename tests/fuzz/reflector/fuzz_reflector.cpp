// The reflector under packets of any size and content, between operations of the control side. After each step
// every packet received has been transmitted or dropped once, and every reply is what its request calls for.
#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "byte_source.hpp"
#include "difference.hpp"
#include "fastpath/core/reflector.hpp"
#include "fastpath/core/reply.hpp"
#include "hyx.h"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "olv_twamp.h"
#include "program_names.hpp"
#include "reflector_expectation.hpp"
#include "stream_capture.hpp"
#include "target.hpp"
#include "time_of_day.hpp"

namespace {

using olv_fastpath::drop_reason;
using olv_fastpath::fast_path_options;
using olv_fastpath::packet_path;
using olv_fastpath::received_packet;
using olv_fastpath::verdict;
using olv_fuzz::report_difference;
using olv_fuzz::require;
using olv_test::bind_tree;
using olv_test::responder_tree;

constexpr std::uint32_t responder_capacity = 5;
constexpr std::uint32_t global_statistics = 0x7008C1;
constexpr int maximum_steps = 200;
constexpr std::int64_t day_seconds = 1000000000;
constexpr std::uint64_t day_units = ((day_seconds + 2208988800ull) << 32) & UINT64_MAX;
constexpr std::uint8_t old_byte = 0xAA;

olv_fuzz::reflector_constants constants;

std::uint32_t read_word(olv_sim::state_words words, std::size_t word)
{
    return hyx_ntohl(words[word].load());
}

std::string name_of(const std::optional<drop_reason> &dropped)
{
    return dropped ? olv_fastpath::drop_reasons[static_cast<std::size_t>(*dropped)].name : "a reply";
}

class reflector_run {
  public:
    explicit reflector_run(olv_fuzz::byte_source input);
    ~reflector_run();
    reflector_run(const reflector_run &) = delete;
    reflector_run &operator=(const reflector_run &) = delete;

    void run();

  private:
    void step();
    void create();
    void remove();
    void change_bind();
    void set_default_entry();
    void change_default_entry(const char *tree, std::optional<std::uint32_t> return_value);
    void read_statistics();
    void advance();
    void packets_from_one() { packets(1); }
    void packets_from_many() { packets(1 + input_.below(64)); }
    /** The same packet from so many ports, one after the other. */
    void packets(std::uint32_t ports);
    void start_again();
    [[nodiscard]] fast_path_options options();
    [[nodiscard]] packet_path path();
    [[nodiscard]] std::vector<std::uint8_t> payload();
    void check_verdict(const verdict &made, std::span<const std::uint8_t> reply);
    void check_reply(std::uint32_t sequence_number, std::span<const std::uint8_t> reply);
    void check_conservation();

    olv_fuzz::byte_source input_;
    olv_sim::processor processor_;
    olv_sim::framework framework_;
    olv_module_handle *module_;
    std::uint64_t now_ = 1000;
    std::uint64_t last_creation_ = 0;
    bool started_again_ = false;
    fast_path_options options_;
    olv_fastpath::reflector reflector_;
    olv_fastpath::departing_replies departing_;
    olv_fuzz::reflector_expectation expected_;
    std::vector<twamp_responder_handle *> responders_;
    std::uint32_t bind_key_ = 0;
    received_packet received_; ///< The packet under way.
    packet_path path_;
};

reflector_run::reflector_run(olv_fuzz::byte_source input)
    : input_(input),
      processor_(olv_sim::classifier_program::twamp(responder_capacity, 4)),
      module_(framework_.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor_})),
      options_(options()),
      reflector_(processor_, options_),
      expected_(constants, options_, processor_.timer_frequency())
{
    olv_test::set_time_of_day(olv_test::time_of_day{day_seconds, 0});
    processor_.set_timer(now_);
    require(olv_twamp_init(module_) == 0, "the module comes up");
}

reflector_run::~reflector_run()
{
    while (!responders_.empty()) {
        hyx_nvm_free(responders_.back());
        responders_.pop_back();
    }
    (void)olv_twamp_shutdown(module_); // its context is the module's last block
}

fast_path_options reflector_run::options()
{
    static constexpr std::array<std::size_t, 4> lengths{14, 14, 0, 41};
    fast_path_options chosen;
    chosen.session_capacity = 256; // more than the responders may have; a larger table takes most of a run
    chosen.mode = input_.flag() ? olv_fastpath::stamp_mode::stateless : olv_fastpath::stamp_mode::stateful;
    chosen.refwait_seconds = input_.one_of<900, 1, 30, 1000000>();
    struct limits {
        std::uint32_t grace_seconds, unstamped_rate;
    };
    static constexpr std::array<limits, 4> all_limits{{{5, 100}, {1, 0}, {100, 1}, {5, 5}}};
    const limits picked = input_.pick(all_limits);
    chosen.session_grace_seconds = picked.grace_seconds;
    chosen.unstamped_packets_per_second = picked.unstamped_rate;
    chosen.minimum_request = input_.pick(lengths);
    return chosen;
}

void reflector_run::run()
{
    if (!input_.flag()) { // most inputs want a responder that answers
        create();
        change_bind();
    }
    for (int count = 0; count < maximum_steps && !input_.empty(); ++count) {
        step();
        check_conservation();
    }
}

void reflector_run::step()
{
    using run = reflector_run;
    static constexpr std::array steps{
        &run::create,  &run::remove,  &run::change_bind, &run::set_default_entry, &run::read_statistics,
        &run::advance, &run::advance, &run::start_again, &run::packets_from_many};
    const std::uint32_t number = input_.below(16);
    (this->*(number < steps.size() ? steps[number] : &run::packets_from_one))();
}

void reflector_run::create()
{
    // No two are created at the same reading of the timer: it is what tells them apart.
    last_creation_ = std::max(processor_.timer_now(), last_creation_) + 1;
    processor_.set_timer(last_creation_);
    const olv_twamp_responder_info info{input_.byte(), input_.byte()};
    twamp_responder_handle *responder = nullptr;
    if (olv_twamp_responder_create(module_, &info, &responder) == 0) {
        expected_.create(responder->responder_id,
                         {.created_units = day_units, .created_ticks = processor_.timer_now()});
        responders_.push_back(responder);
    } else {
        require(responders_.size() == responder_capacity, "a responder is created while there are IDs");
    }
}

void reflector_run::remove()
{
    if (responders_.empty()) {
        return;
    }
    const auto chosen = responders_.begin() + static_cast<std::ptrdiff_t>(
                                                  input_.below(static_cast<std::uint32_t>(responders_.size())));
    require(olv_twamp_responder_delete(module_, *chosen) == 0, "a responder is deleted");
    expected_.remove((*chosen)->responder_id);
    hyx_nvm_free(*chosen);
    responders_.erase(chosen);
}

/** Bind a key, or unbind it; whether it was bound decides the status. */
void reflector_run::change_bind()
{
    bind_key_ = input_.below(3);
    const bool binds = !input_.flag();
    olv_module_handle *destination = input_.flag() ? framework_.ipv6_module() : framework_.ipv4_module();
    const olv_bind_info info = olv_sim::make_bind_info(module_, destination, &bind_key_);
    static olv_fuzz::stream_capture console{stdout}; // a refused request is printed whatever the levels
    const auto change = binds ? olv_twamp_custom_bind : olv_twamp_custom_unbind;
    if (console.during([&] { return change(framework_.system(), &info); }) == 0) {
        binds ? expected_.bind(bind_key_) : expected_.unbind(bind_key_);
    }
}

/** Put an entry without a key in the place of the one that may be there; nothing: take it away. */
void reflector_run::change_default_entry(const char *tree, std::optional<std::uint32_t> return_value)
{
    const std::uint32_t rte = processor_.rte_handle();
    const std::uint32_t tree_id = processor_.tree(tree)->id();
    olv_ptn pattern{};
    olv_ptn_action action{{return_value.value_or(0), 0, 0}};
    require(olv_ptn_new(24, &pattern) == 0, "there is a pattern");
    (void)hyx_ptn_unlearn(rte, tree_id, &pattern, 0, &action, 1); // it need not be there
    if (return_value) {
        require(hyx_ptn_learn(rte, tree_id, &pattern, &action) == 0, "an entry without a key is learnt");
    }
    olv_ptn_free(pattern);
}

/** Entries without a key lead to IDs that nobody created: no packet is answered for them. */
void reflector_run::set_default_entry()
{
    const std::uint32_t choice = input_.below(4);
    const std::uint32_t value = input_.below(6);
    const bool of_binds = choice >= 2;
    const bool is_set = choice % 2 == 0;
    change_default_entry(of_binds ? bind_tree : responder_tree, is_set ? std::optional{value} : std::nullopt);
    if (of_binds) {
        expected_.set_default_bind(is_set);
    }
}

void reflector_run::read_statistics()
{
    olv_twamp_global_stats global{};
    require(olv_twamp_global_stats_get(module_, &global) == 0, "the module's counters are read");
    for (twamp_responder_handle *responder : responders_) {
        olv_twamp_responder_stats stats{};
        require(olv_twamp_responder_stats_get(module_, responder, &stats) == 0,
                "a responder's counters are read");
        require(started_again_ || stats.received <= global.total_rx,
                "no responder has more packets than the module");
    }
}

void reflector_run::advance()
{
    static constexpr std::array<std::uint64_t, 6> units{1,          1000,         1000000,
                                                        1000000000, 100000000000, 1000000000000};
    now_ += input_.pick(units) * input_.byte();
    processor_.set_timer(now_ + input_.below(4) * 500);
}

/** The module goes down and comes up again: responders and binds stay, counters of the module begin anew. */
void reflector_run::start_again()
{
    require(olv_twamp_shutdown(module_) == 0, "the module goes down");
    require(olv_twamp_init(module_) == 0, "the module comes up again");
    started_again_ = true;
}

packet_path reflector_run::path()
{
    return {.responder_id =
                input_.below(responder_capacity + 3) | input_.one_of<0, 0, 0x01000000, 0xFF000000>(),
            .bind_key = input_.below(4) | input_.one_of<0, 0, 0x01000000, 0xFF000000>()};
}

std::vector<std::uint8_t> reflector_run::payload()
{
    static constexpr std::array<std::size_t, 16> lengths{41, 44,  14,   13,   0,    40,    42, 43,
                                                         45, 100, 1472, 1500, 9000, 65507, 15, 1};
    const std::size_t length = input_.flag() ? input_.byte() : input_.pick(lengths);
    const std::span<const std::uint8_t> given = input_.bytes(std::min<std::size_t>(length, input_.below(64)));
    std::vector<std::uint8_t> content(length);
    std::copy(given.begin(), given.end(), content.begin());
    const std::uint8_t start = input_.byte();
    std::uint8_t next = start;
    for (std::size_t index = given.size(); index < length; ++index) {
        content[index] = next == old_byte ? ++next : next;
        ++next;
    }
    if (start % 8 == 1) {
        expected_.write_stamp(content, start / 8u);
    }
    return content;
}

void reflector_run::packets(std::uint32_t ports)
{
    const std::vector<std::uint8_t> content = payload();
    received_ = {};
    received_.payload = content;
    received_.arrival_ticks = now_;
    received_.ttl = input_.byte();
    received_.traffic_class = input_.byte();
    received_.sender.address[15] = static_cast<std::uint8_t>(input_.below(4));
    received_.sender.port = input_.byte();
    path_ = path();
    const std::size_t shortage = input_.byte() >= 248 ? 1 : 0;
    std::vector<std::uint8_t> reply(std::max<std::size_t>(content.size(), 44) - 4 * shortage, old_byte);
    for (const std::uint32_t repeats = 1 + input_.below(3); ports > 0; --ports, ++received_.sender.port) {
        for (std::uint32_t count = 0; count < repeats; ++count) { // so that a session grows
            std::fill(reply.begin(), reply.end(), old_byte);
            const verdict made = reflector_.reflect(received_, path_, reply);
            if (!made.dropped) {
                departing_.add(made.reply);
                departing_.stamp(reflector_.clock(), 0, reflector_.noted_departures());
            }
            check_verdict(made, reply);
        }
    }
}

void reflector_run::check_verdict(const verdict &made, std::span<const std::uint8_t> reply)
{
    const auto wanted = expected_.decide(received_, path_, reply.size(), made.dropped);
    if (made.dropped != wanted.dropped) {
        report_difference(name_of(wanted.dropped) + " expected, " + name_of(made.dropped) + " found");
    }
    const auto is_old = [](std::uint8_t byte) { return byte == old_byte; };
    if (made.dropped) {
        require(made.reply.bytes.empty(), "a packet that is dropped has no reply");
        require(std::all_of(reply.begin(), reply.end(), is_old),
                "a packet that is dropped leaves the buffer alone");
        return;
    }
    const std::size_t length = made.reply.bytes.size();
    require(length == expected_.reply_length(received_.payload.size()), "length of the reply");
    require(made.reply.traffic_class == (received_.traffic_class & 0xFC), "DSCP of the reply");
    require(std::all_of(reply.begin() + static_cast<std::ptrdiff_t>(length), reply.end(), is_old),
            "nothing is written behind the reply");
    check_reply(wanted.sequence_number, reply.first(length));
}

void reflector_run::check_reply(std::uint32_t sequence_number, std::span<const std::uint8_t> reply)
{
    const std::vector<std::uint8_t> wanted = expected_.reply(received_, path_, sequence_number, reply);
    const auto differs = std::mismatch(wanted.begin(), wanted.end(), reply.begin());
    if (differs.first != wanted.end()) {
        report_difference("byte " + std::to_string(differs.first - wanted.begin()) +
                          " of a reply: " + std::to_string(*differs.first) + " expected, " +
                          std::to_string(*differs.second) + " found");
    }
    std::uint64_t departure = 0;
    for (std::size_t index = 4; index < 12; ++index) {
        departure = departure << 8 | reply[index];
    }
    const std::uint64_t timer = std::max(processor_.timer_now(), received_.arrival_ticks);
    const std::uint64_t stamp = expected_.stamp(received_, expected_.instant(path_.responder_id, timer));
    const bool is_ptp = expected_.is_ptp(received_);
    // Stamps in NTP format stand between whole nanoseconds.
    require(departure - stamp <= (is_ptp ? 0 : 4), "departure time of a reply");
    expected_.note_departure(departure, is_ptp);
    require((reply[12] & 0xC0) == (is_ptp ? 0x40 : 0) && reply[13] != 0,
            "error estimate of a reply: the request's format, a multiplier");
}

/** received = transmitted + drops, in the global block and for each responder. */
void reflector_run::check_conservation()
{
    const olv_sim::state_words global = processor_.state(global_statistics);
    std::uint32_t accounted = read_word(global, 1);
    for (std::size_t word = constants.first_drop_word; word < global.size(); ++word) {
        accounted += read_word(global, word);
    }
    require(read_word(global, 0) == accounted, "the module: received = transmitted + drops");
    for (const auto &[id, created] : expected_.responders()) {
        const olv_sim::state_words state = processor_.state(id);
        const std::uint32_t drops = read_word(state, 11) + read_word(state, 12) + read_word(state, 14);
        require(read_word(state, 8) == read_word(state, 9) + drops,
                "a responder: received = transmitted + drops");
        const std::uint32_t active = read_word(state, 10);
        require(active <= constants.maximum_sessions, "no responder has too many sessions");
        require(active >= expected_.sessions_of(id, now_), "every session is counted");
    }
}

} // namespace

const std::map<std::string_view, void (*)()> olv_fuzz::expectation_changes{
    {"sequence-number", [] { constants.first_sequence_number = 1; }},
    {"sessions", [] { constants.maximum_sessions = 31; }},
    {"length", [] { constants.shortest_request = 15; }},
    {"time", [] { constants.seconds_offset = 1; }},
    {"conservation", [] { constants.first_drop_word = 3; }},
};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    olv_sim::violations::set_echo(false);
    const std::size_t blocks = olv_sim::memory::in_use().live_blocks;
    const std::size_t breaches = olv_sim::violations::count();
    reflector_run{olv_fuzz::byte_source{{data, size}}}.run();
    require(olv_sim::memory::in_use().live_blocks == blocks, "no block is left");
    require(olv_sim::violations::count() == breaches, "the platform's contract was kept");
    return 0;
}
