/**
 * @file reports.hpp
 * Reports of sessions with packets that a test writes itself.
 */
#ifndef OLV_TESTS_PROBE_REPORTS_HPP
#define OLV_TESTS_PROBE_REPORTS_HPP

#include <algorithm>
#include <utility>

#include "apps/common/run_report.hpp"

#include "packets.hpp"

namespace olv_probe {

inline run_report report_of(const scripted_session &session)
{
    run_report report;
    report.options.reflector = olv_net::parse_socket_address("192.0.2.1:862");
    report.options.count = 4;
    report.started = 1'795'387'251'446'565'999;
    report.timestamps = timestamp_source::kernel;
    report.elapsed = std::chrono::milliseconds(1500);
    const measurement *result = &session.result;
    report.total = figures_of({&result, 1});
    report.stamps = {.requests = report.total.counts.sent, .replies = 3};
    report.senders.push_back({.address = "192.0.2.9:40000", .figures = report.total});
    return report;
}

/** Eight packets: one is lost forward, then the reflector's clock goes a second forward, then its numbers begin
 *  anew; the last reply has no T2. */
inline scripted_session eventful()
{
    scripted_session session{8};
    const std::pair<std::uint32_t, answer> replies[] = {
        {0, {.number = 0}},
        {2, {.number = 1}},
        {3, {.number = 2, .received = second, .sent_back = second}},
        {4, {.number = 3, .received = second, .sent_back = second}},
        {5, {.number = 0, .received = second, .sent_back = second}},
        {6, {.number = 1, .received = second, .sent_back = second}}};
    for (const auto &[sequence, given] : replies) {
        session.receive(sequence, given, 100'000);
    }
    std::vector<std::uint8_t> without_time = session.reply(7, {.number = 2});
    std::fill_n(&without_time[16], 8, std::uint8_t{0});
    session.receive_octets(7, without_time, 100'000);
    return session;
}

} // namespace olv_probe

#endif
