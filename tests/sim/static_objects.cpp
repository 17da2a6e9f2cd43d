// A program whose platform has static storage: it is destroyed after main(), when the process ends.
#include <cstdlib>

#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "olv_twamp.h"

namespace {

olv_sim::framework framework;
olv_sim::processor processor{olv_sim::classifier_program::twamp(16)};

/** Takes its module down after main(), which made the platform make whatever it makes late. */
struct module_user {
    ~module_user()
    {
        if (olv_twamp_shutdown(module) != 0 || olv_sim::memory::in_use().live_blocks != 0 ||
            olv_sim::violations::count() != 0) {
            std::_Exit(2);
        }
    }
    olv_module_handle *module = framework.create_module({.module_id = 3, .processor = &processor});
} user;

} // namespace

int main()
{
    return olv_twamp_init(user.module) == 0 ? 0 : 1;
}
