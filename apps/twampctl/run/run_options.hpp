/**
 * @file run_options.hpp
 * What "twampctl run" is told to do.
 */
#ifndef OLV_TWAMPCTL_RUN_OPTIONS_HPP
#define OLV_TWAMPCTL_RUN_OPTIONS_HPP

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/twampctl/figures/output_format.hpp"
#include "apps/twampctl/program_name.hpp"
#include "apps/twampctl/site/site.hpp"
#include "fastpath/fast_path.hpp"

namespace olv_apps {
class command;
}

namespace twampctl {

struct config_options;

/** Where packets are answered. */
struct listen_place {
    olv_net::socket_address address;
    std::uint32_t listener = 0; ///< Of which --listen, from 0: a name has several addresses.
};

struct run_options {
    std::vector<listen_place> places;
    std::uint32_t responders = 0;
    std::uint32_t capacity = usual_capacity; ///< Responder IDs that the processor has.
    std::optional<std::chrono::nanoseconds> duration;
    bool tables = false;
    bool imc = false;
    bool watch = false; ///< Show the figures as they change, until the end.
    std::optional<std::uint32_t> log_level;
    std::vector<olv_net::socket_address> metrics; ///< Where they are served; empty: nowhere.
    output_format format = output_format::text;   ///< Of the figures at the end.
    std::string trace_file;                       ///< Empty: no trace; "-": standard error.
    std::optional<std::uint32_t> sessions;        ///< Of each responder; nothing: what the module writes.
    olv_fastpath::fast_path_options fast_path;
};

/** Add what a run takes to a command that explains and completes it.
 *  @return What has to live as long as the command. */
[[nodiscard]] std::shared_ptr<void> describe_run(olv_apps::command to);

/** The keys that a configuration file can have. */
[[nodiscard]] std::vector<std::string> run_config_keys();
/** What a configuration file with this text says, or what is wrong with it. */
[[nodiscard]] config_options read_run_config(std::string_view text);

/** @param words  Behind "run".
 *  @return The status to exit with, help or an error having been printed; nothing when @p options is filled. */
[[nodiscard]] std::optional<int> read_options(const std::vector<std::string> &words, run_options &options);

} // namespace twampctl

#endif
