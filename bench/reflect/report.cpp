#include "report.hpp"

#include <cstdio>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace olv_bench {

std::string report_text(const std::vector<run> &runs, bool quick)
{
    std::ostringstream text;
    text << std::setprecision(12) << R"({"context": {"quick": ")" << (quick ? "true" : "false")
         << "\"},\n \"benchmarks\": [";
    const char *before = "";
    for (const run &each : runs) {
        text << before << "\n  {\"run_name\": \"" << each.name << '"';
        for (const auto &[figure, value] : each.figures) {
            text << ", \"" << figure << "\": " << value;
        }
        text << '}';
        before = ",";
    }
    text << "\n]}\n";
    return text.str();
}

void write_report(const std::string &file, const std::vector<run> &runs, bool quick)
{
    const std::string text = report_text(runs, quick);
    std::FILE *const out = file.empty() ? stdout : std::fopen(file.c_str(), "w");
    const bool written = out != nullptr && std::fputs(text.c_str(), out) >= 0;
    if (out == nullptr || std::fclose(out) != 0 || !written) {
        throw std::runtime_error("cannot write " + (file.empty() ? "to standard output" : file));
    }
}

} // namespace olv_bench
