/**
 * @file site.hpp
 * One processor of the software platform with the TWAMP module on it, from the classifier program to the
 * sockets.
 */
#ifndef OLV_TWAMPCTL_SITE_HPP
#define OLV_TWAMPCTL_SITE_HPP

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "apps/twampctl/figures/figures.hpp"
#include "apps/twampctl/site/output.hpp"
#include "fastpath/fast_path.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/processor.hpp"
#include "olv_twamp.h"

namespace twampctl {

/** A step that the library or the framework refused:
 *  "cannot create responder west: status 0x3001D TWAMP_STATUS_INDEX_ALLOC_FAILED: its text". */
class step_failure : public std::runtime_error {
  public:
    using runtime_error::runtime_error;
};

/** Responder IDs that a processor has when nothing else is said. */
inline constexpr std::uint32_t usual_capacity = 65536;
/** The most that a processor can have. */
inline constexpr std::uint32_t largest_capacity = (1u << 24) - 2;

/** How a site is made. */
struct site_options {
    std::string name = "main";
    olv_sim::classifier_program program;
    bool locked = true;
    bool system = true;
    std::uint16_t default_entry_point = 0;
    olv_fastpath::fast_path_options fast_path;
};

/** A bind, unbind or IMC request. What is left out is as the framework fills it. */
struct bind_request {
    output to = output::ipv4;
    std::optional<std::uint32_t> key;
    std::optional<std::uint32_t> type;
    std::optional<std::uint32_t> subtype;
    std::optional<std::uint32_t> path;
    std::optional<std::uint32_t> source_location;
    std::optional<std::uint32_t> destination_location;
    bool custom = true;
};

struct named_responder {
    std::string name;
    twamp_responder_handle *handle;
};

/** How a responder is made. */
struct responder_request {
    std::string name; ///< Empty: the lowest number that is free.
    olv_twamp_responder_info info{};
    std::optional<std::uint32_t> sessions; ///< At most; nothing: what the module writes.
};

/**
 * Each step prints a line of progress, throws step_failure or std::runtime_error when it fails, and is undone
 * by tear_down(). One thread controls a site; collect() and
 * reason_against_answering() may be called from another one.
 */
class site {
  public:
    explicit site(const site_options &options);
    /** Tears down what is still up. */
    ~site();
    site(const site &) = delete;
    site &operator=(const site &) = delete;

    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] olv_sim::processor &processor() { return processor_; }
    [[nodiscard]] olv_sim::framework &framework() { return framework_; }
    [[nodiscard]] olv_module_handle *module() const { return module_; }

    // The module.
    [[nodiscard]] bool is_up() const;
    /** @return false when it was initialised already, which changes nothing. */
    bool initialise();
    void shut_down();
    void set_log_level(std::uint32_t level);

    // Responders. An unknown name is a std::runtime_error that lists the known ones.
    const named_responder &create_responder(const responder_request &request);
    void delete_responder(const std::string &name);
    [[nodiscard]] const std::vector<named_responder> &responders() const { return responders_; }
    [[nodiscard]] const named_responder &responder(const std::string &name) const;

    // Output paths. `direct`: call the library, not the service function that it registered.
    void bind(const bind_request &request, bool direct = false);
    void unbind(const bind_request &request, bool direct = false);
    [[nodiscard]] std::uint32_t imc(const bind_request &request, bool direct = false);

    // Listeners, by the addresses that they really have.
    /** @return The address with its port. */
    std::string listen(const olv_net::socket_address &address, const olv_fastpath::packet_path &path);
    void unlisten(const std::string &address);
    void redirect(const std::string &address, const olv_fastpath::packet_path &path);
    [[nodiscard]] std::vector<std::string> listeners() const;
    [[nodiscard]] olv_fastpath::listener_statistics counters_of(const std::string &address) const;
    void start();
    void stop();
    /** Why packets are not answered; empty: they are. */
    [[nodiscard]] std::string reason_against_answering() const;

    /** End the sessions of a responder; without a name, all. */
    void clear_sessions(const std::string &responder_name);
    /** How many sessions a responder may have; nothing: it has no state. */
    [[nodiscard]] std::optional<std::uint32_t> session_limit_of(std::uint32_t responder_id) const;
    /** Packets that were dropped for want of a session; their number goes round. */
    [[nodiscard]] std::uint32_t refused_packets() const;
    [[nodiscard]] std::uint64_t sessions_that_gave_way() const { return fast_path_.sessions_that_gave_way(); }

    /** Who knows the last round trip of a sender, by its address, in seconds. */
    using round_trip_source = std::function<std::optional<double>(const std::string &)>;
    void take_round_trips_from(round_trip_source source) { round_trips_ = std::move(source); }

    /** Everything at this instant. */
    [[nodiscard]] figures collect();
    [[nodiscard]] platform_usage usage() const;

    /** Undo every step that was done, the last one first; a failure is reported and the rest goes on.
     *  @return Whether all of it worked. */
    bool tear_down();

    /** @throw step_failure  The status is not 0. */
    void require(std::uint32_t status, const std::string &what) const;

  private:
    /** A bind that is in force. */
    struct binding {
        bind_request request;
        std::uint32_t key;
    };

    /** @throw std::runtime_error  There is none; the text lists those there are. */
    [[nodiscard]] std::vector<named_responder>::const_iterator find(const std::string &name) const;
    [[nodiscard]] std::string free_name();
    /** Without a line of progress. */
    void take_away(const std::string &name);
    /** @return RTE status. */
    [[nodiscard]] std::uint32_t write_maximum_of_sessions(std::uint32_t id, std::uint32_t maximum);
    /** @throw step_failure  It cannot be written, and the responder is deleted, or why it is not. */
    void write_maximum_or_delete(const named_responder &created, std::uint32_t maximum);
    /** @return Which listener of the fast path it is. */
    [[nodiscard]] std::size_t listener_at(const std::string &address) const;
    [[nodiscard]] olv_bind_info info_of(const bind_request &request, const std::uint32_t *key) const;
    void collect_responders(figures &into);
    /** The names of responders by their IDs. */
    using responder_names = std::unordered_map<std::uint32_t, std::string>;
    void collect_listeners(figures &into, const responder_names &names) const;
    void collect_sessions(figures &into, const responder_names &names) const;

    std::string name_;
    olv_sim::processor processor_;
    olv_sim::framework framework_;
    olv_module_handle *module_;
    olv_fastpath::fast_path fast_path_;
    mutable std::recursive_mutex mutex_; ///< Guards the lists below and the life of their responders.
    std::vector<named_responder> responders_;
    std::unordered_set<std::string> names_; ///< Of the responders: there may be very many.
    std::size_t lowest_free_ = 1;           ///< All numbers below name a responder.
    std::list<binding> bound_;
    // There may be very many listeners as well.
    std::map<std::size_t, std::string> listeners_; ///< Their addresses, by the fast path's numbers.
    std::unordered_map<std::string, std::size_t> listener_numbers_;
    round_trip_source round_trips_;
};

} // namespace twampctl

#endif
