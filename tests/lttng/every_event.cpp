// Sends an event of each kind to LTTng, in ways in which the library does not.
#include <memory>
#include <numeric>
#include <string>

#include "olv_sim/framework.hpp"
#include "olv_sim/tracer.hpp"

namespace {

olv_lttng_trace_fn function(std::uint32_t level)
{
    olv_lttng_trace_fn found = nullptr;
    olv_lttng_fn_ptr_get(olv_sim::module_id_twamp, level, &found);
    return found;
}

void send_messages_and_functions(const olv_module_handle *module)
{
    for (const std::uint32_t level : {0u, 2u, 4u, 8u}) {
        function(level)(module, 10, "message.c", "level %u of \"%s\"\n\n", level, "all");
    }
    function(0)(nullptr, 11, nullptr, "%s", std::string(5000, 'x').c_str());
    function(8)(module, 20, "function.c", nullptr, "olv_twamp_init");
    function(9)(module, 21, "function.c", nullptr, "olv_twamp_init");
}

void send_state_writes_and_entries(const olv_module_handle *module)
{
    unsigned char bytes[60];
    std::iota(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(0xC4));
    function(27)(module, 30, "state.c", nullptr, 0x00ABCDEFu, 7u, static_cast<const void *>(bytes), 60u);
    function(27)(module, 31, "state.c", nullptr, 1u, 0xFFFFFFFFu, static_cast<const void *>(nullptr), 60u);
    olv_ptn pattern{};
    (void)olv_ptn_new(24, &pattern); // the recording shows whether
    (void)olv_ptn_extend(&pattern, 0xABCDEF, 24);
    const std::uint32_t *word = pattern.word;
    function(15)(module, 40, "entry.c", nullptr, "a.tree", word[0], word[1], word[2], 1u, 0x401u, 0xFFFFFFFFu);
    function(16)(module, 41, "entry.c", nullptr, "a.tree", word[0], word[1], word[2], 20u, 1u, 0x401u, 0u);
    olv_ptn_free(pattern);
    function(15)(module, 42, "entry.c", nullptr, "a.tree", 1u, 2u, 3u, 4u, 5u, 6u);
}

} // namespace

int main()
{
    const std::unique_ptr<olv_sim::trace_sink> sink = olv_sim::tracer::load_lttng();
    olv_sim::tracer::set_sink(sink.get());
    olv_sim::framework framework;
    const olv_module_handle *module = framework.create_module({.module_id = 7, .log_name = "seven"});
    send_messages_and_functions(module);
    send_state_writes_and_entries(module);
    olv_lttng_trace_sif_force_error(0xFEEDu, 50, "forced.c", "handle 0x%08x\n", 0xBADu);
    olv_sim::tracer::set_sink(nullptr);
}
