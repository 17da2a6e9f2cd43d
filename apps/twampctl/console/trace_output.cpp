#include "apps/twampctl/console/trace_output.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "apps/common/errors.hpp"
#include "apps/twampctl/program_name.hpp"

namespace twampctl {

trace_output::trace_output(const std::string &file)
{
    if (file.empty()) {
        return;
    }
    if (file == "lttng") {
        sink_ = olv_sim::tracer::load_lttng();
    } else {
        sink_ = std::make_unique<olv_sim::text_trace_sink>(open(file));
    }
    olv_sim::tracer::set_sink(sink_.get());
}

std::FILE *trace_output::open(const std::string &file)
{
    if (file == "-") {
        return stderr;
    }
    opened_ = std::fopen(file.c_str(), "we");
    if (opened_ == nullptr) {
        throw std::runtime_error("cannot write the trace to " + file + ": " + std::strerror(errno));
    }
    return opened_;
}

trace_output::~trace_output()
{
    if (sink_ != nullptr) {
        olv_sim::tracer::set_sink(nullptr);
    }
    if (opened_ != nullptr) {
        const bool incomplete = std::ferror(opened_) != 0;
        if (std::fclose(opened_) != 0 || incomplete) {
            olv_apps::report_error(program_name, "the trace is not complete");
        }
    }
}

} // namespace twampctl
