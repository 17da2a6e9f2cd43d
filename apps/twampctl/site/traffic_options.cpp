#include "apps/twampctl/site/traffic_options.hpp"

namespace twampctl {

void add_traffic_options(olv_apps::command to, traffic_options &options)
{
    using olv_net::sender_packet::header_length;
    to.add_option(
          "--stamp-mode", options.stamp_mode,
          "Sequence numbers of replies; stateless: the requests', nothing is kept of senders (stateful)")
        .one_of({"stateful", "stateless"});
    to.add_option("--refwait", options.fast_path.refwait_seconds, "Seconds until an idle session ends (900)")
        .whole_number_between(1, 1'000'000);
    to.add_option("--session-grace", options.fast_path.session_grace_seconds,
                  "Seconds until an idle session gives way to a new one (5)")
        .whole_number_between(1, 1'000'000);
    to.add_option("--allow", options.allowed,
                  "Answer no other senders than those in PREFIX, 192.0.2.0/24 or an address (repeatable)")
        .repeatable();
    to.add_option("--min-source-port", options.fast_path.minimum_source_port,
                  "Answer no lower source ports; default: none below 1024 but 862")
        .whole_number_between(1, 65535);
    to.add_option("--min-request", options.fast_path.minimum_request,
                  "Octets that a request has at least; 41: no reply is longer than its request (14)")
        .whole_number_between(header_length, olv_net::maximum_payload_ipv4);
    to.add_flag("--answer-groups", options.fast_path.answer_groups,
                "Answer what is sent to multicast groups and broadcast addresses, too");
    to.add_option("--rate", options.fast_path.packets_per_second,
                  "Packets that each responder takes in a second; default: no limit")
        .whole_number_between(1, 1'000'000'000);
    to.add_option("--unstamped-rate", options.fast_path.unstamped_packets_per_second,
                  "Packets a second of a session that have no plausible time stamp; 0: no limit (100)")
        .whole_number_between(0, 1'000'000'000);
    to.add_option(
          "--clock", options.clock,
          "What time stamps follow: the system's clock, or the state entry and the timer alone (system)")
        .one_of({"state", "system"});
    to.add_option("--workers", options.fast_path.workers,
                  "Threads that answer packets, each sender's by the same one (1)")
        .whole_number_between(1, olv_fastpath::fast_path_options::most_workers);
    to.add_option("--busy-poll", options.fast_path.busy_poll_microseconds,
                  "Microseconds to look for the next packet before sleeping; 0: never look (20)")
        .whole_number_between(0, 1'000'000);
    to.add_flag("--separate-replies", options.fast_path.separate_replies,
                "Send each reply by itself, as captures on this machine then show them");
}

void traffic_options::apply(olv_fastpath::fast_path_options &to) const
{
    to = fast_path;
    to.mode =
        stamp_mode == "stateless" ? olv_fastpath::stamp_mode::stateless : olv_fastpath::stamp_mode::stateful;
    to.clock = clock == "state" ? olv_fastpath::time_source::state : olv_fastpath::time_source::system;
    for (const std::string &each : allowed) {
        to.allowed_sources.add(olv_net::parse_address_prefix(each));
    }
}

} // namespace twampctl
