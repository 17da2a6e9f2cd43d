// Measuring from inside: session senders of this process.
#include <cstdio>

#include "apps/common/json_report.hpp"
#include "apps/common/reflector_name.hpp"
#include "apps/common/session_input.hpp"
#include "apps/common/text_report.hpp"
#include "apps/twampctl/commands/checks.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"

namespace twampctl {
namespace {

struct probe_request {
    std::string address;
    olv_probe::session_input input;
    std::string format = "text";

    [[nodiscard]] olv_probe::session_options options() const
    {
        olv_probe::session_options wanted = input.options();
        wanted.reflector = olv_probe::resolve(olv_probe::parse_reflector_name(address), input.family());
        return wanted;
    }
};

void add_request(olv_apps::command command, probe_request &request)
{
    command.add_option("ADDRESS:PORT", request.address, "The reflector, an address or a name")
        .required()
        .called(value_kind::listener);
    olv_probe::add_session_options(command, request.input);
}

/** What went wrong with a measurement; empty: nothing. */
std::string failure_of(const olv_probe::run_report &report)
{
    if (report.interrupted) {
        return "interrupted";
    }
    if (report.refused) {
        return "nobody answers there";
    }
    return olv_probe::is_complete(report) ? "" : "not every packet came back as it should";
}

void measure(command_context &context, const probe_request &request)
{
    const olv_probe::session_options options = request.options();
    olv_probe::probe sender{options};
    const bool complete = sender.run(context.signals().descriptor());
    const olv_probe::run_report report = olv_probe::report_of(sender, options, complete);
    const std::string text =
        request.format == "json" ? olv_probe::json_report(report) : olv_probe::text_report(report);
    (void)std::fputs(text.c_str(), stdout); // an error shows at exit
    if (const auto last = sender.latest_round_trip(); last && options.senders == 1) {
        context.background().note(sender.local_address(), std::chrono::duration<double>(*last).count());
    }
    if (const std::string failure = failure_of(report); !failure.empty()) {
        throw std::runtime_error("probe to " + request.address + ": " + failure);
    }
}

void list(const command_context &context)
{
    const std::vector<background_probes::status> all = context.background().list();
    for (const background_probes::status &each : all) {
        std::printf("%s to %s: sent %llu, received %llu, valid %llu%s\n", each.sender.c_str(),
                    each.reflector.c_str(), static_cast<unsigned long long>(each.progress.sent),
                    static_cast<unsigned long long>(each.progress.received),
                    static_cast<unsigned long long>(each.progress.valid), each.running ? "" : ", ended");
    }
    if (all.empty()) {
        std::printf("no probes\n");
    }
}

void add_run(command_tree &tree, olv_apps::command group)
{
    const auto request = std::make_shared<probe_request>();
    const olv_apps::command run =
        tree.add(group,
                 {"run",
                  "Send test packets, wait for the replies, show the figures",
                  {"probe run 127.0.0.1:8620", "probe run [::1]:8620 --count 1000 --interval 1"}},
                 [request](command_context &context) { measure(context, *request); });
    add_request(run, *request);
    run.add_option("--format", request->format, "Text or JSON (text)").one_of({"text", "json"});
}

void add_start(command_tree &tree, olv_apps::command group)
{
    const auto request = std::make_shared<probe_request>();
    const olv_apps::command start =
        tree.add(group,
                 {"start",
                  "Send in the background; 'watch' and 'sessions' show round trips",
                  {"probe start 127.0.0.1:8620 --duration 60"}},
                 [request](command_context &context) {
                     if (request->input.senders != 1) {
                         throw usage_error("probe start: one sender each; start several instead");
                     }
                     say("sending from %s", context.background().start(request->options()).c_str());
                 });
    add_request(start, *request);
}

void add_stop(command_tree &tree, olv_apps::command group)
{
    struct stop_request {
        std::string address;
        bool all = false;
    };
    const auto request = std::make_shared<stop_request>();
    const olv_apps::command stop = tree.add(
        group, {"stop", "End a probe in the background", {"probe stop --all"}},
        [request](command_context &context) {
            require_some_or_all("probe stop", "the sender's address", !request->address.empty(), request->all);
            if (request->all) {
                context.background().stop_all();
            } else {
                context.background().stop(request->address);
            }
            say("no longer sending");
        });
    stop.add_option("ADDRESS:PORT", request->address, "The sender's, as listed");
    stop.add_flag("--all", request->all, "All of them");
}

} // namespace

void add_probe_commands(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("probe", "Send test packets and measure");
    add_run(tree, group);
    add_start(tree, group);
    tree.add(group, {"list", "List the probes in the background", {"probe list"}},
             [](command_context &context) { list(context); });
    add_stop(tree, group);
}

} // namespace twampctl
