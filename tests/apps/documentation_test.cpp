// The guides, the headers, and what they describe: none has what the other lacks.

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
#include "apps/twampctl/site/status_text.hpp"
#include "example_figures.hpp"

namespace apps_tests {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using json = nlohmann::json;
using names = std::set<std::string>;
using twampctl::output_format;
using twampctl::status_name;
using twampctl::status_text;

std::string content_of(const std::string &path)
{
    std::ifstream file{std::string(SOURCE_FOLDER) + "/" + path};
    return {std::istreambuf_iterator<char>{file}, std::istreambuf_iterator<char>{}};
}

/** What the expression's groups match in each place of the text. */
std::vector<std::vector<std::string>> matches_of(const std::string &text, const std::string &expression)
{
    const std::regex pattern{expression};
    std::vector<std::vector<std::string>> found;
    for (std::sregex_iterator match{text.begin(), text.end(), pattern}; match != std::sregex_iterator{};
         ++match) {
        found.emplace_back(std::next(match->begin()), match->end());
    }
    return found;
}

/** Of the first group. */
names names_in(const std::string &text, const std::string &expression)
{
    names found;
    for (const std::vector<std::string> &groups : matches_of(text, expression)) {
        found.insert(groups[0]);
    }
    return found;
}

/** From one text up to the next place of another. */
std::string part_of(const std::string &text, const std::string &start, const std::string &end)
{
    const std::size_t begin = text.find(start);
    return begin == std::string::npos ? "" : text.substr(begin, text.find(end, begin + start.size()) - begin);
}

/** A page's part below a heading. */
std::string section(const std::string &page, const std::string &heading)
{
    return part_of(content_of(page), "\n" + heading + "\n", "\n#");
}

/** First cells of the tables' rows. */
names first_cells(const std::string &text)
{
    return names_in(text, "\\n\\| `([^`]+)` \\|");
}

/** "module", "module.received_packets", ...; elements of lists stand for all. */
void add_fields(const json &tree, const std::string &prefix, names &fields)
{
    for (const auto &[key, value] : tree.items()) {
        const std::string name = tree.is_array() ? prefix : prefix.empty() ? key : prefix + "." + key;
        if (!tree.is_array()) {
            fields.insert(name);
        }
        if (value.is_structured()) {
            add_fields(value, name, fields);
        }
    }
}

TEST(MetricsGuide, HasEveryJsonField)
{
    names fields;
    add_fields(json::parse(twampctl::format(example_figures(), output_format::json)), "", fields);
    EXPECT_GT(fields.size(), 48u);
    EXPECT_EQ(first_cells(section("docs/metrics.md", "### Fields")), fields);
}

TEST(MetricsGuide, HasEveryMetricWithItsTypeItsLabelsAndReasons)
{
    const std::string output = twampctl::format(example_figures(), output_format::prometheus) +
                               twampctl::format(std::vector{example_session()}, output_format::prometheus);
    const std::string rows = section("docs/metrics.md", "### Metrics");
    names types;
    for (const std::vector<std::string> &type : matches_of(output, "# TYPE ([a-z_]+) ([a-z]+)\\n")) {
        types.insert(type[0] + "` | " + type[1]);
    }
    EXPECT_EQ(types.size(), 26u);
    EXPECT_EQ(names_in(rows, "\\n\\| `([^|]+\\| [a-z]+) \\|"), types);
    for (const std::string &label : names_in(output, "[{,]([a-z_]+)=\"")) {
        EXPECT_THAT(rows, HasSubstr("`" + label + "`"));
    }
}

/** A row of the page's table of reasons, but for the last cell. */
std::string row_of(const olv_fastpath::drop_reason_entry &reason)
{
    using olv_fastpath::drop_counter;
    std::string who;
    for (const auto &[counter, name] :
         {std::pair{drop_counter::listener, "listener"}, std::pair{drop_counter::module, "module"},
          std::pair{drop_counter::responder, "responder"}}) {
        who += !reason.is_counted_by(counter) ? "" : (who.empty() ? "" : ", ") + std::string(name);
    }
    return "\n| " + who + " | `" + reason.name + "` | " + reason.text + " |";
}

TEST(MetricsGuide, HasEveryReasonInItsOrder)
{
    const std::string rows = section("docs/metrics.md", "### Reasons");
    std::size_t place = 0;
    for (const olv_fastpath::drop_reason_entry &each : olv_fastpath::drop_reasons) {
        const std::size_t next = rows.find(row_of(each), place);
        EXPECT_NE(next, std::string::npos) << row_of(each);
        place = std::min(next, rows.size());
    }
    EXPECT_EQ(names_in(rows, "\\n\\| [a-z, ]+ \\| `([a-z_]+)`"),
              names_in(twampctl::format(example_figures(), output_format::prometheus), "reason=\"([a-z_]+)\""));
}

TEST(ConfigurationGuide, HasEveryKey)
{
    const std::vector<std::string> keys = twampctl::run_config_keys();
    EXPECT_GT(keys.size(), 20u);
    EXPECT_EQ(first_cells(section("docs/configuration.md", "## Keys")), names(keys.begin(), keys.end()));
}

TEST(ConfigurationGuide, NamesRangesThatHold)
{
    const auto rows = matches_of(section("docs/configuration.md", "## Keys"),
                                 "\\n\\| `([a-z-]+)` \\| (?:whole )?number \\| ([0-9]+) to ([0-9]+) \\|");
    EXPECT_EQ(rows.size(), 12u);
    for (const std::vector<std::string> &row : rows) {
        const auto errors_with = [&row](long long value) {
            return twampctl::read_run_config("{\"" + row[0] + "\": " + std::to_string(value) + "}")
                .errors.size();
        };
        const long long least = std::stoll(row[1]);
        const long long greatest = std::stoll(row[2]);
        EXPECT_EQ(errors_with(least), 0u) << row[0];
        EXPECT_EQ(errors_with(greatest), 0u) << row[0];
        EXPECT_EQ(errors_with(least - 1), 1u) << row[0];
        EXPECT_EQ(errors_with(greatest + 1), 1u) << row[0];
    }
}

TEST(ConfigurationGuide, ShowsTheExampleAsItIs)
{
    const std::string example = content_of("docs/examples/twampctl.json");
    EXPECT_THAT(content_of("docs/configuration.md"), HasSubstr("```json\n" + example + "```\n"));
    EXPECT_THAT(twampctl::read_run_config(example).errors, IsEmpty());
    EXPECT_EQ(twampctl::read_run_config(example).options.size(), 7u);
}

/** Expects the name of each "NAME = VALUE," of an enumeration that begins like this. @return How many there
 * are. */
std::size_t expect_status_names(const std::string &header, const std::string &start)
{
    const auto statuses = matches_of(part_of(content_of(header), start, "}"),
                                     "\n\\s*([A-Za-z_]+) = (0[xX][0-9a-fA-F]+|[0-9]+)\\s*,?");
    for (const std::vector<std::string> &each : statuses) {
        const auto status = static_cast<std::uint32_t>(std::stoul(each[1], nullptr, 0));
        EXPECT_EQ(status_name(status), status == 0 ? "OLV_STATUS_OK" : each[0]); // success has one name
    }
    return statuses.size();
}

TEST(Status, HasItsNameInTheHeaders)
{
    EXPECT_EQ(expect_status_names("include/olv_twamp.h", "\n    OLV_STATUS_OK"), 23u);
    EXPECT_EQ(expect_status_names("sim/olv_sim/statuses.hpp", "enum rte_status "), 17u);
    EXPECT_EQ(expect_status_names("sim/olv_sim/statuses.hpp", "enum framework_status "), 8u);
    EXPECT_EQ(status_name(0), "OLV_STATUS_OK");
    EXPECT_EQ(status_name(0x12345), "");
}

TEST(Status, HasNumberNameAndText)
{
    EXPECT_EQ(status_text(nullptr, 0x3001D),
              "status 0x3001D TWAMP_STATUS_INDEX_ALLOC_FAILED: TWAMP: responder ID could not be allocated");
    EXPECT_EQ(status_text(nullptr, 0x12345), "status 0x12345: Unknown status");
}

} // namespace
} // namespace apps_tests
