// Loads the LTTng-UST provider, which lies beside this library.
#include <stdexcept>

#include <dlfcn.h>
#include <unistd.h>

#include "sim/lttng/lttng_trace_sink.hpp"

namespace olv_sim {
namespace {

/** The provider's path in the folder of the library that this code is part of. */
std::string provider_path()
{
    static const char here = 0;
    Dl_info library{};
    if (dladdr(&here, &library) == 0 || library.dli_fname == nullptr) {
        return lttng::provider_file; // leaves the search to the dynamic loader
    }
    const std::string own = library.dli_fname;
    const std::size_t slash = own.rfind('/');
    return slash == std::string::npos ? lttng::provider_file : own.substr(0, slash + 1) + lttng::provider_file;
}

[[noreturn]] void fail(const std::string &path)
{
    const char *reason = dlerror();
    const char *remedy = access(path.c_str(), F_OK) == 0
                             ? "install LTTng-UST, on Debian the package liblttng-ust1"
                             : "build with OLV_TWAMP_LTTNG=ON, for which Debian has liblttng-ust-dev";
    throw std::runtime_error(std::string("cannot trace to LTTng: ") + (reason == nullptr ? path : reason) +
                             "; " + remedy);
}

} // namespace

std::unique_ptr<trace_sink> tracer::load_lttng()
{
    const std::string path = provider_path();
    // Never unloaded: LTTng-UST has threads of its own by then.
    void *provider = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (provider == nullptr) {
        fail(path);
    }
    auto *make_sink = reinterpret_cast<lttng::make_sink *>(dlsym(provider, lttng::make_sink_symbol));
    if (make_sink == nullptr) {
        fail(path);
    }
    return std::unique_ptr<trace_sink>{make_sink()};
}

} // namespace olv_sim
