/**
 * @file platform_stack.hpp
 * The software platform with the TWAMP module on it, from the processor up to the sockets.
 */
#ifndef OLV_TWAMPCTL_PLATFORM_STACK_HPP
#define OLV_TWAMPCTL_PLATFORM_STACK_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fastpath/udp_server.hpp"
#include "figures.hpp"
#include "olv_sim.hpp"
#include "olv_twamp.h"
#include "run_options.hpp"

namespace twampctl {

/** Keys of the two output paths in the bind tree. */
inline constexpr std::uint32_t bind_key_ipv4 = 4;
inline constexpr std::uint32_t bind_key_ipv6 = 6;

/** A step that the library or the framework refused: "cannot X: status 0x3001D: its text". */
class step_failure : public std::runtime_error {
  public:
    step_failure(const olv_sim::framework &framework, const std::string &what, std::uint32_t status);
};

/**
 * Each step up prints a line, throws step_failure or std::runtime_error when it fails, and is undone by
 * tear_down(). The order up: initialise, create_responders, bind, listen.
 */
class platform_stack {
  public:
    explicit platform_stack(const run_options &options);
    /** Tears down what is still up. */
    ~platform_stack();
    platform_stack(const platform_stack &) = delete;
    platform_stack &operator=(const platform_stack &) = delete;

    void initialise();
    void create_responders();
    /** Bind to the IPv4 and the IPv6 module, as far as the addresses need them. */
    void bind();
    void listen();
    void stop_listening();

    void print_statistics();
    void print_tables();
    void print_imc();

    /** Undo every step that was done, the last one first. @return Whether all of it worked. */
    bool tear_down();
    [[nodiscard]] platform_usage usage() const;

  private:
    /** One of the modules that packets can leave by. */
    struct output {
        const char *name;
        olv_module_handle *module;
        const std::uint32_t *key;
    };

    [[nodiscard]] output output_for(int family) const;
    void limit_sessions(std::uint32_t responder_id) const;
    void bind_to(const output &to);
    void unbind(const output &from);
    void delete_responder(std::size_t index);
    void shut_down();
    void print_listener(std::size_t index) const;
    [[nodiscard]] olv_bind_info request_for(const output &to) const;

    /** Run @p work, at log level 15 if it is the verbose step. */
    void during(run_step step, const std::function<void()> &work);
    /** Run a part of the tear-down; a failure is printed and remembered. */
    void attempt(run_step step, const std::function<void()> &work);
    void set_log_level(std::uint32_t level);
    void require(std::uint32_t status, const std::string &what) const;

    const run_options &options_;
    olv_sim::processor processor_;
    olv_sim::framework framework_;
    olv_module_handle *module_;
    olv_fastpath::reflector reflector_;
    olv_fastpath::udp_server server_;
    bool initialised_ = false;
    bool failed_ = false; ///< A part of the tear-down did not work.
    std::vector<twamp_responder_handle *> responders_;
    std::vector<output> bound_;
};

} // namespace twampctl

#endif
