// hyx_rsrc_find, hyx_rsrc_allocate, hyx_rsrc_free.
#include "olv_sim/calls.hpp"
#include "olv_sim/statuses.hpp"
#include "sim/faults/platform_call.hpp"
#include "sim/rte/processor_model.hpp"

using namespace olv_sim;

namespace {

std::uint32_t find_by_name(std::uint32_t rte_handle, const char *name, std::uint32_t *namespace_handle)
{
    const processors::model *owner = processors::find(rte_handle, "hyx_rsrc_find");
    if (owner == nullptr) {
        return rte_invalid_instance;
    }
    if (name == nullptr || namespace_handle == nullptr) {
        return rte_null_pointer;
    }
    for (std::size_t position = 0; position < owner->namespaces.size(); ++position) {
        if (owner->namespaces[position]->name() == name) {
            *namespace_handle = processors::namespace_handle(*owner, position);
            return rte_ok;
        }
    }
    return rte_no_such_namespace;
}

std::uint32_t allocate(std::uint32_t namespace_handle, std::uint32_t count, std::uint32_t *resource)
{
    name_space *resources = processors::find_namespace(namespace_handle, "hyx_rsrc_allocate");
    if (resources == nullptr) {
        return rte_no_such_namespace;
    }
    return resource == nullptr ? std::uint32_t{rte_null_pointer} : resources->allocate(count, *resource);
}

std::uint32_t release(std::uint32_t namespace_handle, std::uint32_t resource, std::uint32_t count)
{
    name_space *resources = processors::find_namespace(namespace_handle, "hyx_rsrc_free");
    return resources == nullptr ? std::uint32_t{rte_no_such_namespace} : resources->release(resource, count);
}

} // namespace

std::uint32_t hyx_rsrc_find(std::uint32_t rte_handle, std::uint32_t unused, const char *name,
                            std::uint32_t *namespace_handle)
{
    return status_call(
        call::hyx_rsrc_find,
        [&](argument_text &text) {
            text.number("rte", rte_handle).number("unused", unused).text("name", name);
        },
        [&] { return find_by_name(rte_handle, name, namespace_handle); });
}

std::uint32_t hyx_rsrc_allocate(std::uint32_t namespace_handle, std::uint32_t count, std::uint32_t *resource)
{
    return status_call(
        call::hyx_rsrc_allocate,
        [&](argument_text &text) { text.hex("namespace", namespace_handle).number("count", count); },
        [&] { return allocate(namespace_handle, count, resource); });
}

std::uint32_t hyx_rsrc_free(std::uint32_t namespace_handle, std::uint32_t resource, std::uint32_t count)
{
    return status_call(
        call::hyx_rsrc_free,
        [&](argument_text &text) {
            text.hex("namespace", namespace_handle).number("resource", resource).number("count", count);
        },
        [&] { return release(namespace_handle, resource, count); });
}
