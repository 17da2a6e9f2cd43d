// Responders: creation, deletion, counters.
#include "library_model.hpp"

#include <algorithm>

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp_responder.c";

void store(model_bytes &bytes, std::size_t at, std::uint32_t value)
{
    for (std::size_t index = 0; index < 4; ++index) {
        bytes.at(at + index) = static_cast<std::uint8_t>(value >> (24 - 8 * index));
    }
}

model_bytes state_entry(library_model &m, const operation &of, const olv_twamp_responder_info &info)
{
    std::uint64_t ticks = 0;
    (void)m.platform.timer(of.module.record.rte_handle, ticks);
    model_bytes entry(60);
    store(entry, 0, std::uint32_t{info.param_a} << 16 | m.constants.state_byte_3);
    store(entry, 4, info.param_b | 0x80000000u);
    store(entry, 8, m.context_of(of.module).created);
    store(entry, 16, static_cast<std::uint32_t>(m.day.seconds) + 2208988800u);
    const double fraction = static_cast<double>(m.day.microseconds) * 1e-6;
    store(entry, 20, static_cast<std::uint32_t>(fraction * 4294967295.0));
    store(entry, 24, static_cast<std::uint32_t>(ticks >> 32));
    store(entry, 28, static_cast<std::uint32_t>(ticks));
    const std::uint32_t maximum_sessions = 32;
    const auto *host_order = reinterpret_cast<const std::uint8_t *>(&maximum_sessions);
    std::copy(host_order, host_order + 4, entry.begin() + 52);
    return entry;
}

std::uint32_t clear_or_write_state(library_model &m, const operation &of, std::uint32_t id,
                                   const model_bytes &entry)
{
    const std::uint32_t code = m.platform.state_set(of.module.record.rte_handle, id, entry);
    return code == 0 ? 0
                     : m.fail(of, 0x3002C,
                              text("Failed to reset Responder state, RTE error code:0x%x, error string: %s\n",
                                   code, hyx_status_get(code)));
}

/** Make the pattern of a responder's key, let the work use it, free it. */
std::uint32_t with_key(library_model &m, const operation &of, std::uint32_t id,
                       const std::function<std::uint32_t(const model_key &)> &work)
{
    model_pattern pattern;
    std::uint32_t status = m.platform.ptn_new(pattern);
    if (status != 0) {
        return m.fail(of, status, "Failed to allocate the pattern structure");
    }
    status = m.platform.ptn_extend(pattern, id);
    status = status != 0 ? m.fail(of, status, "Failed to add the responder flow ID to the pattern")
                         : work(pattern.key);
    m.platform.ptn_free(pattern);
    return status;
}

/** Learn or remove the responder's entry, which says "learn" of both. */
std::uint32_t change_lookup(library_model &m, const operation &of, const model_key &key, severity how)
{
    const model_tree_use lookup{
        m.context_of(of.module).responder_tree, "olv_twamp.twamp_responder_lookup", true, 0x30040,
        "Failed to learn the tree entry, treeID = %dRTE error code:0x%x, error string: %s\n"};
    return m.change_entry(of, how, lookup, key, {});
}

std::uint32_t set_up(library_model &m, const operation &of, const olv_twamp_responder_info &info,
                     twamp_responder_handle &record)
{
    model_context &context = m.context_of(of.module);
    std::uint32_t id = 0;
    const std::uint32_t code = m.platform.rsrc_allocate(context.responder_namespace, id);
    if (code != 0) {
        return m.fail(of, 0x3001D,
                      text("Failed to allocate index from namespace handle 0x%0x, RTE error code:0x%x, error "
                           "string: %s\n",
                           context.responder_namespace, code, hyx_status_get(code)));
    }
    record.responder_id = id;
    ++context.created;
    std::uint32_t status = clear_or_write_state(m, of, id, state_entry(m, of, info));
    if (status == 0) {
        status = with_key(m, of, id,
                          [&](const model_key &key) { return change_lookup(m, of, key, severity::learnt); });
    }
    if (status != 0) {
        (void)m.platform.rsrc_free(context.responder_namespace, id);
    }
    return status;
}

