// Responders: creation, deletion, counters.
#include "library_model.hpp"

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp_responder.c";
constexpr const char *lookup_tree = "olv_twamp.twamp_responder_lookup";

std::uint32_t address_of(const model_module *module)
{
    return module != nullptr ? module->address : 0;
}

void store(model_bytes &bytes, std::size_t at, std::uint32_t value)
{
    for (std::size_t index = 0; index < 4; ++index) {
        bytes.at(at + index) = static_cast<std::uint8_t>(value >> (24 - 8 * index));
    }
}

std::uint32_t load(const model_bytes &bytes, std::size_t at)
{
    std::uint32_t value = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        value = value << 8 | bytes.at(at + index);
    }
    return value;
}

} // namespace

std::uint32_t library_model::responder_create(model_module *module, const responder_request *info, int *slot)
{
    if (!usable(module)) {
        return refuse(file, module, "Failed to create Responder Handle");
    }
    const operation current = operation_of(*module, "olv_twamp_responder_create", file);
    return framed(current, [&] {
        const std::uint32_t result = create_work(current, info, slot);
        if (result != 0) {
            if (slot != nullptr && *slot >= 0) {
                model_responder &record = responders.at(static_cast<std::size_t>(*slot));
                record.module = nullptr;
                record.magic = 0;
                platform.free(record.block);
                *slot = -1;
            }
            say_text(speaker_of(current), severity::error, constants_.create_failed.c_str(),
                     constants_.create_failed);
            report(speaker_of(current), severity::error, result);
        }
        return result;
    });
}

std::uint32_t library_model::create_work(const operation &current, const responder_request *info, int *slot)
{
    const speaker by = speaker_of(current);
    if (info == nullptr || slot == nullptr) {
        return fail(by, 0x30008, "Null Info / Flow Handle Pointer");
    }
    *slot = -1;
    const std::uint32_t block = platform.calloc();
    if (block == no_block) {
        return fail_fatally(by, 0x30012, "Memory allocation failed responder handle");
    }
    responders.push_back({.block = block, .module = current.module, .magic = responder_magic});
    *slot = static_cast<int>(responders.size()) - 1;
    return create_steps(current, *info, slot);
}

std::uint32_t library_model::create_steps(const operation &current, const responder_request &info, int *slot)
{
    const speaker by = speaker_of(current);
    const std::uint32_t resources = context_of(*current.module).responder_namespace;
    std::uint32_t id = 0;
    const std::uint32_t allocated = platform.rsrc_allocate(resources, id);
    if (allocated != 0) {
        return fail(
            by, 0x3001D,
            "Failed to allocate index from namespace handle 0x%0x, RTE error code:0x%x, error string: %s\n",
            resources, allocated, hyx_status_get(allocated));
    }
    responders.at(static_cast<std::size_t>(*slot)).id = id;
    ++context_of(*current.module).created;

    const model_bytes entry = state_entry(current, info);
    std::uint32_t result = 0;
    const std::uint32_t written = platform.state_set(current.module->rte, id, entry);
    if (written != 0) {
        result = fail(by, 0x3002C, "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n",
                      written, hyx_status_get(written));
    } else {
        result = with_responder_key(
            current, id, [&](const model_pattern &pattern) { return learn_responder(current, pattern); });
    }
    if (result != 0) {
        (void)platform.rsrc_free(resources, id);
    }
    return result;
}

model_bytes library_model::state_entry(const operation &current, const responder_request &info)
{
    std::uint64_t ticks = 0;
    (void)platform.timer(current.module->rte, ticks);
    model_bytes entry(60);
    entry[0] = static_cast<std::uint8_t>(info.param_a >> 8);
    entry[1] = static_cast<std::uint8_t>(info.param_a);
    entry[3] = constants_.state_byte_3;
    store(entry, 4, info.param_b | 0x80000000u);
    store(entry, 8, context_of(*current.module).created);
    store(entry, 16, static_cast<std::uint32_t>(day_seconds) + 2208988800u);
    const double fraction = static_cast<double>(day_microseconds) * 1e-6;
    store(entry, 20, static_cast<std::uint32_t>(fraction * 4294967295.0));
    store(entry, 24, static_cast<std::uint32_t>(ticks >> 32));
    store(entry, 28, static_cast<std::uint32_t>(ticks));
    const std::uint32_t maximum_sessions = 32;
    const auto *host_order = reinterpret_cast<const std::uint8_t *>(&maximum_sessions);
    std::copy(host_order, host_order + 4, entry.begin() + 52);
    return entry;
}

