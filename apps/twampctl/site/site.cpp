#include "apps/twampctl/site/site.hpp"

#include <algorithm>
#include <new>

#include "apps/common/errors.hpp"
#include "apps/twampctl/console/progress.hpp"
#include "apps/twampctl/program_name.hpp"
#include "apps/twampctl/site/status_text.hpp"
#include "apps/twampctl/site/traffic_options.hpp"
#include "hyx.h"
#include "olv_sim/statuses.hpp"
#include "twamp_program.h"

namespace twampctl {
namespace {

/** The names of the first few, and how many there are more. */
template <typename Items, typename NameOf> std::string list_of(const Items &items, const NameOf &name_of_item)
{
    constexpr std::size_t listed = 10;
    std::string list;
    for (std::size_t index = 0; index < std::min(listed, items.size()); ++index) {
        list += (list.empty() ? "" : ", ") + name_of_item(items[index]);
    }
    return items.size() <= listed ? list : list + " and " + std::to_string(items.size() - listed) + " more";
}

std::uint32_t responder_ids_of(const olv_sim::classifier_program &program)
{
    const auto found = std::find_if(program.namespaces.begin(), program.namespaces.end(),
                                    [](const auto &each) { return each.name == TWAMP_RESPONDER_NAMESPACE; });
    return found == program.namespaces.end() ? 0 : found->capacity;
}

} // namespace

site::site(const site_options &options)
try : name_(options.name), processor_(options.program),
    module_(framework_.create_module({.module_id = olv_sim::module_id_twamp,
                                      .processor = &processor_,
                                      .log_name = "twamp",
                                      .locked = options.locked,
                                      .system = options.system,
                                      .default_entry_point = options.default_entry_point})),
    fast_path_(processor_, options.fast_path) {
} catch (const std::bad_alloc &) {
    throw std::runtime_error(
        no_memory_for(responder_ids_of(options.program), options.fast_path.session_capacity));
}

site::~site()
{
    try {
        (void)tear_down(); // has said what failed
    } catch (const std::exception &error) {
        olv_apps::report_error(program_name, "%s: %s", name_.c_str(), error.what());
    }
}

// --------------------------------------------------------------------------------------------------------
// The module
// --------------------------------------------------------------------------------------------------------

bool site::is_up() const
{
    return olv_twamp_valid_module_handle(module_) != 0;
}

bool site::initialise()
{
    const std::lock_guard lock{mutex_};
    const bool was_up = is_up();
    const std::uint32_t status = olv_twamp_init(module_);
    if (status != OLV_STATUS_OK) {
        module_->ctx = nullptr; // it holds the address of a block that was given back
    }
    require(status, "initialise the module");
    say(was_up ? "module was initialised already: nothing changed" : "module initialised");
    return !was_up;
}

void site::shut_down()
{
    const std::lock_guard lock{mutex_};
    require(is_up() ? framework_.shutdown(module_) : olv_twamp_shutdown(module_), "shut the module down");
    say("module shut down");
}

void site::set_log_level(std::uint32_t level)
{
    require(is_up() ? framework_.set_log_level(module_, level) : olv_twamp_sys_log(module_, level),
            "set log level " + std::to_string(level));
}

// --------------------------------------------------------------------------------------------------------
// Responders
// --------------------------------------------------------------------------------------------------------

const named_responder &site::create_responder(const responder_request &request)
{
    const std::lock_guard lock{mutex_};
    const std::string name = request.name.empty() ? free_name() : request.name;
    if (names_.count(name) != 0) {
        throw std::runtime_error("there is a responder " + name + " already; give the new one another name");
    }
    twamp_responder_handle *handle = nullptr;
    const std::uint32_t status = olv_twamp_responder_create(module_, &request.info, &handle);
    if (handle != nullptr) {
        responders_.push_back({name, handle}); // it lives, whatever the status
        names_.insert(name);
    }
    require(status, "create responder " + name);
    if (request.sessions) {
        write_maximum_or_delete(responders_.back(), *request.sessions);
    }
    say("responder %s created: ID 0x%X", name.c_str(), handle->responder_id);
    return responders_.back();
}

void site::clear_sessions(const std::string &responder_name)
{
    const std::lock_guard lock{mutex_};
    std::optional<std::uint32_t> id;
    if (!responder_name.empty()) {
        id = responder(responder_name).handle->responder_id;
    }
    say("sessions cleared: %u", fast_path_.clear_sessions(id));
}

std::uint32_t site::write_maximum_of_sessions(std::uint32_t id, std::uint32_t maximum)
{
    const bool counts =
        fast_path_.running() && std::any_of(listeners_.begin(), listeners_.end(), [&](const auto &each) {
            return fast_path_.path(each.first).responder_id == id;
        });
    if (counts) {
        fast_path_.stop(); // what is counted between the two calls would be lost; packets wait in the sockets
    }
    twamp_responder_state entry{};
    std::uint32_t status = hyx_se_state_get(processor_.rte_handle(), id, 0, &entry, sizeof entry);
    if (status == olv_sim::rte_ok) {
        entry.max_sessions = maximum;
        status = hyx_se_state_set(processor_.rte_handle(), id, 0, &entry, sizeof entry);
    }
    if (counts) {
        fast_path_.start();
    }
    return status;
}

void site::write_maximum_or_delete(const named_responder &created, std::uint32_t maximum)
{
    const std::uint32_t status = write_maximum_of_sessions(created.handle->responder_id, maximum);
    if (status == olv_sim::rte_ok) {
        return;
    }
    const std::string name = created.name;
    std::string failure = "cannot create responder " + name +
                          ": its maximum of sessions cannot be written: " + hyx_status_get(status);
    try {
        take_away(name);
    } catch (const step_failure &of_deletion) {
        failure.append("; ").append(of_deletion.what());
    }
    throw step_failure(failure);
}

void site::delete_responder(const std::string &name)
{
    const std::lock_guard lock{mutex_};
    take_away(name);
    say("responder %s deleted", name.c_str());
}

void site::take_away(const std::string &name)
{
    const auto found = find(name);
    require(olv_twamp_responder_delete(module_, found->handle), "delete responder " + name);
    hyx_nvm_free(found->handle);
    responders_.erase(found);
    names_.erase(name);
    lowest_free_ = 1;
}

const named_responder &site::responder(const std::string &name) const
{
    const std::lock_guard lock{mutex_};
    return *find(name);
}

std::vector<named_responder>::const_iterator site::find(const std::string &name) const
{
    const auto found = std::find_if(responders_.rbegin(), responders_.rend(), // the last ones go first
                                    [&](const named_responder &each) { return each.name == name; });
    if (found != responders_.rend()) {
        return std::prev(found.base());
    }
    if (responders_.empty()) {
        throw std::runtime_error("no responder '" + name + "', nor any other; 'responder create " + name +
                                 "' creates it");
    }
    throw std::runtime_error("no responder '" + name + "'; there are: " +
                             list_of(responders_, [](const named_responder &each) { return each.name; }));
}

std::string site::free_name()
{
    while (names_.count(std::to_string(lowest_free_)) != 0) {
        ++lowest_free_;
    }
    return std::to_string(lowest_free_);
}

// --------------------------------------------------------------------------------------------------------
// Output paths
// --------------------------------------------------------------------------------------------------------

olv_bind_info site::info_of(const bind_request &request, const std::uint32_t *key) const
{
    olv_module_handle *destination =
        request.to == output::ipv6 ? framework_.ipv6_module() : framework_.ipv4_module();
    olv_bind_info info = olv_sim::make_bind_info(module_, destination, key);
    info.bind_type = request.type.value_or(info.bind_type);
    info.bind_subtype = request.subtype.value_or(info.bind_subtype);
    info.bind_path = request.path.value_or(info.bind_path);
    info.src_location = request.source_location.value_or(info.src_location);
    info.dst_location = request.destination_location.value_or(info.dst_location);
    info.custom_bind = request.custom ? 1 : 0;
    return info;
}

void site::bind(const bind_request &request, bool direct)
{
    const std::lock_guard lock{mutex_};
    binding made{request, request.key.value_or(usual_bind_key(request.to))};
    const olv_bind_info info = info_of(request, &made.key);
    require(direct ? olv_twamp_custom_bind(framework_.system(), &info) : framework_.bind(info),
            std::string("bind to the ") + name_of(request.to) + " module");
    bound_.push_back(made);
    say("bound to the %s module: key %u", name_of(request.to), made.key);
}

void site::unbind(const bind_request &request, bool direct)
{
    const std::lock_guard lock{mutex_};
    const std::uint32_t key = request.key.value_or(usual_bind_key(request.to));
    const olv_bind_info info = info_of(request, &key);
    require(direct ? olv_twamp_custom_unbind(framework_.system(), &info) : framework_.unbind(info),
            std::string("unbind from the ") + name_of(request.to) + " module");
    const auto is_it = [&](const binding &each) { return each.request.to == request.to && each.key == key; };
    bound_.erase(std::remove_if(bound_.begin(), bound_.end(), is_it), bound_.end());
    say("unbound from the %s module", name_of(request.to));
}

std::uint32_t site::imc(const bind_request &request, bool direct)
{
    const std::uint32_t key = request.key.value_or(usual_bind_key(request.to));
    const olv_bind_info info = info_of(request, &key);
    std::uint32_t tree_function = 0;
    require(direct ? olv_twamp_get_imc(module_, &info, &tree_function)
                   : framework_.get_imc(module_, info, &tree_function),
            std::string("find the call to the ") + name_of(request.to) + " module");
    return tree_function;
}

// --------------------------------------------------------------------------------------------------------
// Listeners
// --------------------------------------------------------------------------------------------------------

std::string site::listen(const olv_net::socket_address &address, const olv_fastpath::packet_path &path)
{
    const std::lock_guard lock{mutex_};
    const std::size_t index = fast_path_.add(address, path);
    std::string real = fast_path_.local_address(index).text();
    listeners_.emplace(index, real);
    listener_numbers_.emplace(real, index);
    return real;
}

std::size_t site::listener_at(const std::string &address) const
{
    if (const auto found = listener_numbers_.find(address); found != listener_numbers_.end()) {
        return found->second;
    }
    if (listeners_.empty()) {
        throw std::runtime_error("nothing listens at " + address + ", nor at any other address");
    }
    throw std::runtime_error("nothing listens at " + address + "; there are: " +
                             list_of(listeners(), [](const std::string &each) { return each; }));
}

void site::unlisten(const std::string &address)
{
    const std::lock_guard lock{mutex_};
    const std::size_t index = listener_at(address);
    fast_path_.remove(index);
    listener_numbers_.erase(address);
    listeners_.erase(index);
}

void site::redirect(const std::string &address, const olv_fastpath::packet_path &path)
{
    const std::lock_guard lock{mutex_};
    fast_path_.set_path(listener_at(address), path);
}

std::vector<std::string> site::listeners() const
{
    const std::lock_guard lock{mutex_};
    std::vector<std::string> addresses;
    for (const auto &[index, address] : listeners_) {
        addresses.push_back(address);
    }
    return addresses;
}

olv_fastpath::listener_statistics site::counters_of(const std::string &address) const
{
    const std::lock_guard lock{mutex_};
    return fast_path_.statistics(listener_at(address));
}

void site::start()
{
    const std::lock_guard lock{mutex_};
    fast_path_.start();
}

void site::stop()
{
    const std::lock_guard lock{mutex_};
    if (fast_path_.running()) {
        fast_path_.stop();
        say("packets no longer answered");
    }
}

std::string site::reason_against_answering() const
{
    const std::lock_guard lock{mutex_};
    if (!is_up()) {
        return "the module is not up";
    }
    if (listeners_.empty()) {
        return "nothing listens";
    }
    return fast_path_.running() ? "" : "the listeners are stopped";
}

// --------------------------------------------------------------------------------------------------------
// Down, in the reverse order
// --------------------------------------------------------------------------------------------------------

bool site::tear_down()
{
    const std::lock_guard lock{mutex_};
    bool good = true;
    const auto attempt = [&good](const auto &work) {
        try {
            work();
        } catch (const std::exception &error) {
            olv_apps::report_error(program_name, "%s", error.what());
            good = false;
        }
    };
    stop();
    while (!listeners_.empty()) {
        unlisten(std::string{listeners_.rbegin()->second});
    }
    if (is_up()) { // a module that is down can take nothing back
        const std::list<binding> bound = bound_;
        std::for_each(bound.rbegin(), bound.rend(),
                      [&](const binding &each) { attempt([&] { unbind(each.request); }); });
        const std::vector<named_responder> responders = responders_;
        std::for_each(responders.rbegin(), responders.rend(),
                      [&](const named_responder &each) { attempt([&] { delete_responder(each.name); }); });
        attempt([this] { shut_down(); });
    }
    bound_.clear();
    for (const named_responder &each : responders_) {
        hyx_nvm_free(each.handle);
    }
    responders_.clear();
    names_.clear();
    lowest_free_ = 1;
    return good;
}

void site::require(std::uint32_t status, const std::string &what) const
{
    if (status != OLV_STATUS_OK) {
        const char *advice = is_up() ? "" : "; the module is not up, 'up' brings it up";
        throw step_failure("cannot " + what + ": " + status_text(framework_.system(), status) + advice);
    }
}

} // namespace twampctl
