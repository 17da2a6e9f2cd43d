/**
 * @file program_names.hpp
 * What the classifier program calls the things that tests look at.
 */
#ifndef OLV_TWAMP_TESTS_PROGRAM_NAMES_HPP
#define OLV_TWAMP_TESTS_PROGRAM_NAMES_HPP

namespace olv_test {

inline constexpr const char *responder_namespace = "twamp_responder";
inline constexpr const char *session_namespace = "twamp_reflector_session";
inline constexpr const char *responder_tree = "olv_twamp.twamp_responder_lookup";
inline constexpr const char *bind_tree = "olv_twamp.twamp_bind_to_next_module";

} // namespace olv_test

#endif
