// Global counters and the dumps of the classifier trees.
#include "library_model.hpp"

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *walk_file = "twamp_internal.c";
constexpr std::uint32_t key_bits = 24;
constexpr const char *tree_names[] = {"olv_twamp.twamp_responder_lookup",
                                      "olv_twamp.twamp_bind_to_next_module"};

void dump_entry(library_model &m, std::uint32_t index, const model_key &key, const model_entry &entry)
{
    const auto [bits, value] = key;
    m.print("%s, ", tree_names[index]);
    if (index == 0) {
        const pattern_argument pattern{.length = bits, .pattern = {.known = true, .key = key}};
        (void)m.responder_entry_dump(&pattern, &entry.action);
    } else {
        const std::string shown = bits == 0 ? "*" : formatted("0x%0*x", static_cast<int>(bits / 4), value);
        m.print("<key = %s/%u><action = %s>", shown.c_str(), bits, text_of(entry.action).c_str());
    }
    m.console += '\n';
}

std::uint32_t dump_tree(library_model &m, const model_module &module, std::uint32_t index)
{
    const model_context &context = m.context_of(module);
    if (index == 0) {
        m.print("\n%s, ", tree_names[0]);
        (void)m.responder_entry_dump(nullptr, nullptr);
        m.console += '\n';
    }
    bool printed_once = false;
    return m.platform.list(module.record.rte_handle, index == 0 ? context.responder_tree : context.bind_tree,
                           [&](const model_key &key, const model_entry &entry) {
                               const bool only_once = entry.pattern_word == key_bits;
                               if (!only_once || !printed_once) {
                                   dump_entry(m, index, key, entry);
                               }
                               printed_once = printed_once || only_once;
                           });
}

} // namespace

std::uint32_t library_model::global_stats_get(model_module *module, words *stats)
{
    const operation_name name{"olv_twamp_global_stats_get", file, "Failed to delete Responder Handle"};
    return operate(module, name, [&](const operation &of) {
        if (stats == nullptr) {
            return fail(of, 0x30008, "Null Stats Pointer");
        }
        *stats = {};
        model_bytes block;
        const std::uint32_t code = platform.state_get(module->record.rte_handle, global_statistics, 24, block);
        if (code != 0) {
            return fail(of, 0x3002B,
                        text("Failed to read TWAMP Gloabl Stats, RTE error code:0x%x, error string: %s\n", code,
                             hyx_status_get(code)));
        }
        for (std::size_t index = 0; index < stats->size(); ++index) {
            stats->at(index) = big_endian_word(block, 4 * index);
        }
        return 0u;
    });
}

std::uint32_t library_model::global_stats_print(model_module *module)
{
    words stats{};
    if (global_stats_get(module, &stats) == 0) {
        console += "\nTWAMP global statistics (Non-zero only)\n";
        print_counters(
            {"Total received packets: ", "Total transmitted packets: ",
             "Packets dropped due to responder not defined : ", "Packets dropped due to length check failed: ",
             "Packets dropped due to hash errors: ", "Packets dropped due to bind not defined: "},
            stats);
    }
    return 0;
}

std::uint32_t library_model::tables_dump(model_module *module, std::uint32_t group)
{
    if (module == nullptr || module->record.magic != module_magic) {
        say_unknown(file, text("Invalid module handle 0x%08x\n", address_of(module)));
        return 0x30001;
    }
    const operation_name name{"olv_twamp_tables_dump", file, "failed to dump TWAMP tables"};
    return operate(module, name, [&](const operation &of) -> std::uint32_t {
        if (group < 1 || group > 3) {
            say_unknown(file, text("Invalid table group %d\n", static_cast<int>(group)));
            return 0x30008;
        }
        const std::uint32_t failed = dump_tables(*module, group);
        return failed == 0 ? 0 : fail(of, as_own(failed), "Failed to dump TWAMP Tables");
    });
}

std::uint32_t library_model::dump_tables(model_module &module, std::uint32_t group)
{
    const operation of{module, module.record.system, "olv_twamp_dump_tables", walk_file};
    function_line(of, severity::entry);
    for (std::uint32_t index = 0; index < 2; ++index) {
        const bool selected = (group & (1u << index)) != 0;
        const std::uint32_t code = selected ? dump_tree(*this, module, index) : 0;
        if (code != 0) {
            fail(of, 0x7E,
                 text("RTE Error %s: Failed to dump TWAMP tree for idx %d\n", hyx_status_get(code),
                      static_cast<int>(index)));
            fail(of, 0x7E, "Failed to dump TWAMP module's trees");
            function_line(of, severity::exit);
            return 0x7E;
        }
    }
    return 0; // without an exit line
}

std::uint32_t library_model::responder_entry_dump(const pattern_argument *pattern, const olv_ptn_action *action)
{
    const auto print_last = [this](std::string_view last) {
        console += last;
        return static_cast<std::uint32_t>(last.size());
    };
    if (pattern == nullptr) {
        return print_last("RESPONDER-ID, DEFINED/NOT_DEFINED ");
    }
    if (pattern->length == 0) {
        console += '*';
    } else if (pattern->length != key_bits) {
        return print_last("!!Unexpected Pattern!!");
    } else {
        std::uint32_t id = 0;
        if (platform.ptn_parse(pattern->pattern, id) != 0) {
            return print_last("!!Parse Error!!");
        }
        print("0x%X", id);
    }
    if (action != nullptr && (action->word[0] == 0 || action->word[0] == 4)) {
        return print_last(", DEFINED");
    }
    return print_last(action != nullptr && action->word[0] == 1 ? ", NOT_DEFINED" : "!!Unexpected Return!!");
}

} // namespace olv_fuzz
