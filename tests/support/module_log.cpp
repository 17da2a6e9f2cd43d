#include "module_log.hpp"

#include <cstdio>

namespace olv_test {

const severity_rule &rule(severity how)
{
    static constexpr severity_rule rules[] = {
        {"FATAL", 4, 0x0F, 1},         {"ERROR", 2, 0x0F, 3},           {"info", 0, 0x0F, 15},
        {"function", 8, 0x10, 0x10},   {"function", 9, 0x10, 0x10},     {"se_write", 27, 0x80, 0x80},
        {"ptn_learn", 15, 0x40, 0x40}, {"ptn_unlearn", 16, 0x40, 0x40},
    };
    return rules[static_cast<std::size_t>(how)];
}

std::string formatted(const char *format, std::va_list list)
{
    std::va_list measured;
    va_copy(measured, list);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    (void)std::vsnprintf(text.data(), text.size(), format, list);
    text.pop_back();
    return text;
}

std::string formatted(const char *format, ...)
{
    std::va_list list;
    va_start(list, format);
    std::string text = formatted(format, list);
    va_end(list);
    return text;
}

std::string as_printed(std::string_view format, const std::string &text)
{
    const bool as_it_is = format == "Unsupported log-level in TWAMP!" ||
                          format == "Succefully initialized TWAMP module" || format.find('%') != format.npos;
    return as_it_is || text.ends_with('\n') ? text : text + '\n';
}

} // namespace olv_test
