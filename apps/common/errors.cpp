#include "apps/common/errors.hpp"

#include <cstdarg>
#include <cstdio>
#include <new>

namespace olv_apps {

std::string text_of(const std::exception &error)
{
    return dynamic_cast<const std::bad_alloc *>(&error) != nullptr ? "no memory is to be had" : error.what();
}

void report_error(const char *program, const char *format, ...)
{
    (void)std::fflush(stdout); // an error that this meets shows at exit
    (void)std::fprintf(stderr, "%s: ", program);
    std::va_list arguments;
    va_start(arguments, format);
    (void)std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    (void)std::fputc('\n', stderr);
}

} // namespace olv_apps
