// hyx_se_state_set, hyx_se_state_get.
#include <cstring>

#include "olv_sim/calls.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/statuses.hpp"
#include "sim/faults/platform_call.hpp"
#include "sim/rte/processor_model.hpp"

using namespace olv_sim;

namespace {

/** What both directions check. @return RTE status. */
std::uint32_t check(const processors::model *owner, std::uint32_t namespace_id, std::uint32_t index,
                    const void *bytes, std::uint32_t length)
{
    if (owner == nullptr) {
        return rte_invalid_instance;
    }
    if (bytes == nullptr) {
        return rte_null_pointer;
    }
    const std::uint32_t available = owner->state_length(namespace_id, index);
    if (available == 0) {
        return rte_no_such_state;
    }
    return length == 0 || length > available ? rte_state_length : rte_ok;
}

std::uint32_t set(std::uint32_t rte_handle, std::uint32_t namespace_id, std::uint32_t index, const void *bytes,
                  std::uint32_t length)
{
    processors::model *owner = processors::find(rte_handle, "hyx_se_state_set");
    const std::uint32_t status = check(owner, namespace_id, index, bytes, length);
    if (status == rte_ok) {
        owner->write_state(namespace_id, index, bytes, length);
    }
    return status;
}

std::uint32_t get(std::uint32_t rte_handle, std::uint32_t namespace_id, std::uint32_t index, void *bytes,
                  std::uint32_t length)
{
    processors::model *owner = processors::find(rte_handle, "hyx_se_state_get");
    const std::uint32_t status = check(owner, namespace_id, index, bytes, length);
    if (status == rte_ok) {
        const state_words words = owner->peek_state(namespace_id, index);
        if (words.empty()) {
            std::memset(bytes, 0, length);
        } else {
            read_words(words, bytes, length);
        }
    }
    return status;
}

} // namespace

std::uint32_t hyx_se_state_set(std::uint32_t rte_handle, std::uint32_t namespace_id, std::uint32_t index,
                               const void *bytes, std::uint32_t length)
{
    return status_call(
        call::hyx_se_state_set,
        [&](argument_text &text) {
            text.number("rte", rte_handle).id("namespace", namespace_id).number("index", index);
            text.bytes("bytes", bytes, length).number("length", length);
        },
        [&] { return set(rte_handle, namespace_id, index, bytes, length); });
}

std::uint32_t hyx_se_state_get(std::uint32_t rte_handle, std::uint32_t namespace_id, std::uint32_t index,
                               void *bytes, std::uint32_t length)
{
    return status_call(
        call::hyx_se_state_get,
        [&](argument_text &text) {
            text.number("rte", rte_handle).id("namespace", namespace_id).number("index", index);
            text.number("length", length);
        },
        [&] { return get(rte_handle, namespace_id, index, bytes, length); });
}
