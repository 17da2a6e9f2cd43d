// A program whose platform has static storage: it is destroyed after main(), when the process ends.
#include "hyx.h"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "olv_twamp.h"

namespace {

olv_sim::framework framework;
olv_sim::processor processor{olv_sim::classifier_program::twamp(16)};

/** Takes its module down, and is destroyed after whatever main() made the platform make. */
struct module_user {
    ~module_user()
    {
        if (olv_twamp_shutdown(module) != 0 || olv_sim::memory::in_use().live_blocks != 0 ||
            olv_sim::violations::count() != 0) {
            std::_Exit(2);
        }
    }
    olv_module_handle *module = nullptr;
} user;

} // namespace

int main()
{
    user.module = framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor});
    const olv_twamp_responder_info info{1, 2};
    twamp_responder_handle *responder = nullptr;
    if (olv_twamp_init(user.module) != 0 || olv_twamp_responder_create(user.module, &info, &responder) != 0 ||
        olv_twamp_responder_delete(user.module, responder) != 0) {
        return 1;
    }
    hyx_nvm_free(responder);
    return 0;
}
