// The guides and what they describe: neither has what the other lacks.

#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "apps/twampctl/figures/figures_output.hpp"
#include "apps/twampctl/run/config_options.hpp"
#include "apps/twampctl/run/run_options.hpp"
#include "example_figures.hpp"

namespace apps_tests {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using json = nlohmann::json;
using names = std::set<std::string>;
using twampctl::output_format;

std::string content_of(const std::string &path)
{
    std::ifstream file{std::string(SOURCE_FOLDER) + "/" + path};
    return {std::istreambuf_iterator<char>{file}, std::istreambuf_iterator<char>{}};
}

/** What the expression's first group matches in each place of the text. */
names all_matches(const std::string &text, const std::string &expression)
{
    const std::regex pattern{expression};
    names found;
    for (std::sregex_iterator match{text.begin(), text.end(), pattern}; match != std::sregex_iterator{};
         ++match) {
        found.insert((*match)[1].str());
    }
    return found;
}

/** The part of a page from one heading up to the next. */
std::string section(const std::string &page, const std::string &heading)
{
    const std::size_t start = page.find("\n" + heading + "\n");
    return start == std::string::npos ? "" : page.substr(start, page.find("\n#", start + 2) - start);
}

/** First cells of the tables' rows. */
names first_cells(const std::string &text)
{
    return all_matches(text, "\\n\\| `([^`]+)` \\|");
}

/** "module", "module.received_packets", ...; elements of lists stand for all. */
void add_fields(const json &tree, const std::string &prefix, names &fields)
{
    if (tree.is_array()) {
        for (const json &element : tree) {
            add_fields(element, prefix, fields);
        }
    } else if (tree.is_object()) {
        for (const auto &[key, value] : tree.items()) {
            const std::string name = prefix.empty() ? key : prefix + "." + key;
            fields.insert(name);
            add_fields(value, name, fields);
        }
    }
}

TEST(MetricsGuide, HasEveryJsonField)
{
    names fields;
    add_fields(json::parse(twampctl::format(example_figures(), output_format::json)), "", fields);
    EXPECT_EQ(fields.size(), 49u);
    EXPECT_EQ(first_cells(section(content_of("docs/metrics.md"), "### Fields")), fields);
}

TEST(MetricsGuide, HasEveryMetricWithItsType)
{
    const std::string output = twampctl::format(example_figures(), output_format::prometheus) +
                               twampctl::format(std::vector{example_session()}, output_format::prometheus);
    const std::string rows = section(content_of("docs/metrics.md"), "### Metrics");
    const names types = all_matches(rows, "\\n\\| `([^|]+\\| [a-z]+) \\|");
    names expected;
    for (const std::string &type : all_matches(output, "# TYPE ([a-z_]+ [a-z]+)\\n")) {
        expected.insert(std::regex_replace(type, std::regex(" "), "` | "));
    }
    EXPECT_EQ(expected.size(), 24u);
    EXPECT_EQ(types, expected);
}

TEST(MetricsGuide, HasEveryLabelAndReason)
{
    const std::string output = twampctl::format(example_figures(), output_format::prometheus) +
                               twampctl::format(std::vector{example_session()}, output_format::prometheus);
    const std::string page = content_of("docs/metrics.md");
    for (const std::string &label : all_matches(output, "[{,]([a-z_]+)=\"")) {
        EXPECT_THAT(section(page, "### Metrics"), HasSubstr("`" + label + "`"));
    }
    EXPECT_EQ(all_matches(section(page, "### Reasons"), "\\n\\| [a-z, ]+ \\| `([a-z_]+)`"),
              all_matches(output, "reason=\"([a-z_]+)\""));
}

TEST(ConfigurationGuide, HasEveryKey)
{
    const std::vector<std::string> keys = twampctl::run_config_keys();
    EXPECT_EQ(keys.size(), 21u);
    EXPECT_EQ(first_cells(section(content_of("docs/configuration.md"), "## Keys")),
              names(keys.begin(), keys.end()));
}

TEST(ConfigurationGuide, NamesRangesThatHold)
{
    const std::string page = section(content_of("docs/configuration.md"), "## Keys");
    const std::regex row{"\\n\\| `([a-z-]+)` \\| (whole )?number \\| ([0-9]+) to ([0-9]+) \\|"};
    int rows = 0;
    for (std::sregex_iterator match{page.begin(), page.end(), row}; match != std::sregex_iterator{}; ++match) {
        const auto errors_with = [&match](long long value) {
            return twampctl::read_run_config("{\"" + (*match)[1].str() + "\": " + std::to_string(value) + "}")
                .errors.size();
        };
        const long long least = std::stoll((*match)[3]);
        const long long greatest = std::stoll((*match)[4]);
        EXPECT_EQ(errors_with(least), 0u) << match->str();
        EXPECT_EQ(errors_with(greatest), 0u) << match->str();
        EXPECT_EQ(errors_with(least - 1), 1u) << match->str();
        EXPECT_EQ(errors_with(greatest + 1), 1u) << match->str();
        ++rows;
    }
    EXPECT_EQ(rows, 10);
}

TEST(ConfigurationGuide, ShowsTheExampleAsItIs)
{
    const std::string example = content_of("docs/examples/twampctl.json");
    EXPECT_THAT(content_of("docs/configuration.md"), HasSubstr("```json\n" + example + "```\n"));
    EXPECT_THAT(twampctl::read_run_config(example).errors, IsEmpty());
    EXPECT_EQ(twampctl::read_run_config(example).options.size(), 7u);
}

} // namespace
} // namespace apps_tests
