// Responders: create, delete, list, statistics, state entry.
#include <algorithm>
#include <cstdio>

#include "apps/twampctl/commands/checks.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "fastpath/fast_path.hpp"
#include "hyx.h"

namespace twampctl {
namespace {

struct create_options {
    responder_request request;
    std::uint32_t count = 1;
};

void create(command_context &context, const create_options &options)
{
    if (options.count > 1 && !options.request.name.empty()) {
        throw usage_error("a name is for one responder; leave it out with --count");
    }
    for (std::uint32_t made = 0; made < options.count; ++made) {
        (void)context.current().create_responder(options.request); // says which it is
        if (context.signals().arrived()) {
            throw std::runtime_error("interrupted after " + std::to_string(made + 1) + " of " +
                                     std::to_string(options.count) + " responders");
        }
    }
}

struct delete_options {
    std::vector<std::string> names;
    bool all = false;
};

void remove(command_context &context, const delete_options &options)
{
    site &on = context.current();
    require_some_or_all("responder delete", "the responders' names", !options.names.empty(), options.all);
    std::vector<std::string> names = options.names;
    if (options.all) {
        const std::vector<named_responder> &all = on.responders();
        std::transform(all.rbegin(), all.rend(), std::back_inserter(names), // as in taking down
                       [](const named_responder &each) { return each.name; });
    }
    for (const std::string &name : names) {
        on.delete_responder(name);
    }
}

void print_state(command_context &context, const std::string &name)
{
    site &on = context.current();
    const std::uint32_t id = on.responder(name).handle->responder_id;
    const olv_sim::state_words words = on.processor().state(id);
    std::printf("state entry 0x%X of responder %s, %zu bytes:\n", id, name.c_str(), words.size() * 4);
    for (std::size_t index = 0; index < words.size(); ++index) {
        std::printf("%s%08X", index % 4 == 0 ? (index == 0 ? "" : "\n") : " ", hyx_ntohl(words[index].load()));
    }
    std::printf("\n");
}

void add_create_responder(command_tree &tree, olv_apps::command group)
{
    const auto options = std::make_shared<create_options>();
    const olv_apps::command create_command =
        tree.add(group,
                 {"create",
                  "Create a responder",
                  {"responder create", "responder create west --sessions 64", "responder create --count 1000"}},
                 [options](command_context &context) { create(context, *options); });
    create_command.add_option("NAME", options->request.name, "Its name; default: the lowest free number")
        .check(reason_against_name);
    create_command.add_option("--param-a", options->request.info.param_a, "Bytes 0-1 of its state entry (0)");
    create_command.add_option("--param-b", options->request.info.param_b, "Bytes 6-7 of its state entry (0)");
    create_command.add_option("--sessions", options->request.sessions, "Sessions that it has at most (32)")
        .whole_number_between(1, olv_fastpath::fast_path_options::most_sessions);
    create_command.add_option("--count", options->count, "Create so many (1)").whole_number_between(1, 1 << 24);
}

void add_delete(command_tree &tree, olv_apps::command group)
{
    const auto options = std::make_shared<delete_options>();
    const olv_apps::command delete_command =
        tree.add(group, {"delete", "Delete responders", {"responder delete west", "responder delete --all"}},
                 [options](command_context &context) { remove(context, *options); });
    delete_command.add_option("NAME", options->names, "Their names").called(value_kind::responder);
    delete_command.add_flag("--all", options->all, "All of them");
}

void add_state(command_tree &tree, olv_apps::command group)
{
    const auto name = std::make_shared<std::string>();
    tree.add(group, {"state", "Show a responder's state entry, in words", {"responder state west"}},
             [name](command_context &context) { print_state(context, *name); })
        .add_option("NAME", *name, "The responder")
        .required()
        .called(value_kind::responder);
}

} // namespace

void add_responder_commands(command_tree &tree)
{
    const olv_apps::command group = tree.add_group("responder", "Create, delete, list and read responders");
    add_create_responder(tree, group);
    add_delete(tree, group);
    add_responder_figures(tree, group);
    add_state(tree, group);
}

} // namespace twampctl
