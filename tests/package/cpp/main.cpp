// The life of the TWAMP module in a C++ program, on the software platform: one responder, bound to the IPv6
// module by the framework and taken down again.
#include <olv_sim.hpp>
#include <olv_twamp.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

void require(const std::string &step, std::uint32_t status)
{
    if (status != OLV_STATUS_OK) {
        throw std::runtime_error(step + ": " + olv_sys_status_get(nullptr, status));
    }
}

void run()
{
    olv_sim::processor processor{olv_sim::classifier_program::twamp()};
    olv_sim::framework framework;
    olv_module_handle *module =
        framework.create_module({.module_id = olv_sim::module_id_twamp, .processor = &processor});
    require("init", olv_twamp_init(module));

    const olv_twamp_responder_info info{};
    twamp_responder_handle *responder = nullptr;
    require("create", olv_twamp_responder_create(module, &info, &responder));

    const std::uint32_t bind_key = 6;
    const olv_bind_info output = olv_sim::make_bind_info(module, framework.ipv6_module(), &bind_key);
    require("bind", framework.bind(output));

    olv_twamp_responder_stats stats{};
    require("statistics", olv_twamp_responder_stats_get(module, responder, &stats));
    std::cout << "responder " << responder->responder_id << ": " << stats.received << " received, "
              << stats.transmitted << " transmitted\n";

    require("unbind", framework.unbind(output));
    require("delete", olv_twamp_responder_delete(module, responder));
    hyx_nvm_free(responder);
    require("shutdown", framework.shutdown(module));
}

} // namespace

int main()
{
    try {
        run();
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::cerr << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
