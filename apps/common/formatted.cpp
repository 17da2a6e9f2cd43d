#include "formatted.hpp"

#include <cstdarg>
#include <cstdio>

namespace olv_probe {

void append(std::string &text, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    if (length > 0) {
        const std::size_t before = text.size();
        text.resize(before + static_cast<std::size_t>(length) + 1);
        (void)std::vsnprintf(&text[before], static_cast<std::size_t>(length) + 1, format, again);
        text.pop_back(); // the zero
    }
    va_end(again);
}

} // namespace olv_probe
