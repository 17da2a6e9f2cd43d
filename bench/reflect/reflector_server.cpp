#include "reflector_server.hpp"

#include <stdexcept>
#include <string>

#include "hyx.h"
#include "twamp_program.h"

namespace olv_bench {
namespace {

constexpr std::uint32_t responder_ids = 16;

void require(std::uint32_t status, const char *what)
{
    if (status != OLV_STATUS_OK) {
        throw std::runtime_error(std::string{"cannot "} + what + ": status " + std::to_string(status));
    }
}

} // namespace

responder_site::responder_site(std::uint32_t sessions)
    : processor_(olv_sim::classifier_program::twamp(responder_ids, responder_ids)),
      module_(framework_.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor_}))
{
    require(olv_twamp_init(module_), "initialise the module");
    const olv_twamp_responder_info info{};
    require(olv_twamp_responder_create(module_, &info, &responder_), "create a responder");
    const olv_bind_info bind = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &bind_key);
    require(olv_twamp_custom_bind(framework_.system(), &bind), "bind to the IPv4 module");
    set_maximum_sessions(sessions);
}

/** The one word of a state entry that its user sets. */
void responder_site::set_maximum_sessions(std::uint32_t sessions) const
{
    twamp_responder_state state{};
    const std::uint32_t rte = module_->rte_handle;
    require(hyx_se_state_get(rte, responder_->responder_id, 0, &state, sizeof state), "read the state entry");
    state.max_sessions = sessions;
    require(hyx_se_state_set(rte, responder_->responder_id, 0, &state, sizeof state), "write the state entry");
}

responder_site::~responder_site()
{
    // Nothing is left to be done about a failure.
    const olv_bind_info bind = olv_sim::make_bind_info(module_, framework_.ipv4_module(), &bind_key);
    (void)olv_twamp_custom_unbind(framework_.system(), &bind);
    (void)olv_twamp_responder_delete(module_, responder_);
    hyx_nvm_free(responder_);
    (void)framework_.shutdown(module_);
}

olv_fastpath::packet_path responder_site::path() const
{
    return {.responder_id = responder_->responder_id, .bind_key = bind_key};
}

olv_twamp_responder_stats responder_site::counters() const
{
    olv_twamp_responder_stats stats{};
    require(olv_twamp_responder_stats_get(module_, responder_, &stats), "read the responder's counters");
    return stats;
}

reflector_server::reflector_server(std::uint32_t sessions, std::uint32_t workers)
    : site_(sessions),
      // Each worker has room for all of them, and a quarter more.
      workers_(site_.processor(), {.session_capacity = (sessions + sessions / 4) * workers, .workers = workers})
{}

void reflector_server::open()
{
    listening_ = workers_.add(olv_net::parse_socket_address("127.0.0.1:0"), site_.path());
}

void reflector_server::stop()
{
    workers_.stop();
    workers_.remove(listening_);
}

std::vector<std::uint64_t> reflector_server::replies_by_worker() const
{
    std::vector<std::uint64_t> replies;
    for (const olv_fastpath::listener_statistics &each : workers_.statistics_by_worker()) {
        replies.push_back(each.sent_replies);
    }
    return replies;
}

} // namespace olv_bench
