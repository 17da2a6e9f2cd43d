#include "probe/session_event.hpp"

#include <array>

namespace olv_probe {
namespace {

struct words {
    const char *name;
    const char *text;
};

constexpr std::array<words, 3> all = {{{"sender_clock_set", "this host's clock was set"},
                                       {"reflector_clock_set", "the reflector's clock was set"},
                                       {"reflector_restart", "the reflector's numbers began anew"}}};

} // namespace

const char *text_of(session_event::kind what)
{
    return all[static_cast<std::size_t>(what)].text;
}

const char *name_of(session_event::kind what)
{
    return all[static_cast<std::size_t>(what)].name;
}

} // namespace olv_probe
