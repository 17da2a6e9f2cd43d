#include "apps/twampctl/site/background_probes.hpp"

#include <algorithm>
#include <stdexcept>

#include "apps/common/errors.hpp"
#include "apps/twampctl/program_name.hpp"
#include "net/start_thread.hpp"

namespace twampctl {
namespace {

double seconds_of(std::chrono::nanoseconds duration)
{
    return std::chrono::duration<double>(duration).count();
}

} // namespace

background_probes::~background_probes()
{
    stop_all();
}

std::string background_probes::start(const olv_probe::session_options &options)
{
    const std::lock_guard lock{mutex_};
    probe &started = running_.emplace_back(options);
    try {
        started.thread = olv_net::start_thread([&started] {
            try {
                (void)started.sender.run(); // ended or complete: its figures tell
            } catch (const std::exception &error) {
                olv_apps::report_error(program_name, "probe: %s", olv_apps::text_of(error).c_str());
            }
            started.running = false;
        });
    } catch (...) {
        running_.pop_back();
        throw;
    }
    return started.sender.local_address();
}

void background_probes::end(probe &which)
{
    which.sender.stop();
    which.thread.join();
    if (const auto last = which.sender.latest_round_trip()) {
        ended_[which.sender.local_address()] = seconds_of(*last);
    }
}

void background_probes::stop(const std::string &address)
{
    const std::lock_guard lock{mutex_};
    const auto found = std::find_if(running_.begin(), running_.end(),
                                    [&](const probe &each) { return each.sender.local_address() == address; });
    if (found == running_.end()) {
        throw std::runtime_error("no probe sends from " + address + "; 'probe list' lists them");
    }
    end(*found);
    running_.erase(found);
}

void background_probes::stop_all()
{
    const std::lock_guard lock{mutex_};
    for (probe &each : running_) {
        end(each);
    }
    running_.clear();
}

std::vector<background_probes::status> background_probes::list() const
{
    const std::lock_guard lock{mutex_};
    std::vector<status> all;
    for (const probe &each : running_) {
        all.push_back({each.sender.local_address(), each.reflector, each.running, each.sender.progress()});
    }
    return all;
}

void background_probes::note(const std::string &sender, double round_trip_seconds)
{
    const std::lock_guard lock{mutex_};
    ended_[sender] = round_trip_seconds;
}

std::optional<double> background_probes::round_trip_of(const std::string &sender) const
{
    const std::lock_guard lock{mutex_};
    for (const probe &each : running_) {
        if (each.sender.local_address() == sender) {
            const auto last = each.sender.latest_round_trip();
            return last ? std::optional(seconds_of(*last)) : std::nullopt;
        }
    }
    const auto found = ended_.find(sender);
    return found == ended_.end() ? std::nullopt : std::optional(found->second);
}

} // namespace twampctl
