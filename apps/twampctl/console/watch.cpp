#include "apps/twampctl/console/watch.hpp"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

#include <sys/ioctl.h>
#include <unistd.h>

#include "apps/common/terminal.hpp"
#include "apps/twampctl/figures/figures_output.hpp"
#include "apps/twampctl/figures/watch_text.hpp"

namespace twampctl {
namespace {

constexpr std::size_t usual_rows = 24;

std::size_t rows_of_terminal()
{
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : usual_rows;
}

/** Draw over the screen before, which has so many lines. */
void redraw(const std::string &screen, std::size_t lines)
{
    if (lines > 0) {
        std::printf("\033[%zuA\033[J", lines);
    }
    (void)std::fputs(screen.c_str(), stdout); // an error shows at exit
    (void)std::fflush(stdout);
}

} // namespace

bool watch(const std::function<figures()> &collect, const olv_apps::signal_watch &signals,
           const watch_options &options)
{
    using clock = std::chrono::steady_clock;
    const clock::time_point start = clock::now();
    const bool in_place = olv_apps::moves_cursor(STDOUT_FILENO);
    std::size_t drawn = 0;
    figures before = collect();
    for (std::uint32_t turn = 0; turn < options.count.value_or(UINT32_MAX); ++turn) {
        std::chrono::nanoseconds pause = options.interval;
        if (options.duration) {
            pause = std::min(pause, *options.duration - std::chrono::nanoseconds(clock::now() - start));
        }
        if (signals.wait(pause)) {
            return true;
        }
        figures now = collect();
        if (options.format != output_format::text) {
            std::printf("%s", format(now, options.format).c_str());
        } else if (in_place) {
            const std::string screen = watch_screen(before, now, rows_of_terminal());
            redraw(screen, drawn);
            drawn = static_cast<std::size_t>(std::count(screen.begin(), screen.end(), '\n'));
        } else {
            std::printf("%s", watch_line(before, now).c_str());
        }
        before = std::move(now);
        if (options.duration && clock::now() - start >= *options.duration) {
            return false;
        }
    }
    return false;
}

} // namespace twampctl
