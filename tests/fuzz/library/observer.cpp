#include <cstdlib>

#include "library_world.hpp"
#include "source_lines.hpp"

namespace olv_fuzz {

// A stream in memory takes the place of stdout while an operation runs: no system call, unlike a file.
observer::observer() : stream_(open_memstream(&buffer_, &length_))
{
    if (stream_ == nullptr) {
        std::perror("no stream in memory");
        std::abort();
    }
}

observer::~observer()
{
    (void)std::fclose(stream_);
    std::free(buffer_);
}

void observer::begin()
{
    raw_.clear();
    (void)std::fseek(stream_, 0, SEEK_SET);
    (void)std::fflush(stdout);
    saved_ = stdout;
    stdout = stream_;
    olv_sim::tracer::set_sink(this);
}

void observer::end()
{
    olv_sim::tracer::set_sink(nullptr);
    stdout = saved_;
    (void)std::fflush(stream_);
    console_ = olv_test::without_source_lines(std::string(buffer_, length_));
}

} // namespace olv_fuzz
