#include "apps/twamp-probe/progress_line.hpp"

#include <cinttypes>
#include <cstdio>

#include <unistd.h>

#include "apps/common/formatted.hpp"
#include "apps/common/terminal.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;

constexpr std::chrono::milliseconds redraw_pause{200};
constexpr std::size_t columns = 79;

double seconds(std::chrono::nanoseconds duration)
{
    return std::chrono::duration<double>(duration).count();
}

} // namespace

std::string progress_text(const session_options &options, const probe_progress &progress)
{
    std::string text;
    if (options.duration) {
        append(text, "%.1f of %g s, sent %" PRIu64, seconds(progress.elapsed), seconds(*options.duration),
               progress.sent);
    } else if (options.forever) {
        append(text, "%.1f s, sent %" PRIu64, seconds(progress.elapsed), progress.sent);
    } else {
        append(text, "%.1f s, sent %" PRIu64 " of %" PRIu64, seconds(progress.elapsed), progress.sent,
               std::uint64_t{options.count} * options.senders);
    }
    append(text, ", received %" PRIu64, progress.received);
    if (progress.round_trip) {
        append(text, ", round trip %.1f us", static_cast<double>(progress.round_trip->count()) / 1000);
    }
    return text.substr(0, columns);
}

progress_line::progress_line(const session_options &options, probe &sender)
{
    if (!olv_apps::moves_cursor(STDERR_FILENO)) {
        return;
    }
    sender.on_progress(redraw_pause, [this, options](const probe_progress &progress) {
        shown_ = true;
        (void)std::fprintf(stderr, "\r%s\033[K",
                           progress_text(options, progress).c_str()); // the next one may show
        (void)std::fflush(stderr);
    });
}

progress_line::~progress_line()
{
    if (shown_) {
        (void)std::fputs("\r\033[K", stderr); // a line that stays does no harm
    }
}

} // namespace olv_probe
