// Every status that a header declares has its name, whoever adds one.

#include <fstream>
#include <regex>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/twampctl/site/status_text.hpp"

namespace twampctl {
namespace {

std::string content_of(const std::string &file)
{
    std::ostringstream text;
    text << std::ifstream{std::string(SOURCE_FOLDER) + "/" + file}.rdbuf();
    return text.str();
}

/** What stands between the braces of an enumeration that begins like this. */
std::string body_of(const std::string &text, const std::string &start)
{
    const std::size_t begin = text.find(start);
    return begin == std::string::npos ? "" : text.substr(begin, text.find('}', begin) - begin);
}

/** Expects the name of each "NAME = VALUE," @return How many there were. */
std::size_t expect_names(const std::string &enumeration)
{
    static const std::regex line{"\n\\s*([A-Za-z_]+) = (0[xX][0-9a-fA-F]+|[0-9]+)\\s*,?"};
    std::size_t found = 0;
    for (std::sregex_iterator each{enumeration.begin(), enumeration.end(), line};
         each != std::sregex_iterator{}; ++each) {
        const std::string name = (*each)[1];
        const auto status = static_cast<std::uint32_t>(std::stoul((*each)[2], nullptr, 0));
        if (status != 0) { // success has one name for all of them
            EXPECT_EQ(status_name(status), name);
        }
        ++found;
    }
    return found;
}

TEST(StatusName, OfEveryStatusOfTheLibrary)
{
    EXPECT_EQ(expect_names(body_of(content_of("include/olv_twamp.h"), "\n    OLV_STATUS_OK")), 23u);
    EXPECT_EQ(status_name(0), "OLV_STATUS_OK");
}

TEST(StatusName, OfEveryStatusOfThePlatform)
{
    const std::string header = content_of("sim/olv_sim/statuses.hpp");
    EXPECT_EQ(expect_names(body_of(header, "enum rte_status ")), 17u);
    EXPECT_EQ(expect_names(body_of(header, "enum framework_status ")), 8u);
}

TEST(StatusName, IsEmptyForOthers)
{
    EXPECT_EQ(status_name(0x12345), "");
}

TEST(StatusText, HasNumberNameAndText)
{
    EXPECT_EQ(status_text(nullptr, 0x3001D),
              "status 0x3001D TWAMP_STATUS_INDEX_ALLOC_FAILED: TWAMP: responder ID could "
              "not be allocated");
    EXPECT_EQ(status_text(nullptr, 0x12345), "status 0x12345: Unknown status");
}

} // namespace
} // namespace twampctl
