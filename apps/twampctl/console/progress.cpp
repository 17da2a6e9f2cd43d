#include "apps/twampctl/console/progress.hpp"

#include <cstdarg>

namespace twampctl {
namespace {

std::FILE *&the_stream()
{
    static std::FILE *stream = stdout;
    return stream;
}

} // namespace

void say(const char *format, ...)
{
    std::FILE *stream = the_stream();
    if (stream == nullptr) {
        return;
    }
    std::va_list arguments;
    va_start(arguments, format);
    (void)std::vfprintf(stream, format, arguments); // an error shows at exit
    va_end(arguments);
    (void)std::fputc('\n', stream);
    (void)std::fflush(stream);
}

void say_to(std::FILE *stream)
{
    the_stream() = stream;
}

} // namespace twampctl
