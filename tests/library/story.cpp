#include "story.hpp"

#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <utility>

namespace olv_test {

namespace {

log_line message(severity how, const char *file, const char *format, std::va_list list)
{
    const std::string text = formatted(format, list);
    return {.how = how, .file = file, .shown = as_printed(format, text), .format = format, .text = text};
}

story function_line(severity how, const char *file, const std::string &name)
{
    const char *const word = how == severity::entry ? "Entering" : "Exiting";
    return tells({.how = how,
                  .file = file,
                  .shown = std::string("[00000012:00000034] ") + word + " " + name + "\n",
                  .format = std::nullopt,
                  .text = name});
}

} // namespace

story::story(step only) : steps_{std::make_shared<const step>(std::move(only))} {}

step &story::last()
{
    const auto changed = std::make_shared<step>(*steps_.back());
    steps_.back() = changed;
    return *changed;
}

story &story::operator+=(const story &next)
{
    steps_.insert(steps_.end(), next.steps_.begin(), next.steps_.end());
    return *this;
}

story story::or_else(const story &rest) &&
{
    step &call = last();
    call.when_it_fails = rest;
    call.goes_on = false;
    return std::move(*this);
}

story story::or_also(const story &more) &&
{
    last().when_it_fails = more;
    return std::move(*this);
}

story story::then(effect succeeded) &&
{
    last().then = std::move(succeeded);
    return std::move(*this);
}

story story::said_by(voice by) &&
{
    for (std::shared_ptr<const step> &each : steps_) {
        if (each->said) {
            const auto changed = std::make_shared<step>(*each);
            changed->said->by = by;
            each = changed;
        }
    }
    return std::move(*this);
}

story tells(log_line said)
{
    step only;
    only.said = std::move(said);
    return story(only);
}

story calls(call which, const char *arguments, ...)
{
    std::va_list list;
    va_start(list, arguments);
    step only;
    only.called = which;
    only.arguments = formatted(arguments, list);
    va_end(list);
    return story(only);
}

story says(severity how, const char *file, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const log_line said = message(how, file, format, list);
    va_end(list);
    return tells(said);
}

story says_text(severity how, const char *file, const char *text)
{
    return tells({.how = how, .file = file, .shown = as_printed(text, text), .format = text, .text = text});
}

story says_unknown_text(const char *file, const char *text)
{
    return says_text(severity::error, file, text).said_by(voice::nobody);
}

story reports(severity how, const char *file, std::uint32_t status)
{
    return says(how, file, "%s\n", olv_sys_status_get(nullptr, status)) + yields(status);
}

story fails(const char *file, std::uint32_t status, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const story said = tells(message(severity::error, file, format, list));
    va_end(list);
    return said + reports(severity::error, file, status);
}

story fails_fatally(const char *file, std::uint32_t status, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const story said = tells(message(severity::fatal, file, format, list));
    va_end(list);
    return said + reports(severity::fatal, file, status);
}

story says_unknown(const char *file, const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    const log_line said = message(severity::error, file, format, list);
    va_end(list);
    return tells(said).said_by(voice::nobody);
}

story dumps_zeros(const char *file, std::uint32_t namespace_id, std::size_t length)
{
    std::string shown;
    for (std::size_t byte = 0; byte < length; ++byte) {
        shown += byte == 0 ? "00" : " 00";
    }
    return tells(
        {.how = severity::state_dump,
         .file = file,
         .shown = formatted("NS ID 0x%08x idx 0: %s\n", namespace_id, shown.c_str()),
         .format = std::nullopt,
         .text = formatted("0x%08x 0 %s %zu", namespace_id, std::string(2 * length, '0').c_str(), length)});
}

story prints(const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    step only;
    only.printed = formatted(format, list);
    va_end(list);
    return story(only);
}

story yields(std::uint32_t status)
{
    step only;
    only.status = status;
    return story(only);
}

story changes(effect what)
{
    step only;
    only.then = std::move(what);
    return story(only);
}

effect adds(std::size_t remains::*what)
{
    return [what](outcome &result) { ++(result.left.*what); };
}

effect takes(std::size_t remains::*what)
{
    return [what](outcome &result) { --(result.left.*what); };
}

effect writes_result()
{
    return [](outcome &result) { result.result_written = true; };
}

story enters(const char *file, const std::string &name)
{
    return function_line(severity::entry, file, name);
}

story exits(const char *file, const std::string &name)
{
    return function_line(severity::exit, file, name);
}

frame::frame(const bench &b, const char *file, const std::string &name)
{
    const char *const text = rte_text(injected);
    if (!name.empty()) {
        begin = enters(file, name);
    }
    begin +=
        calls(call::olv_sys_sem_lock_wait, "lock=0x%x", b.module->lock)
            .then([](outcome &result) { result.left.lock_held = 1; })
            .or_else(fails(file, 0x300A5, " Failed to acquire lock, RTE error code: %d. %s\n", injected, text));
    end =
        calls(call::hyx_sem_post, "semaphore=0x%x", b.module->lock)
            .then([](outcome &result) { result.left.lock_held = 0; })
            .or_also(fails(file, 0x300A5, " Failed to release lock, RTE error code: %d. %s\n", injected, text));
    if (!name.empty()) {
        end += exits(file, name);
    }
}

story refuses_module(const bench &b, const char *file, const char *failed)
{
    return says_unknown(file, "Invalid TWAMP module handle 0x%08x\n", low_word(b.handle)) +
           says_unknown_text(file, failed) + yields(1);
}

const char *rte_text(std::uint32_t code)
{
    return hyx_status_get(code);
}

std::uint32_t low_word(const void *address)
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

} // namespace olv_test
