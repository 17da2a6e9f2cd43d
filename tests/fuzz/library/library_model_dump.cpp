// Global counters and the dumps of the classifier trees.
#include "library_model.hpp"

#include <cstdio>

namespace olv_fuzz {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *walk_file = "twamp_internal.c";
constexpr std::uint32_t key_bits = 24;
constexpr std::uint32_t group_masks[] = {1, 2};
constexpr const char *tree_names[] = {"olv_twamp.twamp_responder_lookup",
                                      "olv_twamp.twamp_bind_to_next_module"};

} // namespace

std::uint32_t library_model::global_stats_get(model_module *module, std::array<std::uint32_t, 6> *stats)
{
    if (!usable(module)) {
        return refuse(file, module, "Failed to delete Responder Handle");
    }
    const operation current = operation_of(*module, "olv_twamp_global_stats_get", file);
    return framed(current, [&] {
        const speaker by = speaker_of(current);
        if (stats == nullptr) {
            return fail(by, 0x30008, "Null Stats Pointer");
        }
        *stats = {};
        model_bytes block;
        const std::uint32_t code = platform.state_get(module->rte, 0x7008C1, 24, block);
        if (code != 0) {
            return fail(by, 0x3002B,
                        "Failed to read TWAMP Gloabl Stats, RTE error code:0x%x, error string: %s\n", code,
                        hyx_status_get(code));
        }
        for (std::size_t index = 0; index < 24; ++index) {
            std::uint32_t &word = (*stats)[index / 4];
            word = word << 8 | block[index];
        }
        return 0u;
    });
}

std::uint32_t library_model::global_stats_print(model_module *module)
{
    static constexpr std::array labels{"Total received packets: ",
                                       "Total transmitted packets: ",
                                       "Packets dropped due to responder not defined : ",
                                       "Packets dropped due to length check failed: ",
                                       "Packets dropped due to hash errors: ",
                                       "Packets dropped due to bind not defined: "};
    std::array<std::uint32_t, 6> stats{};
    if (global_stats_get(module, &stats) != 0) {
        return 0;
    }
    console += "\nTWAMP global statistics (Non-zero only)\n";
    for (std::size_t field = 0; field < stats.size(); ++field) {
        if (stats[field] != 0) {
            print("%s%d\n", labels[field], static_cast<int>(stats[field]));
        }
    }
    return 0;
}

std::uint32_t library_model::tables_dump(model_module *module, std::uint32_t group)
{
    const std::uint32_t address = module != nullptr ? module->address : 0;
    if (module == nullptr || module->magic != 0x53248791) {
        say_unknown(file, "Invalid module handle 0x%08x\n", address);
        return 0x30001;
    }
    if (!usable(module)) {
        return refuse(file, module, "failed to dump TWAMP tables");
    }
    const operation current = operation_of(*module, "olv_twamp_tables_dump", file);
    return framed(current, [&]() -> std::uint32_t {
        if (group < 1 || group > 3) {
            say_unknown(file, "Invalid table group %d\n", static_cast<int>(group));
            return 0x30008;
        }
        const std::uint32_t failed = dump_tables(*module, group);
        if (failed == 0) {
            return 0;
        }
        const std::uint32_t status = (failed & ~0xF0000u) | 0x30000u;
        return fail(speaker_of(current), status, "Failed to dump TWAMP Tables");
    });
}

std::uint32_t library_model::dump_tables(model_module &module, std::uint32_t group)
{
    const operation current = operation_of(module, "olv_twamp_dump_tables", walk_file);
    function_line(current, true);
    for (std::uint32_t index = 0; index < 2; ++index) {
        if ((group & group_masks[index]) == 0) {
            continue;
        }
        const std::uint32_t code = dump_tree(current, index);
        if (code != 0) {
            const speaker by = speaker_of(current);
            fail(by, 0x7E, "RTE Error %s: Failed to dump TWAMP tree for idx %d\n", hyx_status_get(code),
                 static_cast<int>(index));
            fail(by, 0x7E, "Failed to dump TWAMP module's trees");
            function_line(current, false);
            return 0x7E;
        }
    }
    return 0; // without an exit line
}

std::uint32_t library_model::dump_tree(const operation &current, std::uint32_t index)
{
    const model_context &context = context_of(*current.module);
    if (index == 0) {
        print("\n%s, ", tree_names[0]);
        (void)responder_entry_dump(nullptr, 0);
        console += '\n';
    }
    bool printed_once = false;
    return platform.list(current.module->rte, index == 0 ? context.responder_tree : context.bind_tree,
                         [&](const model_key &key, const model_entry &entry) {
                             const bool only_once = entry.pattern_word == key_bits;
                             if (!only_once || !printed_once) {
                                 dump_entry(index, key, entry);
                             }
                             printed_once = printed_once || only_once;
                         });
}

void library_model::dump_entry(std::uint32_t index, const model_key &key, const model_entry &entry)
{
    const auto [bits, value] = key;
    print("%s, ", tree_names[index]);
    if (index == 0) {
        const pattern_argument pattern{.length = bits,
                                       .pattern = {.known = true, .bits = bits, .value = value}};
        (void)responder_entry_dump(&pattern, entry.action[0]);
    } else if (bits == 0) {
        print("<key = */0>");
    } else {
        print("<key = 0x%0*x/%u>", static_cast<int>(bits / 4), value, bits);
    }
    if (index != 0) {
        print("<action = 0x%08x 0x%08x 0x%08x>", entry.action[0], entry.action[1], entry.action[2]);
    }
    console += '\n';
}

void library_model::table_entry_dump(std::uint32_t tree_index, const pattern_argument *pattern,
                                     std::optional<std::uint32_t> value)
{
    if (tree_index == 0) {
        (void)responder_entry_dump(pattern, value);
    }
}

int library_model::responder_entry_dump(const pattern_argument *pattern, std::optional<std::uint32_t> value)
{
    const auto say_last = [this](const std::string &text) {
        console += text;
        return static_cast<int>(text.size());
    };
    if (pattern == nullptr) {
        return say_last("RESPONDER-ID, DEFINED/NOT_DEFINED ");
    }
    if (pattern->length == 0) {
        console += '*';
    } else if (pattern->length != key_bits) {
        return say_last("!!Unexpected Pattern!!");
    } else {
        std::uint32_t id = 0;
        if (platform.ptn_parse(pattern->pattern, id) != 0) {
            return say_last("!!Parse Error!!");
        }
        print("0x%X", id);
    }
    if (value == 0u || value == 4u) {
        return say_last(", DEFINED");
    }
    return say_last(value == 1u ? ", NOT_DEFINED" : "!!Unexpected Return!!");
}

} // namespace olv_fuzz
