/**
 * @file terminal.hpp
 * What the terminal can do.
 */
#ifndef OLV_APPS_TERMINAL_HPP
#define OLV_APPS_TERMINAL_HPP

#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace olv_apps {

/** Whether this is a terminal that moves its cursor when it is told to: TERM names it, and not as "dumb". */
[[nodiscard]] inline bool moves_cursor(int descriptor)
{
    const char *terminal = std::getenv("TERM");
    return isatty(descriptor) != 0 && terminal != nullptr && *terminal != '\0' &&
           std::string_view(terminal) != "dumb";
}

} // namespace olv_apps

#endif
