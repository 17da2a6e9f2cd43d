/**
 * @file run_options.hpp
 * What "twampctl run" is told to do.
 */
#ifndef OLV_TWAMPCTL_RUN_OPTIONS_HPP
#define OLV_TWAMPCTL_RUN_OPTIONS_HPP

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/twampctl/figures/output_format.hpp"
#include "apps/twampctl/program.hpp"
#include "fastpath/udp/udp_workers.hpp"

namespace CLI {
class App;
}

namespace twampctl {

struct config_options;

struct run_options {
    std::vector<olv_net::socket_address> addresses;
    std::uint32_t responders = 0;
    std::uint32_t capacity = 0; ///< Responder IDs that the processor has.
    std::optional<std::chrono::nanoseconds> duration;
    bool tables = false;
    bool imc = false;
    bool watch = false; ///< Show the figures as they change, until the end.
    std::optional<std::uint32_t> log_level;
    std::optional<olv_net::socket_address> metrics; ///< Where they are served; nothing: nowhere.
    output_format format = output_format::text;     ///< Of the figures at the end.
    std::string trace_file;                         ///< Empty: no trace; "-": standard error.
    std::optional<std::uint32_t> sessions;          ///< Of each responder; nothing: what the module writes.
    olv_fastpath::udp_workers_options workers;
};

/** Add what a run takes to a command that explains and completes it. */
void describe_run(CLI::App &run);

/** The keys that a configuration file can have. */
[[nodiscard]] std::vector<std::string> run_config_keys();
/** What a configuration file with this text says, or what is wrong with it. */
[[nodiscard]] config_options read_run_config(std::string_view text);

/** @return The status to exit with, help or an error having been printed; nothing when @p options is filled. */
[[nodiscard]] std::optional<int> read_options(int argc, char **argv, run_options &options);

} // namespace twampctl

#endif
