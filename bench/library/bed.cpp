#include "bed.hpp"

#include <stdexcept>

namespace olv_bench {

bed::bed(std::uint32_t responders)
    : processor(olv_sim::classifier_program::twamp(responders)),
      module(framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor})),
      request(olv_sim::make_bind_info(module, framework.ipv4_module(), &bind_key))
{
    if (olv_twamp_init(module) != OLV_STATUS_OK) {
        throw std::runtime_error("the module cannot be initialised");
    }
}

bed::~bed()
{
    (void)olv_twamp_shutdown(module); // the records of the measured responders are freed with the process
}

} // namespace olv_bench
