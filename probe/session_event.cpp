#include "probe/session_event.hpp"

#include <array>

#include "probe/name_and_text.hpp"

namespace olv_probe {
namespace {

constexpr std::array<name_and_text, 3> events = {{{"sender_clock_set", "this host's clock was set"},
                                                  {"reflector_clock_set", "the reflector's clock was set"},
                                                  {"reflector_restart", "the reflector's numbers began anew"}}};

} // namespace

const char *text_of(session_event::kind what)
{
    return events[static_cast<std::size_t>(what)].text;
}

const char *name_of(session_event::kind what)
{
    return events[static_cast<std::size_t>(what)].name;
}

} // namespace olv_probe
