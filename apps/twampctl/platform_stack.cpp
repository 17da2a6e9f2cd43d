#include "platform_stack.hpp"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include <netinet/in.h>

#include "command_line.hpp"
#include "fastpath/state_entry.hpp"

namespace twampctl {
namespace {

constexpr std::uint32_t everything_logged = 15;
constexpr const char *responder_namespace = "twamp_responder";
constexpr const char *responder_tree = "olv_twamp.twamp_responder_lookup";
constexpr const char *bind_tree = "olv_twamp.twamp_bind_to_next_module";

std::string text_of(const olv_sim::framework &framework, const std::string &what, std::uint32_t status)
{
    char number[16];
    (void)std::snprintf(number, sizeof number, "0x%X", status); // fits
    return "cannot " + what + ": status " + number + ": " + olv_sys_status_get(framework.system(), status);
}

std::string responder_name(std::size_t index)
{
    return "responder " + std::to_string(index + 1);
}

} // namespace

step_failure::step_failure(const olv_sim::framework &framework, const std::string &what, std::uint32_t status)
    : std::runtime_error(text_of(framework, what, status))
{}

bool platform_usage::is_empty() const
{
    return blocks == 0 && responder_ids == 0 && responder_entries == 0 && bind_entries == 0 && patterns == 0 &&
           violations == 0;
}

platform_stack::platform_stack(const run_options &options)
    : options_(options),
      processor_(olv_sim::classifier_program::twamp(options.capacity)),
      module_(framework_.create_module(
          {.module_id = olv_sim::module_id_twamp, .processor = &processor_, .log_name = "twamp"})),
      reflector_(processor_, options.reflector),
      server_(reflector_, options.server)
{}

platform_stack::~platform_stack()
{
    (void)tear_down(); // has said what failed
}

// --------------------------------------------------------------------------------------------------------
// Up
// --------------------------------------------------------------------------------------------------------

void platform_stack::initialise()
{
    require(olv_twamp_init(module_), "initialise the module");
    initialised_ = true;
    std::printf("module initialised\n");
    if (options_.log_level) {
        set_log_level(*options_.log_level);
        std::printf("log level %u\n", *options_.log_level);
    }
}

void platform_stack::create_responders()
{
    during(run_step::create, [this] {
        responders_.reserve(options_.responders);
        for (std::size_t index = 0; index < options_.responders; ++index) {
            // This fast path gives neither parameter a meaning.
            const olv_twamp_responder_info info{};
            twamp_responder_handle *responder = nullptr;
            const std::uint32_t status = olv_twamp_responder_create(module_, &info, &responder);
            if (responder != nullptr) {
                responders_.push_back(responder); // it lives, whatever the status
            }
            require(status, "create " + responder_name(index));
            limit_sessions(responder->responder_id);
            std::printf("%s created: ID 0x%X\n", responder_name(index).c_str(), responder->responder_id);
        }
    });
}

void platform_stack::limit_sessions(std::uint32_t responder_id) const
{
    if (options_.sessions) {
        processor_.state(responder_id)[olv_fastpath::responder_word::maximum_sessions] = *options_.sessions;
    }
}

void platform_stack::bind()
{
    during(run_step::bind, [this] {
        for (const int family : {AF_INET, AF_INET6}) {
            const auto needs = [family](const auto &address) { return address.family() == family; };
            if (std::any_of(options_.addresses.begin(), options_.addresses.end(), needs)) {
                bind_to(output_for(family));
            }
        }
    });
}

void platform_stack::bind_to(const output &to)
{
    require(framework_.bind(request_for(to)), std::string("bind to the ") + to.name + " module");
    bound_.push_back(to);
    std::printf("bound to the %s module: key %u\n", to.name, *to.key);
}

void platform_stack::listen()
{
    for (std::size_t index = 0; index < options_.addresses.size(); ++index) {
        const olv_fastpath::listen_address &address = options_.addresses[index];
        (void)server_.add(address, {.responder_id = responders_[index % responders_.size()]->responder_id,
                                    .bind_key = *output_for(address.family()).key}); // indices count from 0
    }
    server_.start();
    std::printf("ready");
    for (std::size_t index = 0; index < options_.addresses.size(); ++index) {
        std::printf(" %s", server_.local_address(index).text().c_str());
    }
    std::printf("\n");
    (void)std::fflush(stdout); // an error shows at exit
}

// --------------------------------------------------------------------------------------------------------
// Down, in the reverse order
// --------------------------------------------------------------------------------------------------------

bool platform_stack::tear_down()
{
    stop_listening();
    while (!bound_.empty()) {
        const output last = bound_.back();
        bound_.pop_back();
        attempt(run_step::unbind, [&] { unbind(last); });
    }
    while (!responders_.empty()) {
        attempt(run_step::remove, [this] { delete_responder(responders_.size() - 1); });
        hyx_nvm_free(responders_.back());
        responders_.pop_back();
    }
    if (initialised_) {
        initialised_ = false;
        attempt(run_step::shutdown, [this] { shut_down(); });
    }
    return !failed_;
}

void platform_stack::stop_listening()
{
    if (server_.running()) {
        server_.stop();
        std::printf("packets no longer answered\n");
    }
}

void platform_stack::unbind(const output &from)
{
    require(framework_.unbind(request_for(from)), std::string("unbind from the ") + from.name + " module");
    std::printf("unbound from the %s module\n", from.name);
}

void platform_stack::delete_responder(std::size_t index)
{
    require(olv_twamp_responder_delete(module_, responders_[index]), "delete " + responder_name(index));
    std::printf("%s deleted\n", responder_name(index).c_str());
}

void platform_stack::shut_down()
{
    require(framework_.shutdown(module_), "shut the module down");
    std::printf("module shut down\n");
}

// --------------------------------------------------------------------------------------------------------
// Reports
// --------------------------------------------------------------------------------------------------------

void platform_stack::print_statistics()
{
    during(run_step::statistics, [this] {
        for (std::size_t index = 0; index < responders_.size(); ++index) {
            std::printf("\nStatistics of %s, ID 0x%X:", responder_name(index).c_str(),
                        responders_[index]->responder_id);
            (void)olv_twamp_responder_stats_print(module_, responders_[index]); // always 0
        }
        std::printf("\nStatistics of the module:");
        (void)olv_twamp_global_stats_print(module_); // always 0
        for (std::size_t index = 0; index < options_.addresses.size(); ++index) {
            print_listener(index);
        }
        std::printf("\n");
    });
}

void platform_stack::print_listener(std::size_t index) const
{
    const olv_fastpath::udp_statistics counted = server_.statistics(index);
    const struct {
        const char *label;
        std::uint64_t value;
    } lines[] = {{"Packets dropped due to source not allowed", counted.source_not_allowed},
                 {"Packets dropped due to source port too low", counted.source_port},
                 {"Packets dropped due to own address as source", counted.own_source},
                 {"Packets dropped due to length above the longest", counted.truncated},
                 {"Packets dropped due to answer to a reply", counted.answers},
                 {"Packets dropped due to packet rate", counted.rate_limited},
                 {"Replies that could not be sent", counted.send_failures}};
    bool titled = false;
    for (const auto &line : lines) {
        if (line.value == 0) {
            continue;
        }
        if (!titled) {
            std::printf("\nStatistics of listener %s (Non-zero only):\n",
                        server_.local_address(index).text().c_str());
            titled = true;
        }
        std::printf("%s: %" PRIu64 "\n", line.label, line.value);
    }
}

void platform_stack::print_tables()
{
    during(run_step::tables, [this] {
        std::printf("Tables:");
        require(olv_twamp_tables_dump(module_, OLV_TWAMP_TABLE_GROUP_ALL), "print the tables");
        std::printf("\n");
    });
}

void platform_stack::print_imc()
{
    during(run_step::imc, [this] {
        for (const int family : {AF_INET, AF_INET6}) {
            const output to = output_for(family);
            std::uint32_t tree_function = 0;
            require(framework_.get_imc(module_, request_for(to), &tree_function),
                    std::string("find the call to the ") + to.name + " module");
            std::printf("call to the %s module: tree function 0x%X\n", to.name, tree_function);
        }
    });
}

platform_usage platform_stack::usage() const
{
    return {.blocks = olv_sim::memory::in_use().live_blocks,
            .responder_ids = processor_.allocated(responder_namespace),
            .responder_entries = processor_.tree(responder_tree)->size(),
            .bind_entries = processor_.tree(bind_tree)->size(),
            .patterns = olv_sim::patterns::live(),
            .violations = olv_sim::violations::count()};
}

// --------------------------------------------------------------------------------------------------------
// Helpers
// --------------------------------------------------------------------------------------------------------

platform_stack::output platform_stack::output_for(int family) const
{
    return family == AF_INET6 ? output{"IPv6", framework_.ipv6_module(), &bind_key_ipv6}
                              : output{"IPv4", framework_.ipv4_module(), &bind_key_ipv4};
}

olv_bind_info platform_stack::request_for(const output &to) const
{
    return olv_sim::make_bind_info(module_, to.module, to.key);
}

void platform_stack::during(run_step step, const std::function<void()> &work)
{
    if (options_.verbose_step != step) {
        work();
        return;
    }
    const std::uint32_t usual = module_->log_flags & OLV_LOG_LEVEL_MASK;
    set_log_level(everything_logged);
    try {
        work();
    } catch (const std::exception &) {
        // The failure of the step says more than one of going back to the usual level would.
        (void)framework_.set_log_level(module_, usual);
        throw;
    }
    if (olv_twamp_valid_module_handle(module_) != 0) {
        set_log_level(usual);
    }
}

void platform_stack::attempt(run_step step, const std::function<void()> &work)
{
    try {
        during(step, work);
    } catch (const std::exception &error) {
        olv_apps::report_error(program_name, "%s", error.what());
        failed_ = true;
    }
}

void platform_stack::set_log_level(std::uint32_t level)
{
    require(framework_.set_log_level(module_, level), "set log level " + std::to_string(level));
}

void platform_stack::require(std::uint32_t status, const std::string &what) const
{
    if (status != OLV_STATUS_OK) {
        throw step_failure(framework_, what, status);
    }
}

} // namespace twampctl
