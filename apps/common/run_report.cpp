#include "apps/common/run_report.hpp"

#include "probe/probe.hpp"

namespace olv_probe {

std::vector<const measurement *> results_of(const probe &sender)
{
    std::vector<const measurement *> results;
    for (std::size_t session = 0; session < sender.session_count(); ++session) {
        results.push_back(&sender.result(session));
    }
    return results;
}

run_report report_of(const probe &sender, const session_options &options, bool complete)
{
    run_report report;
    report.options = options;
    report.elapsed = sender.elapsed();
    report.interrupted = !complete;
    report.refused = sender.refusal() != 0;
    report.total = sender.figures();
    const std::vector<const measurement *> results = results_of(sender);
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
