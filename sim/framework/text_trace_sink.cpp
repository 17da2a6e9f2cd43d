#include <algorithm>

#include "olv_sim/tracer.hpp"

namespace olv_sim {
namespace {

const char *level_name(std::uint32_t level)
{
    switch (level) {
    case 0:
        return "info";
    case 2:
        return "error";
    case 4:
        return "fatal";
    case 8:
        return "entry";
    case 9:
        return "exit";
    case 15:
        return "learnt";
    case 16:
        return "removed";
    case 27:
        return "state";
    case trace_event::forced_error:
        return "forced-error";
    default:
        return "unknown";
    }
}

} // namespace

void text_trace_sink::event(const trace_event &event)
{
    std::string text = event.text;
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    (void)std::fprintf(stream_, "trace %s %s:%u %s\n", level_name(event.level), event.file.c_str(),
                       static_cast<unsigned>(event.line), text.c_str());
}

} // namespace olv_sim
