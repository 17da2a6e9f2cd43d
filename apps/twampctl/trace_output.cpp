#include "trace_output.hpp"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "command_line.hpp"
#include "run_options.hpp"

namespace twampctl {

trace_output::trace_output(const std::string &file)
{
    if (file.empty()) {
        return;
    }
    if (file != "-") {
        opened_ = std::fopen(file.c_str(), "we");
        if (opened_ == nullptr) {
            throw std::runtime_error("cannot write the trace to " + file + ": " + std::strerror(errno));
        }
    }
    sink_.emplace(opened_ != nullptr ? opened_ : stderr);
    olv_sim::tracer::set_sink(&*sink_);
}

trace_output::~trace_output()
{
    if (sink_) {
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
