#include "apps/twampctl/run/check_run.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <stdexcept>

#include <unistd.h>

#include "apps/twampctl/run/run_options.hpp"
#include "apps/twampctl/site/traffic_options.hpp"
#include "net/binding.hpp"
#include "olv_sim/processor.hpp"

namespace twampctl {
namespace {

[[noreturn]] void refuse(const std::string &what, const std::string &reason)
{
    throw std::runtime_error("cannot " + what + ": " + reason);
}

/** As many sockets as there are workers, of which one is bound. */
void open_sockets(const olv_net::socket_address &address, int type, std::uint32_t workers, const char *purpose,
                  std::vector<olv_net::descriptor> &opened)
{
    opened.push_back(olv_net::bound_socket(address, type));
    while (opened.back().is_open() && --workers > 0) {
        opened.emplace_back(socket(address.family(), type | SOCK_CLOEXEC, 0));
    }
    if (!opened.back().is_open() && errno != EADDRINUSE) {
        refuse(purpose + address.text(), olv_net::reason_against_socket(address, errno));
    }
}

void check_trace(const std::filesystem::path &file)
{
    if (file.empty() || file == "-" || file == "lttng") {
        return;
    }
    if (std::filesystem::is_directory(file)) {
        refuse("write the trace to " + file.string(), std::strerror(EISDIR));
    }
    const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : ".";
    if (access(file.c_str(), W_OK) != 0 && (errno != ENOENT || access(folder.c_str(), W_OK | X_OK) != 0)) {
        refuse("write the trace to " + file.string(), std::strerror(errno));
    }
}

} // namespace

void check_run(const run_options &options)
try {
    // At the same time, as there are limits: memory, descriptors, threads.
    olv_sim::processor processor{olv_sim::classifier_program::twamp(options.capacity)};
    olv_fastpath::fast_path fast_path{processor, options.fast_path};
    std::vector<olv_net::descriptor> opened;
    for (const listen_place &each : options.places) {
        open_sockets(each.address, SOCK_DGRAM, options.fast_path.workers, "listen on ", opened);
    }
    fast_path.start();
    for (const olv_net::socket_address &each : options.metrics) {
        open_sockets(each, SOCK_STREAM, 1, "serve metrics at ", opened);
    }
    check_trace(options.trace_file);
} catch (const std::bad_alloc &) {
    throw std::runtime_error(no_memory_for(options.capacity, options.fast_path.session_capacity));
}

} // namespace twampctl
