#include <cstdio>
#include <exception>

#include "command_line.hpp"
#include "probe_options.hpp"
#include "session_sender.hpp"
#include "signal_watch.hpp"

namespace {

int probe(const olv_probe::probe_options &options)
{
    const olv_apps::signal_watch signals;
    olv_probe::session_sender sender{options};
    std::printf("%u packets of %zu octets to %s\n", options.count, options.size,
                options.reflector.text().c_str());
    const bool complete = sender.run(signals);
    sender.result().print();
    if (sender.was_refused()) {
        olv_apps::report_error(olv_probe::program_name, "%s: connection refused",
                               options.reflector.text().c_str());
    }
    if (!complete) {
        olv_apps::report_error(olv_probe::program_name, "interrupted");
    }
    const bool good = complete && sender.result().valid() == options.count && sender.result().invalid() == 0;
    return good ? olv_apps::exit_good : olv_apps::exit_failed;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        olv_probe::probe_options options;
        if (const std::optional<int> status = olv_probe::read_options(argc, argv, options)) {
            return *status;
        }
        return probe(options);
    } catch (const std::exception &error) {
        olv_apps::report_error(olv_probe::program_name, "%s", error.what());
        return olv_apps::exit_usage;
    }
}
