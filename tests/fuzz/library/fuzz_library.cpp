// The library against its model: bytes become calls with arguments good and bad, and fault plans.
#include <map>
#include <string>

#include "library_run.hpp"
#include "target.hpp"

namespace {

olv_fuzz::model_constants &constants()
{
    static olv_fuzz::model_constants all;
    return all;
}

} // namespace

bool olv_fuzz::change_expectation(std::string_view what)
{
    model_constants &all = constants();
    if (what == "status") {
        all.unbind_unsupported = 9; // as bind answers
    } else if (what == "lock-status") {
        all.lock_failed = 0x300A6;
    } else if (what == "text") {
        all.create_failed = "TWAMP failed to create responder";
    } else if (what == "state") {
        all.state_byte_3 = 1;
    } else if (what == "trace") {
        all.exit_level = 8;
    } else if (what == "resources") {
        all.delete_frees_id = false;
    } else {
        return false;
    }
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static olv_fuzz::library_world world{constants()};
    world.begin();
    olv_fuzz::library_run{world, olv_fuzz::byte_source{{data, size}}}.run();
    world.end();
    return 0;
}
