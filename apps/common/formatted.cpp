#include "apps/common/formatted.hpp"

#include <cstdarg>
#include <cstdio>

namespace olv_apps {
namespace {

void append_arguments(std::string &text, const char *format, std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length > 0) {
        const std::size_t before = text.size();
        text.resize(before + static_cast<std::size_t>(length) + 1);
        (void)std::vsnprintf(&text[before], static_cast<std::size_t>(length) + 1, format, arguments);
        text.pop_back(); // the zero
    }
}

} // namespace

void append(std::string &text, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    append_arguments(text, format, arguments);
    va_end(arguments);
}

std::string formatted(const char *format, ...)
{
    std::string text;
    std::va_list arguments;
    va_start(arguments, format);
    append_arguments(text, format, arguments);
    va_end(arguments);
    return text;
}

} // namespace olv_apps
