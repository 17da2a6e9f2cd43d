#include "bed.hpp"
#include "hyx.h"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "twamp_program.h"

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
        hyx_rsrc_find(rte, 0, TWAMP_RESPONDER_NAMESPACE, &responder_ns) != 0 ||
        hyx_ptn_symbol_get_id(rte, TWAMP_RESPONDER_LOOKUP_FUNCTION, &responder_tree) != 0 ||
        hyx_ptn_symbol_get_id(rte, TWAMP_BIND_TO_NEXT_MODULE_FUNCTION, &bind_tree) != 0 ||
        hyx_ptn_symbol_get_id(rte, TWAMP_TO_IP_DIRECT_IMC_FUNCTION, &imc_tree) != 0) {
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
