// The model's console and traces, and the frame of an operation.
#include <cstdarg>

#include "library_model.hpp"
#include "olv_sim/tracer.hpp"

namespace olv_fuzz {

std::uint32_t low_word(const void *address)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

std::uint32_t address_of(const model_module *module)
{
    return module != nullptr ? low_word(module->real) : 0;
}

std::uint32_t big_endian_word(const model_bytes &bytes, std::size_t at)
{
    std::uint32_t value = 0;
    for (std::size_t index = at; index < at + 4; ++index) {
        value = value << 8 | bytes.at(index);
    }
    return value;
}

message text(const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    message made{format, formatted(format, list)};
    va_end(list);
    return made;
}

bool library_model::usable(const model_module *module) const
{
    return module != nullptr && module->record.magic == module_magic && valid_module_handle(*module) == 1;
}

std::uint32_t library_model::valid_module_handle(const model_module &module) const
{
    const auto context = static_cast<std::size_t>(module.context);
    return module.context >= 0 && contexts.at(context).magic == context_magic ? 1 : 0;
}

model_context &library_model::context_of(const model_module &module)
{
    return contexts.at(static_cast<std::size_t>(module.context));
}

void library_model::print(const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    console += formatted(format, list);
    va_end(list);
}

void library_model::print_counters(std::initializer_list<const char *> labels, const words &counters)
{
    std::size_t field = 0;
    for (const char *label : labels) {
        const std::uint32_t value = counters.at(field++);
        if (value != 0) {
            print("%s%d\n", label, static_cast<int>(value));
        }
    }
}

void library_model::tell(const operation &of, severity how, const std::string &shown,
                         std::optional<std::string> format, const std::string &traced, bool with_place)
{
    const bool by_system = of.by == voice::system;
    if (by_system && of.system == nullptr) {
        throw out_of_contract();
    }
    const olv_test::severity_rule &rule = olv_test::rule(how);
    const bool asks_system = of.by != voice::module_alone && of.system != nullptr;
    if ((!by_system && rule.is_shown_with(of.module.record.log_flags)) ||
        (asks_system && rule.is_shown_with(of.system->log_flags))) {
        print("[%s_log: %s]", by_system ? of.system->log_name : of.module.record.log_name, rule.keyword);
        console += (with_place ? formatted(" %s:LINE ", of.file) : "") + shown;
    }
    if (platform.faults.next(call::olv_lttng_fn_ptr_get)) {
        return;
    }
    const void *record = by_system ? static_cast<const void *>(of.system) : of.module.real;
    const std::uint32_t level = how == severity::exit ? constants.exit_level : rule.trace_level;
    events.push_back({level, record, of.file, std::move(format), traced});
}

void library_model::say(const operation &of, severity how, const message &said)
{
    tell(of, how, olv_test::as_printed(said.format, said.text), said.format, said.text);
}

std::uint32_t library_model::fail(const operation &of, std::uint32_t status, const message &said, severity how)
{
    say(of, how, said);
    say(of, how, text("%s\n", olv_sys_status_get(nullptr, status)));
    return status;
}

void library_model::say_unknown(const char *file, const message &said)
{
    print("[olv_unknown_log: ERROR] %s:LINE %s", file, olv_test::as_printed(said.format, said.text).c_str());
    events.push_back({olv_sim::trace_event::forced_error, nullptr, file, said.format, said.text});
}

std::uint32_t library_model::refuse(const char *file, const message &reason, const message &failed)
{
    say_unknown(file, reason);
    say_unknown(file, failed);
    return 1;
}

std::uint32_t library_model::refuse_module(const char *file, const model_module *module, const message &failed)
{
    return refuse(file, text("Invalid TWAMP module handle 0x%08x\n", address_of(module)), failed);
}

void library_model::function_line(const operation &of, severity how)
{
    const char *const word = how == severity::entry ? "Entering" : "Exiting";
    const std::string shown =
        formatted("[%08lu:%08lu] %s %s\n", wall_clock.seconds, wall_clock.microseconds, word, of.name);
    tell(of, how, shown, std::nullopt, of.name);
}

std::string text_of(const olv_ptn_action &action)
{
    return formatted("0x%08x 0x%08x 0x%08x", action.word[0], action.word[1], action.word[2]);
}

std::uint32_t library_model::change_entry(const operation &of, severity how, const model_tree_use &tree,
                                          const model_key &key, const model_entry &entry)
{
    const bool removes = how == severity::removed;
    const std::uint32_t rte = of.module.record.rte_handle;
    const std::uint32_t code =
        removes ? platform.unlearn(rte, tree.id, key) : platform.learn(rte, tree.id, key, entry);
    if (code != 0) {
        return fail(of, tree.refused,
                    text(tree.refusal, static_cast<int>(tree.id), code, hyx_status_get(code)));
    }
    const std::string action = text_of(entry.action);
    // The pattern's first word is the framework's own; the comparison masks it.
    tell(of, how,
         formatted("%s: <key = 0x%06x/24>%s<action = %s>\n", tree.name, key.second,
                   removes ? "<xsize = 24>" : "", action.c_str()),
         std::nullopt, formatted("%s * 0x00000018 0x00000000 %s", tree.name, removes ? "24 " : "") + action,
         tree.line_with_place);
    return 0;
}

bool library_model::takes_lock(const operation &of)
{
    const std::uint32_t lock = of.module.record.lock;
    const std::uint32_t code = lock == 0 ? 0 : platform.sem_wait(lock);
    if (code != 0) {
        fail(of, constants.lock_failed,
             text(" Failed to acquire lock, RTE error code: %d. %s\n", static_cast<int>(code),
                  hyx_status_get(code)));
    }
    return code == 0;
}

std::uint32_t library_model::released(const operation &of, std::uint32_t result)
{
    const std::uint32_t lock = of.module.record.lock;
    const std::uint32_t code = lock == 0 ? 0 : platform.sem_post(lock);
    if (code == 0) {
        return result;
    }
    return fail(of, constants.lock_failed,
                text(" Failed to release lock, RTE error code: %d. %s\n", static_cast<int>(code),
                     hyx_status_get(code)));
}

std::uint32_t library_model::framed(const operation &of, const std::function<std::uint32_t()> &work)
{
    function_line(of, severity::entry);
    if (!takes_lock(of)) {
        return constants.lock_failed;
    }
    const std::uint32_t result = released(of, work());
    function_line(of, severity::exit);
    return result;
}

std::uint32_t library_model::operate(model_module *module, const operation_name &which,
                                     const std::function<std::uint32_t(const operation &)> &work)
{
    if (!usable(module)) {
        return refuse_module(which.file, module, which.failed);
    }
    const operation of{*module, module->record.system, which.name, which.file};
    return framed(of, [&] { return work(of); });
}

} // namespace olv_fuzz
