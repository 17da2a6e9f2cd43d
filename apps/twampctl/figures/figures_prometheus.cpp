#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include "apps/twampctl/figures/figures_formats.hpp"

namespace twampctl {
namespace {

using labels = std::vector<prometheus::ClientMetric::Label>;
using prometheus::MetricFamily;
using prometheus::MetricType;

/** A metric and its series so far. */
class family {
  public:
    family(MetricType type, const char *name, const char *help)
    {
        family_.name = std::string("olv_twamp_") + name;
        family_.help = help;
        family_.type = type;
    }

    void add(double value, const labels &with = {})
    {
        prometheus::ClientMetric metric;
        for (const auto &label : with) {
            metric.label.push_back({label.name, valid_utf8(label.value)});
        }
        if (family_.type == MetricType::Counter) {
            metric.counter.value = value;
        } else {
            metric.gauge.value = value;
        }
        family_.metric.push_back(std::move(metric));
    }

    /** A series for each reason. */
    void add(const std::vector<drop_figure> &drops, const labels &with = {})
    {
        for (const drop_figure &drop : drops) {
            labels all = with;
            all.push_back({"reason", drop.name});
            add(static_cast<double>(drop.packets), all);
        }
    }

    /** A metric without a series is left out. */
    void append_to(std::vector<MetricFamily> &families)
    {
        if (!family_.metric.empty()) {
            families.push_back(std::move(family_));
        }
    }

  private:
    MetricFamily family_;
};

family counter(const char *name, const char *help)
{
    return {MetricType::Counter, name, help};
}

family gauge(const char *name, const char *help)
{
    return {MetricType::Gauge, name, help};
}

void append(std::vector<MetricFamily> &to, const std::optional<olv_twamp_global_stats> &module)
{
    family received = counter("received_packets_total", "Test packets that reached the module.");
    family transmitted = counter("transmitted_packets_total", "Test packets that the module reflected.");
    family dropped = counter("dropped_packets_total", "Test packets that the module dropped, by reason.");
    if (module) {
        received.add(module->total_rx);
        transmitted.add(module->total_tx);
        dropped.add(drops_of(*module));
    }
    for (family *each : {&received, &transmitted, &dropped}) {
        each->append_to(to);
    }
}

void append(std::vector<MetricFamily> &to, const std::vector<responder_figures> &responders)
{
    family received = counter("responder_received_packets_total", "Test packets that reached the responder.");
    family transmitted =
        counter("responder_transmitted_packets_total", "Test packets that the responder reflected.");
    family dropped =
        counter("responder_dropped_packets_total", "Test packets that the responder dropped, by reason.");
    family sessions = gauge("responder_active_sessions", "Sessions that the responder has.");
    family limit = gauge("responder_session_limit", "Sessions that the responder may have.");
    for (const responder_figures &responder : responders) {
        const labels which = {{"responder", responder.name}, {"id", std::to_string(responder.id)}};
        if (responder.session_limit) {
            limit.add(*responder.session_limit, which);
        }
        if (!responder.counters) {
            continue;
        }
        received.add(responder.counters->received, which);
        transmitted.add(responder.counters->transmitted, which);
        dropped.add(drops_of(*responder.counters), which);
        sessions.add(responder.counters->active_sessions, which);
    }
    for (family *each : {&received, &transmitted, &dropped, &sessions, &limit}) {
        each->append_to(to);
    }
}

void append(std::vector<MetricFamily> &to, const responder_figures &responder)
{
    append(to, std::vector{responder});
}

void append(std::vector<MetricFamily> &to, const std::vector<listener_figures> &listeners)
{
    family info = gauge("listener_info", "Where the packets of a listener go. Always 1.");
    family received =
        counter("listener_received_packets_total", "Datagrams that the listener handed to the reflector.");
    family dropped = counter("listener_dropped_packets_total",
                             "Datagrams that the listener dropped before the reflector saw them, by reason.");
    family sent = counter("listener_sent_replies_total", "Replies that the system took.");
    family failed = counter("listener_failed_replies_total",
                            "Replies that the system did not take, counted as reflected all the same.");
    for (const listener_figures &listener : listeners) {
        const labels which = {{"listener", listener.address}};
        info.add(1, {{"listener", listener.address},
                     {"responder", listener.responder},
                     {"bind_key", std::to_string(listener.bind_key)}});
        received.add(static_cast<double>(listener.counters.received_packets), which);
        dropped.add(drops_of(listener.counters), which);
        sent.add(static_cast<double>(listener.counters.sent_replies), which);
        failed.add(static_cast<double>(listener.counters.failed_replies), which);
    }
    for (family *each : {&info, &received, &dropped, &sent, &failed}) {
        each->append_to(to);
    }
}

void append(std::vector<MetricFamily> &to, const std::vector<session_figures> &sessions)
{
    family replies = counter("session_replies_total", "Replies to the sender.");
    family idle = gauge("session_idle_seconds", "Time since the sender's last packet.");
    family round_trip = gauge("session_round_trip_seconds", "Round trip of the sender's last packet.");
    for (const session_figures &session : sessions) {
        const labels which = {{"responder", session.responder}, {"sender", session.sender}};
        replies.add(session.replies, which);
        idle.add(session.idle_seconds, which);
        if (session.round_trip_seconds) {
            round_trip.add(*session.round_trip_seconds, which);
        }
    }
    for (family *each : {&replies, &idle, &round_trip}) {
        each->append_to(to);
    }
}

void append(std::vector<MetricFamily> &to, const platform_usage &usage)
{
    for (const usage_item &item : items_of(usage)) {
        const std::string name = std::string("platform_") + item.name;
        const std::string help = std::string("In use on the platform: ") + item.title + ".";
        family in_use = gauge(name.c_str(), help.c_str());
        in_use.add(static_cast<double>(item.count));
        in_use.append_to(to);
    }
    family violations =
        counter("platform_violations_total", "Calls that broke a rule of the platform, such as a double free.");
    violations.add(static_cast<double>(usage.violations));
    violations.append_to(to);
}

void append(std::vector<MetricFamily> &to, const figures &all)
{
    family processor = gauge("processor_info", "The processor that the module runs on. Always 1.");
    family up = gauge("module_up", "Whether the module is initialised: 1 or 0.");
    family taken_at = gauge("collection_timestamp_seconds", "When these figures were collected, since 1970.");
    processor.add(1, {{"processor", all.processor}});
    up.add(all.module_up ? 1 : 0);
    taken_at.add(all.taken_at);
    for (family *each : {&processor, &up, &taken_at}) {
        each->append_to(to);
    }
    append(to, all.module);
    append(to, all.responders);
    append(to, all.listeners);
    family gave_way =
        counter("gave_way_sessions_total", "Sessions that ended so that new senders could have theirs.");
    gave_way.add(static_cast<double>(all.gave_way_sessions));
    gave_way.append_to(to);
    append(to, all.usage);
}

} // namespace

std::string as_prometheus(const figures_part &part)
{
    std::vector<MetricFamily> families;
    std::visit([&families](const auto &each) { append(families, each); }, part);
    return prometheus::TextSerializer{}.Serialize(families);
}

} // namespace twampctl
