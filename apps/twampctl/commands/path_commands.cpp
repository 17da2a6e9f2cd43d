// Ways in and out: binds, and the addresses at which packets are answered.
#include <algorithm>
#include <cstdio>

#include "apps/twampctl/commands/checks.hpp"
#include "apps/twampctl/commands/command_tree.hpp"
#include "apps/twampctl/commands/commands.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "net/listen_addresses.hpp"

namespace twampctl {
namespace {

struct bind_options {
    std::string to;
    bind_request request;
    bool no_custom = false;
    bool direct = false;

    [[nodiscard]] bind_request filled() const
    {
        bind_request all = request;
        all.to = to == "ipv6" ? output::ipv6 : output::ipv4;
        all.custom = !no_custom;
        return all;
    }
};

void add_request_options(olv_apps::command command, bind_options &options)
{
    command.add_option("MODULE", options.to, "The module to leave by: ipv4 or ipv6")
        .one_of({"ipv4", "ipv6"})
        .required();
    command.add_option("--key", options.request.key, "Bind key, 24 bits (ipv4: 4, ipv6: 6)")
        .whole_number_between(0, largest_key);
    command.add_option("--type", options.request.type, "Bind type (2)");
    command.add_option("--subtype", options.request.subtype, "Bind subtype (0); 2: default entry point");
    command.add_option("--path", options.request.path, "Bind path (1, direct)");
    command.add_option("--source-location", options.request.source_location, "1: CPU, 2: fast path (2)");
    command.add_option("--destination-location", options.request.destination_location,
                       "1: CPU, 2: fast path (2)");
    command.add_flag("--no-custom", options.no_custom, "Do not ask for a custom bind");
    command.add_flag("--direct", options.direct, "Call the library, not its service function");
}

void add_bind(command_tree &tree, const command_text &text,
              const std::function<void(site &, const bind_request &, bool)> &work)
{
    const auto options = std::make_shared<bind_options>();
    add_request_options(tree.add(text,
                                 [options, work](command_context &context) {
                                     work(context.current(), options->filled(), options->direct);
                                 }),
                        *options);
}

void print_imc(site &on, const bind_request &request, bool direct)
{
    const std::uint32_t tree_function = on.imc(request, direct);
    std::printf("call to the %s module: tree function 0x%X\n", name_of(request.to), tree_function);
}

struct listen_options {
    std::vector<std::string> addresses;
    std::string responder;
    std::optional<std::uint32_t> id;
    std::optional<std::uint32_t> key;
};

/** What an address's packets are for. */
olv_fastpath::packet_path path_for(const site &on, int family, const listen_options &options)
{
    const std::uint32_t key = options.key.value_or(usual_bind_key(output_for(family)));
    if (options.id) {
        return {.responder_id = *options.id, .bind_key = key};
    }
    if (!options.responder.empty()) {
        return {.responder_id = on.responder(options.responder).handle->responder_id, .bind_key = key};
    }
    if (on.responders().size() != 1) {
        throw std::runtime_error(on.responders().empty()
                                     ? "there is no responder to answer; 'responder create' creates one"
                                     : "there are several responders; name one with --responder");
    }
    return {.responder_id = on.responders().front().handle->responder_id, .bind_key = key};
}

void listen(command_context &context, const listen_options &options)
{
    site &on = context.current();
    std::vector<olv_net::socket_address> addresses;
    for (const std::string &text : options.addresses) {
        const std::vector<olv_net::socket_address> meant = olv_net::listen_addresses(text);
        addresses.insert(addresses.end(), meant.begin(), meant.end());
    }
    for (const olv_net::socket_address &each : addresses) {
        say("listening at %s", on.listen(each, path_for(on, each.family(), options)).c_str());
        on.start();
    }
}

/** What a text stands for: an address as it is listed, or what was given to "listen". */
std::vector<std::string> listeners_at(const std::vector<std::string> &all, const std::string &text)
{
    if (std::find(all.begin(), all.end(), text) != all.end()) {
        return {text};
    }
    try {
        std::vector<std::string> meant;
        for (const olv_net::socket_address &each : olv_net::listen_addresses(text)) {
            meant.push_back(each.text());
        }
        return meant;
    } catch (const std::runtime_error &) {
        return {text}; // nothing listens there; who looks for it lists what there is
    }
}

std::vector<std::string> listeners_at(const site &on, const std::vector<std::string> &texts)
{
    const std::vector<std::string> all = on.listeners();
    std::vector<std::string> chosen;
    for (const std::string &text : texts) {
        const std::vector<std::string> meant = listeners_at(all, text);
        chosen.insert(chosen.end(), meant.begin(), meant.end());
    }
    return chosen;
}

void unlisten(command_context &context, const std::vector<std::string> &addresses, bool all)
{
    site &on = context.current();
    require_some_or_all("unlisten", "the addresses", !addresses.empty(), all);
    for (const std::string &each : all ? on.listeners() : listeners_at(on, addresses)) {
        on.unlisten(each);
        say("no longer listening at %s", each.c_str());
    }
}

void redirect(command_context &context, const listen_options &options)
{
    site &on = context.current();
    for (const std::string &each : listeners_at(on, options.addresses)) {
        const int family = each.starts_with('[') ? AF_INET6 : AF_INET;
        const olv_fastpath::packet_path path = path_for(on, family, options);
        on.redirect(each, path);
        say("packets to %s go to responder ID 0x%X now", each.c_str(), path.responder_id);
    }
}

void add_path_options(olv_apps::command command, listen_options &options)
{
    const olv_apps::option name =
        command.add_option("--responder", options.responder, "Who answers; default: the only one there is")
            .called(value_kind::responder);
    command.add_option("--id", options.id, "A responder ID, whether there is one or not")
        .whole_number_between(0, largest_key)
        .excludes(name);
    command.add_option("--key", options.key, "Bind key of the way out (ipv4: 4, ipv6: 6)")
        .whole_number_between(0, largest_key);
}

void add_listen(command_tree &tree)
{
    const auto options = std::make_shared<listen_options>();
    const olv_apps::command command =
        tree.add({"listen",
                  "Answer packets at addresses",
                  {"listen 127.0.0.1:8620", "listen [::1]:0 --responder west", "listen 127.0.0.1:0 --id 0x99"}},
                 [options](command_context &context) { listen(context, *options); });
    command.add_option("ADDRESS:PORT", options->addresses, "Where; port 0: any").required();
    add_path_options(command, *options);
}

void add_unlisten(command_tree &tree)
{
    struct unlisten_options {
        std::vector<std::string> addresses;
        bool all = false;
    };
    const auto options = std::make_shared<unlisten_options>();
    const olv_apps::command command = tree.add(
        {"unlisten", "Answer no more packets at addresses", {"unlisten 127.0.0.1:8620", "unlisten --all"}},
        [options](command_context &context) { unlisten(context, options->addresses, options->all); });
    command.add_option("ADDRESS:PORT", options->addresses, "Where").called(value_kind::listener);
    command.add_flag("--all", options->all, "At all of them");
}

void add_redirect(command_tree &tree)
{
    const auto options = std::make_shared<listen_options>();
    const olv_apps::command command =
        tree.add({"redirect",
                  "Have another responder answer at addresses",
                  {"redirect 127.0.0.1:8620 --responder east"}},
                 [options](command_context &context) { redirect(context, *options); });
    command.add_option("ADDRESS:PORT", options->addresses, "Where").required().called(value_kind::listener);
    add_path_options(command, *options);
}

} // namespace

void add_path_commands(command_tree &tree)
{
    add_bind(tree, {"bind", "Bind the way out to the IPv4 or IPv6 module", {"bind ipv4", "bind ipv6 --key 7"}},
             [](site &on, const bind_request &request, bool direct) { on.bind(request, direct); });
    add_bind(tree, {"unbind", "Remove a bind", {"unbind ipv4", "unbind ipv6 --key 7"}},
             [](site &on, const bind_request &request, bool direct) { on.unbind(request, direct); });
    add_bind(tree, {"imc", "Show the tree function that calls the IPv4 or IPv6 module", {"imc ipv4"}},
             print_imc);
    add_listen(tree);
    add_unlisten(tree);
    add_redirect(tree);
}

} // namespace twampctl
