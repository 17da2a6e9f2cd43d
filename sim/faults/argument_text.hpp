// Arguments of a platform call as text for the call record.
#ifndef OLV_SIM_ARGUMENT_TEXT_HPP
#define OLV_SIM_ARGUMENT_TEXT_HPP

#include <cstdint>
#include <string>

#include "olv.h"

namespace olv_sim {

/** "name=value" terms, comma-separated. Never an address, so that two runs give the same text. */
class argument_text {
  public:
    argument_text &number(const char *name, std::uint64_t value);
    argument_text &hex(const char *name, std::uint32_t value);
    /** A value of 24 bits, as six digits. */
    argument_text &id(const char *name, std::uint32_t value);
    argument_text &text(const char *name, const char *value);
    argument_text &bytes(const char *name, const void *value, std::uint32_t length);
    argument_text &pattern(const char *name, const olv_ptn *value);
    argument_text &action(const char *name, const olv_ptn_action *value);

    [[nodiscard]] std::string take() { return std::move(text_); }

  private:
    argument_text &term(const char *name, const std::string &value);

    std::string text_;
};

/** Two hexadecimal digits a byte; @p separator between bytes. */
[[nodiscard]] std::string hex_bytes(const void *bytes, std::uint32_t length, const char *separator);
/** A word as "0x%0<digits>x". */
[[nodiscard]] std::string hex_word(std::uint32_t value, int digits);
/** Three words, separated by blanks. */
[[nodiscard]] std::string action_text(const olv_ptn_action &action);

} // namespace olv_sim

#endif
