/**
 * @file command_context.hpp
 * All that commands work on: the processors with their modules, the trace, the signals.
 */
#ifndef OLV_TWAMPCTL_COMMAND_CONTEXT_HPP
#define OLV_TWAMPCTL_COMMAND_CONTEXT_HPP

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "apps/common/signal_watch.hpp"
#include "apps/twampctl/commands/usage_error.hpp"
#include "apps/twampctl/console/trace_output.hpp"
#include "apps/twampctl/figures/metrics_server.hpp"
#include "apps/twampctl/site/background_probes.hpp"
#include "apps/twampctl/site/site.hpp"

namespace twampctl {

/** Where commands are typed: what advice says depends on it. */
enum class command_source : std::uint8_t { command_line, script, shell };

class command_context {
  public:
    /** @param source  Where the commands come from. */
    command_context(const olv_apps::signal_watch &signals, command_source source);
    /** Tears all processors down. */
    ~command_context();
    command_context(const command_context &) = delete;
    command_context &operator=(const command_context &) = delete;

    [[nodiscard]] const olv_apps::signal_watch &signals() const { return signals_; }
    [[nodiscard]] command_source source() const { return source_; }
    void set_source(command_source source) { source_ = source; }

    /** The processor in use; the first time, "main" is made. */
    [[nodiscard]] site &current();
    /** Make a processor and use it. @throw std::runtime_error  There is one of this name. */
    site &add(const site_options &options);
    /** @throw std::runtime_error  There is none of this name, here and below. */
    void use(const std::string &name);
    void remove(const std::string &name);
    [[nodiscard]] const std::list<site> &sites() const { return sites_; }

    /** Send the trace elsewhere: see trace_output. */
    void trace_to(const std::string &where);
    [[nodiscard]] const std::string &trace() const { return trace_name_; }

    /** Serve the figures of the processor in use over HTTP, as long as it is there. @return Where: a URL for
     * each address. */
    [[nodiscard]] std::vector<std::string> serve_metrics(const std::string &where);
    void end_metrics() { metrics_.clear(); }

    /** Probes in the background; their round trips are in the figures. */
    [[nodiscard]] background_probes &background() { return probes_; }
    [[nodiscard]] const background_probes &background() const { return probes_; }

    /** No command after this one. */
    void quit() { over_ = true; }
    [[nodiscard]] bool is_over() const { return over_; }

    /** From now on print neither progress nor the modules' log, but failures alone. */
    void silence();
    /** Clear the faults, undo everything on all processors, and tell what is left. @return Whether all of it
     *  worked and nothing is. */
    bool tear_down();

  private:
    [[nodiscard]] std::list<site>::iterator find(const std::string &name);

    const olv_apps::signal_watch &signals_;
    command_source source_;
    background_probes probes_;
    std::list<site> sites_; ///< In the order in which they were made.
    site *current_ = nullptr;
    std::string trace_name_;
    std::optional<trace_output> trace_;
    std::list<metrics_server> metrics_; ///< End before the sites that they read.
    const site *measured_ = nullptr;    ///< Whose figures are served.
    bool over_ = false;
};

} // namespace twampctl

#endif
