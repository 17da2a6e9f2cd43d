/**
 * @file name_and_text.hpp
 * What an enumerator is called.
 */
#ifndef OLV_PROBE_NAME_AND_TEXT_HPP
#define OLV_PROBE_NAME_AND_TEXT_HPP

namespace olv_probe {

struct name_and_text {
    const char *name; ///< For programs.
    const char *text; ///< For people.
};

} // namespace olv_probe

#endif
