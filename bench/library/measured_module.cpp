#include "measured_module.hpp"

#include <stdexcept>

#include "hyx.h"
#include "twamp_program.h"

namespace olv_bench {

measured_module::measured_module(std::uint32_t responders_at_most)
    : processor(olv_sim::classifier_program::twamp(responders_at_most)),
      module(framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor})),
      responders(responders_at_most),
      request(olv_sim::make_bind_info(module, framework.ipv4_module(), &bind_key))
{
    const std::uint32_t rte = module->rte_handle;
    if (olv_twamp_init(module) != OLV_STATUS_OK ||
        hyx_rsrc_find(rte, 0, TWAMP_RESPONDER_NAMESPACE, &responder_namespace) != 0 ||
        hyx_ptn_symbol_get_id(rte, TWAMP_RESPONDER_LOOKUP_FUNCTION, &responder_tree) != 0 ||
        hyx_ptn_symbol_get_id(rte, TWAMP_BIND_TO_NEXT_MODULE_FUNCTION, &bind_tree) != 0 ||
        hyx_ptn_symbol_get_id(rte, TWAMP_TO_IP_DIRECT_IMC_FUNCTION, &imc_tree) != 0) {
        throw std::runtime_error("the module cannot be initialised");
    }
}

measured_module::~measured_module()
{
    free_records();
    (void)olv_twamp_shutdown(module); // nothing can be done about a failure here
}

void measured_module::free_records()
{
    for (twamp_responder_handle *&responder : responders) {
        if (responder != nullptr) {
            hyx_nvm_free(responder);
            responder = nullptr;
        }
    }
}

} // namespace olv_bench
