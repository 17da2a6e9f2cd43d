#include "sim/faults/argument_text.hpp"

#include <cstdio>

#include "sim/framework/pattern_arena.hpp"

namespace olv_sim {

std::string hex_bytes(const void *bytes, std::uint32_t length, const char *separator)
{
    static constexpr char digits[] = "0123456789abcdef";
    const auto *byte = static_cast<const unsigned char *>(bytes);
    std::string text;
    for (std::uint32_t index = 0; index < length; ++index) {
        if (index > 0) {
            text += separator;
        }
        text += digits[byte[index] >> 4];
        text += digits[byte[index] & 0x0F];
    }
    return text;
}

std::string hex_word(std::uint32_t value, int digits)
{
    char buffer[16];
    (void)std::snprintf(buffer, sizeof buffer, "0x%0*x", digits, static_cast<unsigned>(value));
    return buffer;
}

std::string action_text(const olv_ptn_action &action)
{
    return hex_word(action.word[0], 8) + ' ' + hex_word(action.word[1], 8) + ' ' + hex_word(action.word[2], 8);
}

argument_text &argument_text::term(const char *name, const std::string &value)
{
    if (!text_.empty()) {
        text_ += ", ";
    }
    text_ += name;
    text_ += '=';
    text_ += value;
    return *this;
}

argument_text &argument_text::number(const char *name, std::uint64_t value)
{
    return term(name, std::to_string(value));
}

argument_text &argument_text::hex(const char *name, std::uint32_t value)
{
    return term(name, hex_word(value, 1));
}

argument_text &argument_text::id(const char *name, std::uint32_t value)
{
    return term(name, hex_word(value, 6));
}

argument_text &argument_text::text(const char *name, const char *value)
{
    return term(name, value == nullptr ? "NULL" : value);
}

argument_text &argument_text::bytes(const char *name, const void *value, std::uint32_t length)
{
    return term(name, value == nullptr ? "NULL" : hex_bytes(value, length, ""));
}

argument_text &argument_text::pattern(const char *name, const olv_ptn *value)
{
    return term(name, value == nullptr ? "NULL" : pattern_arena::text(*value));
}

argument_text &argument_text::action(const char *name, const olv_ptn_action *value)
{
    return term(name, value == nullptr ? "NULL" : action_text(*value));
}

} // namespace olv_sim
