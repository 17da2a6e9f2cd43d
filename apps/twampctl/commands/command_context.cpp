#include "apps/twampctl/commands/command_context.hpp"

#include <algorithm>

#include "apps/common/errors.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/program_name.hpp"
#include "net/listen_addresses.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/processor.hpp"

namespace twampctl {
command_context::command_context(const olv_apps::signal_watch &signals, command_source source)
    : signals_(signals), source_(source)
{}

command_context::~command_context()
{
    olv_sim::faults::clear_all();
}

site &command_context::current()
{
    if (current_ == nullptr) {
        return add(
            {.name = "main", .program = olv_sim::classifier_program::twamp(usual_capacity), .fast_path = {}});
    }
    return *current_;
}

site &command_context::add(const site_options &options)
{
    if (find(options.name) != sites_.end()) {
        throw std::runtime_error("there is a processor " + options.name +
                                 " already; give the new one another name");
    }
    current_ = &sites_.emplace_back(options);
    current_->take_round_trips_from(
        [this](const std::string &sender) { return probes_.round_trip_of(sender); });
    return *current_;
}

void command_context::use(const std::string &name)
{
    const auto found = find(name);
    if (found == sites_.end()) {
        throw std::runtime_error("no processor '" + name +
                                 "'; 'processor list' lists them, 'processor create " + name + "' makes it");
    }
    current_ = &*found;
}

void command_context::remove(const std::string &name)
{
    use(name);
    if (measured_ == current_) {
        end_metrics();
    }
    (void)current_->tear_down(); // has said what failed
    sites_.erase(find(name));
    current_ = sites_.empty() ? nullptr : &sites_.front();
}

std::list<site>::iterator command_context::find(const std::string &name)
{
    return std::find_if(sites_.begin(), sites_.end(), [&](const site &each) { return each.name() == name; });
}

void command_context::trace_to(const std::string &where)
{
    trace_.reset(); // ends the one before, and says whether it is complete
    trace_name_.clear();
    if (!where.empty()) {
        trace_.emplace(where);
        trace_name_ = where;
    }
}

std::vector<std::string> command_context::serve_metrics(const std::string &where)
{
    site &on = current();
    const std::vector<olv_net::socket_address> addresses = olv_net::listen_addresses(where);
    end_metrics(); // the address may be the same
    measured_ = &on;
    std::list<metrics_server> servers;
    std::vector<std::string> urls;
    for (const olv_net::socket_address &each : addresses) {
        servers.emplace_back(
            each, [&on] { return on.collect(); }, [&on] { return on.reason_against_answering(); });
        urls.push_back(servers.back().url());
    }
    metrics_ = std::move(servers);
    return urls;
}

void command_context::silence()
{
    say_to(nullptr);
    for (const site &each : sites_) {
        __atomic_store_n(&each.module()->log_flags, 0, __ATOMIC_RELAXED); // metrics may be read meanwhile
    }
}

bool command_context::tear_down()
{
    end_metrics();
    probes_.stop_all();
    olv_sim::faults::clear_all();
    bool good = true;
    for (site &each : sites_) {
        good = each.tear_down() && good;
    }
    for (const site &each : sites_) {
        const platform_usage left = each.usage();
        if (!left.is_empty()) {
            olv_apps::report_error(program_name, "%s: left behind: %s", each.name().c_str(),
                                   text_of(left).c_str());
            good = false;
        }
    }
    return good;
}

} // namespace twampctl
