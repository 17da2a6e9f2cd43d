/**
 * @file source_lines.hpp
 * Console texts of the module without their source lines, which no test depends on.
 */
#ifndef OLV_TESTS_SOURCE_LINES_HPP
#define OLV_TESTS_SOURCE_LINES_HPP

#include <string>

namespace olv_test {

/** @p text with each " twamp*.c:123 " as " twamp*.c:LINE ". */
[[nodiscard]] inline std::string without_source_lines(const std::string &text)
{
    std::string result = text;
    for (const std::string file :
         {" twamp.c:", " twamp_responder.c:", " twamp_bind.c:", " twamp_internal.c:"}) {
        for (std::size_t at = 0; (at = result.find(file, at)) != std::string::npos;) {
            at += file.size();
            const std::size_t end = result.find_first_not_of("0123456789", at);
            if (end != std::string::npos && end > at && result[end] == ' ') {
                result.replace(at, end - at, "LINE");
            }
        }
    }
    return result;
}

} // namespace olv_test

#endif
