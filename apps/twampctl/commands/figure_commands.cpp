// What is counted: statistics, listeners, sessions, what is in use; once, all the time, or over HTTP.
#include <cmath>
#include <csignal>
#include <cstdio>

#include <unistd.h>

#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/console/watch.hpp"
#include "apps/twampctl/figures/figures_output.hpp"

namespace twampctl {
namespace {

struct format_option {
    std::string name = "text";

    [[nodiscard]] output_format value() const { return output_formats.at(name); }
    [[nodiscard]] bool is_text() const { return value() == output_format::text; }
};

void add_format(olv_apps::command command, format_option &format)
{
    command.add_option("--format", format.name, "Text, JSON, or Prometheus' format (text)")
        .one_of({"text", "json", "prometheus"});
}

void print(const std::string &text)
{
    (void)std::fputs(text.c_str(), stdout); // an error shows at exit
}

/** A command that prints a part of the figures. */
template <typename Part>
void add_part(command_tree &tree, olv_apps::command parent, const command_text &text, Part figures::*part)
{
    const auto chosen = std::make_shared<format_option>();
    add_format(tree.add(parent, text,
                        [chosen, part](command_context &context) {
                            print(format(context.current().collect().*part, chosen->value()));
                        }),
               *chosen);
}

// --------------------------------------------------------------------------------------------------------
// Statistics: as text, the library prints them itself
// --------------------------------------------------------------------------------------------------------

void print_statistics(command_context &context, const format_option &chosen)
{
    site &on = context.current();
    olv_twamp_global_stats counters{};
    on.require(olv_twamp_global_stats_get(on.module(), &counters), "read the module's statistics");
    if (chosen.is_text()) {
        (void)olv_twamp_global_stats_print(on.module()); // always 0
    } else {
        print(format(std::optional(counters), chosen.value()));
    }
}

void print_responder_statistics(command_context &context, const std::string &name, const format_option &chosen)
{
    site &on = context.current();
    const named_responder &responder = on.responder(name);
    const std::uint32_t id = responder.handle->responder_id;
    olv_twamp_responder_stats counters{};
    on.require(olv_twamp_responder_stats_get(on.module(), responder.handle, &counters),
               "read the statistics of responder " + name);
    if (chosen.is_text()) {
        (void)olv_twamp_responder_stats_print(on.module(), responder.handle); // always 0
    } else {
        print(format(responder_figures{name, id, counters, on.session_limit_of(id)}, chosen.value()));
    }
}

void add_statistics(command_tree &tree)
{
    const auto chosen = std::make_shared<format_option>();
    add_format(tree.add({"stats", "Show the module's counters", {"stats", "stats --format json"}},
                        [chosen](command_context &context) { print_statistics(context, *chosen); }),
               *chosen);
}

struct sessions_request {
    std::string action;
    std::string responder;
    format_option format;
};

void list_or_clear_sessions(command_context &context, const sessions_request &request)
{
    if (request.action.empty()) {
        print(format(context.current().collect().sessions, request.format.value()));
    } else {
        context.current().clear_sessions(request.responder);
    }
}

void add_sessions(command_tree &tree)
{
    const auto request = std::make_shared<sessions_request>();
    const olv_apps::command command =
        tree.add({"sessions",
                  "List the sessions of the fast path, or end them",
                  {"sessions --format json", "sessions clear", "sessions clear west"}},
                 [request](command_context &context) { list_or_clear_sessions(context, *request); });
    command.add_option("ACTION", request->action, "clear: end the sessions; their senders begin new ones")
        .one_of({"clear"});
    command.add_option("RESPONDER", request->responder, "Whose sessions to end; default: all")
        .called(value_kind::responder);
    add_format(command, request->format);
}

void add_everything(command_tree &tree)
{
    const auto chosen = std::make_shared<format_option>();
    add_format(tree.add({"show", "Show all figures", {"show", "show --format prometheus"}},
                        [chosen](command_context &context) {
                            print(format(context.current().collect(), chosen->value()));
                        }),
               *chosen);
}

// --------------------------------------------------------------------------------------------------------
// All the time
// --------------------------------------------------------------------------------------------------------

struct watch_request {
    double interval = 1;
    std::optional<std::uint32_t> count;
    format_option format;
};

void watch_site(command_context &context, const watch_request &request)
{
    site &on = context.current();
    const bool interrupted =
        watch([&on] { return on.collect(); }, context.signals(), // Ctrl-C is how one ends it
              {.interval = std::chrono::nanoseconds(std::llround(request.interval * 1e9)),
               .count = request.count,
               .duration = {},
               .format = request.format.value()});
    if (interrupted && isatty(STDOUT_FILENO) != 0) {
        std::printf("\n"); // the terminal has shown ^C
    }
    if (context.signals().take() == SIGTERM) {
        (void)kill(getpid(), SIGTERM); // it is not only the watch that ends
        throw std::runtime_error("terminated while watching");
    }
}

void add_watch(command_tree &tree)
{
    const auto request = std::make_shared<watch_request>();
    const olv_apps::command command =
        tree.add({"watch",
                  "Show rates, drops and sessions as they change",
                  {"watch", "watch --interval 0.5 --count 10"}},
                 [request](command_context &context) { watch_site(context, *request); });
    command.add_option("--interval", request->interval, "Seconds between two looks (1)")
        .number_between(0.05, 3600.0);
    command.add_option("--count", request->count, "Looks; default: until Ctrl-C")
        .whole_number_between(1, UINT32_MAX);
    add_format(command, request->format);
}

void add_metrics(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("metrics", "Serve the figures over HTTP");
    const auto where = std::make_shared<std::string>();
    tree.add(group, {"at", "Serve them for Prometheus to fetch", {"metrics at 127.0.0.1:9862"}},
             [where](command_context &context) {
                 for (const std::string &url : context.serve_metrics(*where)) {
                     say("metrics %s", url.c_str());
                 }
             })
        .add_option("ADDRESS:PORT", *where, "Where; port 0: any")
        .required();
    tree.add(group, {"off", "Serve them no more", {}}, [](command_context &context) {
        context.end_metrics();
        say("metrics are no longer served");
    });
}

} // namespace

void add_responder_figures(command_tree &tree, olv_apps::command group)
{
    add_part(
        tree, group,
        {"list", "List the responders with their counters", {"responder list", "responder list --format json"}},
        &figures::responders);
    const auto name = std::make_shared<std::string>();
    const auto chosen = std::make_shared<format_option>();
    const olv_apps::command stats = tree.add(
        group, {"stats", "Show a responder's counters", {"responder stats west"}},
        [name, chosen](command_context &context) { print_responder_statistics(context, *name, *chosen); });
    stats.add_option("NAME", *name, "The responder").required().called(value_kind::responder);
    add_format(stats, *chosen);
}

void add_figure_commands(command_tree &tree)
{
    add_statistics(tree);
    add_part(tree, tree.root(), {"listeners", "List where packets are answered", {"listeners"}},
             &figures::listeners);
    add_sessions(tree);
    add_part(tree, tree.root(), {"usage", "Show what is in use on the platform", {"usage"}}, &figures::usage);
    add_everything(tree);
    add_watch(tree);
    add_metrics(tree);
}

} // namespace twampctl
