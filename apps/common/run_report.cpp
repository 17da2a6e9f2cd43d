#include "apps/common/run_report.hpp"

#include <array>
#include <ctime>

#include "probe/probe.hpp"

namespace olv_probe {

std::string utc_text(std::uint64_t nanoseconds)
{
    const auto seconds = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
    std::tm parts{};
    (void)gmtime_r(&seconds, &parts); // cannot fail before the year 2147485547
    std::array<char, sizeof "YYYY-MM-DDTHH:MM:SS."> whole{};
    const std::size_t length = std::strftime(whole.data(), whole.size(), "%Y-%m-%dT%H:%M:%S.", &parts);
    const std::string fraction = std::to_string(1'000'000 + nanoseconds % 1'000'000'000 / 1000);
    return std::string(whole.data(), length) + fraction.substr(1) + "Z";
}

const char *name_of(timestamp_source source)
{
    switch (source) {
    case timestamp_source::kernel:
        return "kernel";
    case timestamp_source::hardware:
        return "hardware";
    default:
        return "user";
    }
}

const char *name_of(packet_schedule schedule)
{
    return schedule == packet_schedule::poisson ? "poisson" : "periodic";
}

run_report report_of(const probe &sender, const session_options &options, bool complete)
{
    run_report report;
    report.options = options;
    report.started = sender.started();
    report.elapsed = sender.elapsed();
    report.timestamps = sender.timestamps();
    report.stamps = sender.stamps();
    report.interrupted = !complete;
    report.refused = sender.refusal() != 0;
    report.total = sender.figures();
    const std::vector<const measurement *> &results = sender.results();
    for (std::size_t session = 0; session < results.size(); ++session) {
        const bool alone = results.size() == 1;
        report.senders.push_back({.address = sender.local_address(session),
                                  .figures = alone ? report.total : figures_of({&results[session], 1})});
    }
    return report;
}

bool is_complete(const run_report &report)
{
    const packet_counts &counts = report.total.counts;
    return report.options.strict ? counts.valid == counts.sent && counts.invalid() == 0
                                 : counts.measured == counts.sent;
}

} // namespace olv_probe
