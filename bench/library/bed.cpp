#include "bed.hpp"
#include "hyx.h"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"

#include <stdexcept>

namespace olv_bench {

bed::bed(std::uint32_t responders_at_most)
    : processor(olv_sim::classifier_program::twamp(responders_at_most)),
      module(framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor})),
      responders(responders_at_most),
      request(olv_sim::make_bind_info(module, framework.ipv4_module(), &bind_key))
{
    const std::uint32_t rte = module->rte_handle;
    if (olv_twamp_init(module) != OLV_STATUS_OK ||
        hyx_rsrc_find(rte, 0, "twamp_responder", &responder_ns) != 0 ||
        hyx_ptn_symbol_get_id(rte, "olv_twamp.twamp_responder_lookup", &responder_tree) != 0 ||
        hyx_ptn_symbol_get_id(rte, "olv_twamp.twamp_bind_to_next_module", &bind_tree) != 0 ||
        hyx_ptn_symbol_get_id(rte, "olv_twamp.twamp_to_ip_direct_imc", &imc_tree) != 0) {
        throw std::runtime_error("the module cannot be initialised");
    }
}

bed::~bed()
{
    free_records();
    (void)olv_twamp_shutdown(module); // nothing can be done about a failure here
}

void bed::free_records()
{
    for (twamp_responder_handle *&responder : responders) {
        if (responder != nullptr) {
            hyx_nvm_free(responder);
            responder = nullptr;
        }
    }
}

} // namespace olv_bench