/** Make the pattern of a responder's key, let the work use it, free it. */
std::uint32_t library_model::with_responder_key(const operation &current, std::uint32_t id,
                                                const std::function<std::uint32_t(model_pattern &)> &work)
{
    const speaker by = speaker_of(current);
    model_pattern pattern;
    std::uint32_t status = platform.ptn_new(pattern);
    if (status != 0) {
        return fail(by, status, "Failed to allocate the pattern structure");
    }
    status = platform.ptn_extend(pattern, id, 24);
    if (status != 0) {
        fail(by, status, "Failed to add the responder flow ID to the pattern");
    } else {
        status = work(pattern);
    }
    platform.ptn_free(pattern);
    return status;
}

std::uint32_t library_model::learn_responder(const operation &current, const model_pattern &pattern)
{
    const speaker by = speaker_of(current);
    const std::uint32_t tree = context_of(*current.module).responder_tree;
    const std::uint32_t code = platform.learn(current.module->rte, tree, pattern, {});
    if (code != 0) {
        return fail(by, 0x30040,
                    "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
                    static_cast<int>(tree), code, hyx_status_get(code));
    }
    pattern_line(current, "ptn_learn", true, lookup_tree, pattern, {});
    return 0;
}

bool library_model::accepts(const model_module *module, int responder)
{
    const model_responder none;
    const model_responder &record = responder < 0 ? none : responders.at(static_cast<std::size_t>(responder));
    if (usable(module) && record.magic == responder_magic) {
        return true;
    }
    if (usable(module)) {
        say_unknown(file, "Invalid TWAMP Responder handle 0x%08x\n", record.address);
    } else {
        say_unknown(file, "Invalid TWAMP module handle 0x%08x\n", address_of(module));
    }
    say_unknown(file, "Failed to delete Responder Handle");
    return false;
}

std::uint32_t library_model::responder_delete(model_module *module, int responder)
{
    if (!accepts(module, responder)) {
        return 1;
    }
    const model_responder &record = responders.at(static_cast<std::size_t>(responder));
    const operation current = operation_of(*module, "olv_twamp_responder_delete", file);
    const auto take_out = [&](model_pattern &pattern) { return delete_entry(current, record.id, pattern); };
    return framed(current, [&] { return with_responder_key(current, record.id, take_out); });
}

std::uint32_t library_model::delete_entry(const operation &current, std::uint32_t id, model_pattern &pattern)
{
    const speaker by = speaker_of(current);
    const model_context &context = context_of(*current.module);
    std::uint32_t code = platform.unlearn(current.module->rte, context.responder_tree, pattern);
    if (code != 0) {
        return fail(by, 0x30040,
                    "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n",
                    static_cast<int>(context.responder_tree), code, hyx_status_get(code));
    }
    pattern_line(current, "ptn_unlearn", true, lookup_tree, pattern, {});
    code = constants_.delete_frees_id ? platform.rsrc_free(context.responder_namespace, id) : 0;
    if (code != 0) {
        return fail(
            by, 0x3001E,
            "Failed to free resource to namespace handle 0x%0x, RTE error code:0x%x, error string: %s\n",
            context.responder_namespace, code, hyx_status_get(code));
    }
    code = platform.state_set(current.module->rte, id, model_bytes(60));
    if (code != 0) {
        return fail(by, 0x3002C, "Failed to reset Responder state, RTE error code:0x%x, error string: %s\n",
                    code, hyx_status_get(code));
    }
    return 0;
}

std::uint32_t library_model::responder_stats_get(model_module *module, int responder,
                                                 std::array<std::uint32_t, 5> *stats)
{
    if (!accepts(module, responder)) {
        return 1;
    }
    const model_responder &record = responders.at(static_cast<std::size_t>(responder));
    const operation current = operation_of(*module, "olv_twamp_responder_stats_get", file);
    return framed(current, [&] {
        const speaker by = speaker_of(current);
        if (stats == nullptr) {
            return fail(by, 0x30008, "Null Stats Pointer");
        }
        model_bytes entry;
        const std::uint32_t code = platform.state_get(module->rte, record.id, 60, entry);
        if (code != 0) {
            return fail(by, 0x3002B, "Failed to read Responder state, RTE error code:0x%x, error string: %s\n",
                        code, hyx_status_get(code));
        }
        *stats = {load(entry, 32), load(entry, 36), load(entry, 44), load(entry, 40), load(entry, 48)};
        return 0u;
    });
}

std::uint32_t library_model::responder_stats_print(model_module *module, int responder)
{
    static constexpr std::array labels{
        "received packets: ", "transmitted packets: ", "Packets dropped due to length check failed: ",
        "Number of active sessions: ", "Packets dropped due to max number of sessions reached: "};
    std::array<std::uint32_t, 5> stats{};
    if (responder_stats_get(module, responder, &stats) != 0) {
        return 0;
    }
    console += "\nTWAMP responder statistics (Non-zero only)\n";
    for (std::size_t field = 0; field < stats.size(); ++field) {
        if (stats[field] != 0) {
            print("%s%d\n", labels[field], static_cast<int>(stats[field]));
        }
    }
    return 0;
}

} // namespace olv_fuzz
