// The calls of the library, each as the model and as the library takes it, with arguments good and bad.
#include <cstring>

#include "library_run.hpp"

namespace olv_fuzz {
namespace {

// Arguments. The input has a call's in the order in which the table names them.

constexpr argument any_module = [](library_run &r, arguments &a) { a.module = r.any_module(); };
constexpr argument framework_module = [](library_run &r, arguments &a) { a.module = &r.framework_module(); };
constexpr argument responder = [](library_run &r, arguments &a) { a.responder = r.any_responder(); };
constexpr argument record = [](library_run &r, arguments &a) { a.has_record = r.input.byte() < 224; };
constexpr argument info = [](library_run &r, arguments &a) { a.info = {r.input.half(), r.input.half()}; };
constexpr argument is_usable = [](library_run &r, arguments &a) {
    a.is_made = r.world.model->usable(a.module);
};
template <std::uint32_t... Choices>
constexpr argument number_of = [](library_run &r, arguments &a) { a.number = r.input.one_of<Choices...>(); };
template <std::uint32_t Limit>
constexpr argument number_below = [](library_run &r, arguments &a) { a.number = r.input.below(Limit); };
constexpr argument level = number_of<0, 1, 3, 7, 15, 2, 16, 0x11, 0xFF, 0x80000000, 0xFFFFFFFF, 4>;
constexpr argument group = number_of<3, 1, 2, 0, 4, 0x80000000, 0xFFFFFFFF, 7>;

void slot(library_run &r, arguments &a)
{
    const std::uint32_t number = r.input.below(library_world::slot_count + 1);
    a.slot = number < library_world::slot_count ? &r.world.slots[number] : nullptr;
}

void request(library_run &r, arguments &a)
{
    a.source = r.any_module();
    a.whole_request.src_module = a.source != nullptr ? a.source->real : nullptr;
    a.whole_request.dst_module = &r.world.destinations[r.input.below(library_world::destination_count)];
    a.whole_request.bind_type = r.input.one_of<2, 2, 2, 5>();
    a.whole_request.bind_subtype = r.input.one_of<2, 2, 0, 1>();
    a.whole_request.bind_path = r.input.one_of<1, 1, 1, 2>();
    a.whole_request.src_location = r.input.one_of<2, 2, 0, 1>();
    a.whole_request.dst_location = r.input.one_of<2, 2, 0, 1>();
    a.bind_key = r.input.one_of<5, 0x00ABCDEF, 0xFF000005, 0>();
    a.whole_request.src_instance = &a.bind_key;
    a.whole_request.custom_bind = r.input.byte() < 224 ? 1 : 0;
}

void request_or_null(library_run &r, arguments &a)
{
    request(r, a);
    a.request = r.input.byte() < 240 ? &a.whole_request : nullptr;
}

void system_or_null(library_run &r, arguments &a)
{
    const std::uint32_t choice = r.input.one_of<0, 0, 0, 1, 1, 2>();
    a.system = choice < 2 ? r.world.systems[choice] : nullptr;
}

/** Of an entry: each value that has a meaning, some that have none, or NULL. */
void action(library_run &r, arguments &a)
{
    const std::uint32_t value = r.input.below(7);
    a.whole_action.word[0] = value;
    a.action = value < 6 ? &a.whole_action : nullptr;
}

/** NULL, words that are no pattern, or one of the framework. */
void pattern(library_run &r, arguments &a)
{
    const std::uint32_t choice = r.input.below(4);
    if (choice == 0) {
        return;
    }
    a.pattern = &a.whole_pattern;
    const std::uint32_t bits = r.input.one_of<24, 0, 16, 24, 32>();
    a.expected_pattern = {.length = bits, .pattern = {}};
    if (choice == 1) {
        a.whole_pattern = {{0xFFFFFFFF, bits, 0}};
        return;
    }
    const std::uint32_t value = r.input.word();
    a.owns_pattern = true;
    (void)olv_ptn_new(32, &a.whole_pattern);
    if (bits > 0) {
        (void)olv_ptn_extend(&a.whole_pattern, value, bits);
    }
    a.expected_pattern->pattern = {.known = true, .key = {bits, value & 0xFFFFFF}};
    ++r.world.model->platform.patterns;
}

/** The first module, where nothing is wrong with it that would decide first. */
void sound_module(library_run &r, arguments &a)
{
    a.module = &r.world.modules[0];
    const std::uint32_t lock = a.module->record.lock;
    a.is_made = r.world.model->usable(a.module) && (lock == 0 || lock == r.world.locks[0]);
}

void null_pointer(library_run &r, arguments &a)
{
    a.number = r.input.below(8);
    a.system = r.world.systems[0];
    a.whole_request = olv_sim::make_bind_info(a.module->real, nullptr, &a.bind_key);
    if (a.number == 2) {
        a.whole_request.dst_module = &r.world.destinations[0];
    } else if (a.number == 6) {
        r.world.set_entry_point(11, entry_point_kind::fixed);
        a.whole_request.dst_module = &r.world.destinations[1];
        a.whole_request.src_instance = nullptr;
    }
}

std::uint32_t call_with_null_pointer(arguments &a)
{
    switch (a.number) {
    case 0:
        return olv_twamp_get_imc(a.handle(), nullptr, &a.found[0]);
    case 1:
        return olv_twamp_get_imc(a.handle(), a.request, &a.found[0]);
    case 2:
        return olv_twamp_get_imc(a.handle(), a.request, nullptr);
    case 3:
        return olv_twamp_map_sys_log(a.handle(), 3, nullptr);
    case 5:
        return olv_twamp_custom_unbind(a.system, a.request);
    case 7:
        return olv_twamp_dump_tables(nullptr, 3);
    default:
        return olv_twamp_custom_bind(a.system, a.request);
    }
}

/** Have a record filled that holds the words found so far. */
template <typename Record, typename Get> std::uint32_t filled(arguments &a, Get &&get)
{
    Record whole;
    std::memcpy(&whole, a.found.data(), sizeof whole);
    const std::uint32_t status = get(a.has_record ? &whole : nullptr);
    std::memcpy(a.found.data(), &whole, sizeof whole);
    return status;
}

std::uint32_t model_entry_dump(library_model &m, const arguments &a)
{
    return m.responder_entry_dump(a.expected_pattern ? &*a.expected_pattern : nullptr, a.action);
}

} // namespace

using model = library_model;

const std::vector<library_call> library_calls{
    {"init",
     {any_module},
     [](model &m, arguments &a) { return m.init(a.module); },
     [](arguments &a) { return olv_twamp_init(a.handle()); }},
    {"shutdown",
     {any_module},
     [](model &m, arguments &a) { return m.shutdown(a.module); },
     [](arguments &a) { return olv_twamp_shutdown(a.handle()); }},
    {"update",
     {any_module},
     [](model &m, arguments &a) { return m.service_function_update(a.module); },
     [](arguments &a) { return olv_twamp_service_function_update(a.handle()); }},
    {"sys_log",
     {any_module, level},
     [](model &m, arguments &a) { return m.sys_log(a.module, a.number); },
     [](arguments &a) { return olv_twamp_sys_log(a.handle(), a.number); }},
    {"map_sys_log",
     {any_module, level},
     [](model &m, arguments &a) { return m.map_sys_log(a.module, a.number, a.expected[0]); },
     [](arguments &a) { return olv_twamp_map_sys_log(a.handle(), a.number, &a.found[0]); }},
    {"create",
     {any_module, slot, record, info},
     [](model &m, arguments &a) {
         return m.responder_create(a.module, a.has_record ? &a.info : nullptr,
                                   a.slot != nullptr ? &a.slot->model : nullptr);
     },
     [](arguments &a) {
         return olv_twamp_responder_create(a.handle(), a.has_record ? &a.info : nullptr,
                                           a.slot != nullptr ? &a.slot->real : nullptr);
     }},
    {"remove",
     {any_module, responder},
     [](model &m, arguments &a) { return m.responder_delete(a.module, a.responder.model); },
     [](arguments &a) { return olv_twamp_responder_delete(a.handle(), a.responder.real); }},
    {"stats_get",
     {any_module, responder, record},
     [](model &m, arguments &a) {
         return m.responder_stats_get(a.module, a.responder.model, a.has_record ? &a.expected : nullptr);
     },
     [](arguments &a) {
         return filled<olv_twamp_responder_stats>(a, [&](olv_twamp_responder_stats *stats) {
             return olv_twamp_responder_stats_get(a.handle(), a.responder.real, stats);
         });
     }},
    {"stats_print",
     {any_module, responder},
     [](model &m, arguments &a) { return m.responder_stats_print(a.module, a.responder.model); },
     [](arguments &a) { return olv_twamp_responder_stats_print(a.handle(), a.responder.real); }},
    {"bind",
     {request_or_null, system_or_null},
     [](model &m, arguments &a) { return m.custom_change(a.system, a.request, a.source, true); },
     [](arguments &a) { return olv_twamp_custom_bind(a.system, a.request); }},
    {"unbind",
     {request_or_null, system_or_null},
     [](model &m, arguments &a) { return m.custom_change(a.system, a.request, a.source, false); },
     [](arguments &a) { return olv_twamp_custom_unbind(a.system, a.request); }},
    {"get_imc",
     {any_module, request},
     [](model &m, arguments &a) { return m.get_imc(a.module, *a.request, a.expected[0]); },
     [](arguments &a) { return olv_twamp_get_imc(a.handle(), a.request, &a.found[0]); }},
    {"null_pointers", // that the documentation gives a status for but no text
     {sound_module, null_pointer},
     [](model &, arguments &a) { return a.number == 7 ? 1u : 0x30008u; },
     call_with_null_pointer,
     false},
    {"global_stats_get",
     {any_module, record},
     [](model &m, arguments &a) { return m.global_stats_get(a.module, a.has_record ? &a.expected : nullptr); },
     [](arguments &a) {
         return filled<olv_twamp_global_stats>(
             a, [&](olv_twamp_global_stats *stats) { return olv_twamp_global_stats_get(a.handle(), stats); });
     }},
    {"global_stats_print",
     {any_module},
     [](model &m, arguments &a) { return m.global_stats_print(a.module); },
     [](arguments &a) { return olv_twamp_global_stats_print(a.handle()); }},
    {"tables_dump",
     {any_module, group},
     [](model &m, arguments &a) { return m.tables_dump(a.module, a.number); },
     [](arguments &a) { return olv_twamp_tables_dump(a.handle(), a.number); }},
    {"dump_tables", // whose caller has checked the handle
     {framework_module, number_below<8>, is_usable},
     [](model &m, arguments &a) { return m.dump_tables(*a.module, a.number); },
     [](arguments &a) { return olv_twamp_dump_tables(a.handle(), a.number); }},
    {"table_entry_dump",
     {number_below<3>, action, pattern},
     [](model &m, arguments &a) {
         (void)(a.number == 0 ? model_entry_dump(m, a) : 0);
         return 0u;
     },
     [](arguments &a) {
         olv_twamp_table_entry_dump(a.number, a.pattern, a.action);
         return 0u;
     }},
    {"responder_entry_dump",
     {action, pattern},
     [](model &m, arguments &a) { return model_entry_dump(m, a); },
     [](arguments &a) { return static_cast<std::uint32_t>(responder_entry_dump(a.pattern, a.action)); }},
    {"valid_module_handle",
     {framework_module},
     [](model &m, arguments &a) { return m.valid_module_handle(*a.module); },
     [](arguments &a) { return olv_twamp_valid_module_handle(a.handle()); }},
};

} // namespace olv_fuzz
