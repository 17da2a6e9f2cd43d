// The library against its model: bytes become calls with arguments good and bad, and fault plans.
#include "library_run.hpp"
#include "target.hpp"

namespace {

olv_fuzz::model_constants constants;

} // namespace

const std::map<std::string_view, void (*)()> olv_fuzz::expectation_changes{
    {"status", [] { constants.unbind_unsupported = 9; }}, // as bind answers
    {"lock-status", [] { constants.lock_failed = 0x300A6; }},
    {"text", [] { constants.create_failed = "TWAMP failed to create responder"; }},
    {"state", [] { constants.state_byte_3 = 1; }},
    {"trace", [] { constants.exit_level = 8; }},
    {"resources", [] { constants.delete_frees_id = false; }},
};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static olv_fuzz::library_world world{constants};
    world.begin();
    olv_fuzz::library_run{world, olv_fuzz::byte_source{{data, size}}}.run();
    world.end();
    return 0;
}