std::uint32_t create_work(library_model &m, const operation &of, const olv_twamp_responder_info *info,
                          int *slot)
{
    if (info == nullptr || slot == nullptr) {
        return m.fail(of, 0x30008, "Null Info / Flow Handle Pointer");
    }
    *slot = -1;
    const std::uint32_t block = m.platform.calloc();
    if (block == no_block) {
        return m.fail(of, 0x30012, "Memory allocation failed responder handle", severity::fatal);
    }
    *slot = static_cast<int>(m.responders.size());
    m.responders.push_back({.block = block});
    twamp_responder_handle &record = m.responders.back().record;
    record.module = of.module.real;
    record.magic = responder_magic;
    return set_up(m, of, *info, record);
}

/** Whether the handles of deletion and statistics are usable; says so where they are not. */
bool accepts(library_model &m, const model_module *module, int responder)
{
    const model_responder none;
    const model_responder &given = responder < 0 ? none : m.responders.at(static_cast<std::size_t>(responder));
    if (!m.usable(module)) {
        m.refuse_module(file, module, "Failed to delete Responder Handle");
    } else if (given.record.magic != responder_magic) {
        m.refuse(file, text("Invalid TWAMP Responder handle 0x%08x\n", low_word(given.real)),
                 "Failed to delete Responder Handle");
    } else {
        return true;
    }
    return false;
}

} // namespace

std::uint32_t library_model::responder_create(model_module *module, const olv_twamp_responder_info *info,
                                              int *slot)
{
    const operation_name name{"olv_twamp_responder_create", file, "Failed to create Responder Handle"};
    return operate(module, name, [&](const operation &of) {
        const std::uint32_t result = create_work(*this, of, info, slot);
        if (result == 0) {
            return 0u;
        }
        if (slot != nullptr && *slot >= 0) {
            model_responder &failed = responders.at(static_cast<std::size_t>(*slot));
            failed.record.module = nullptr;
            failed.record.magic = 0;
            platform.free(failed.block);
            *slot = -1;
        }
        return fail(of, result, constants.create_failed.c_str());
    });
}

std::uint32_t library_model::responder_delete(model_module *module, int responder)
{
    if (!accepts(*this, module, responder)) {
        return 1;
    }
    const std::uint32_t id = responders.at(static_cast<std::size_t>(responder)).record.responder_id;
    const operation of{*module, module->record.system, "olv_twamp_responder_delete", file};
    const auto take_out = [&](const model_key &key) {
        const std::uint32_t status = change_lookup(*this, of, key, severity::removed);
        if (status != 0) {
            return status;
        }
        const std::uint32_t ids = context_of(*module).responder_namespace;
        const std::uint32_t code = constants.delete_frees_id ? platform.rsrc_free(ids, id) : 0;
        if (code != 0) {
            return fail(of, 0x3001E,
                        text("Failed to free resource to namespace handle 0x%0x, RTE error code:0x%x, error "
                             "string: %s\n",
                             ids, code, hyx_status_get(code)));
        }
        return clear_or_write_state(*this, of, id, model_bytes(60));
    };
    return framed(of, [&] { return with_key(*this, of, id, take_out); });
}

std::uint32_t library_model::responder_stats_get(model_module *module, int responder, words *stats)
{
    if (!accepts(*this, module, responder)) {
        return 1;
    }
    const std::uint32_t id = responders.at(static_cast<std::size_t>(responder)).record.responder_id;
    const operation of{*module, module->record.system, "olv_twamp_responder_stats_get", file};
    return framed(of, [&] {
        if (stats == nullptr) {
            return fail(of, 0x30008, "Null Stats Pointer");
        }
        model_bytes entry;
        const std::uint32_t code = platform.state_get(module->record.rte_handle, id, 60, entry);
        if (code != 0) {
            return fail(of, 0x3002B,
                        text("Failed to read Responder state, RTE error code:0x%x, error string: %s\n", code,
                             hyx_status_get(code)));
        }
        std::size_t field = 0;
        for (const unsigned at : {32u, 36u, 44u, 40u, 48u}) {
            stats->at(field++) = big_endian_word(entry, at);
        }
        return 0u;
    });
}

std::uint32_t library_model::responder_stats_print(model_module *module, int responder)
{
    words stats{};
    if (responder_stats_get(module, responder, &stats) == 0) {
        console += "\nTWAMP responder statistics (Non-zero only)\n";
        print_counters(
            {"received packets: ", "transmitted packets: ", "Packets dropped due to length check failed: ",
             "Number of active sessions: ", "Packets dropped due to max number of sessions reached: "},
            stats);
    }
    return 0;
}

} // namespace olv_fuzz
