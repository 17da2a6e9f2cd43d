/**
 * @file framework.hpp
 * The module manager, with the records of its modules.
 */
#ifndef OLV_SIM_FRAMEWORK_HPP
#define OLV_SIM_FRAMEWORK_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "olv.h"
#include "olv_sim/processor.hpp"

namespace olv_sim {

/** How a module record is made. */
struct module_options {
    std::uint32_t module_id = 0;                   ///< Below module_id_limit.
    const olv_sim::processor *processor = nullptr; ///< Its rte_handle goes into the record; NULL: 0.
    std::string log_name = "twamp";                ///< Copied.
    std::uint32_t log_flags = 0;                   ///< Log word, see OLV_LOG_LEVEL_MASK and those below it.
    bool locked = true;                            ///< false: `lock` is 0.
    bool system = true;                            ///< false: `system` is NULL.
    std::uint16_t default_entry_point = 0;         ///< 0: none.
};

/** Entries of moduleMgrCpuServiceFn. */
inline constexpr std::uint32_t module_id_limit = 64;
/** The identifier that the software framework gives the TWAMP module. */
inline constexpr std::uint32_t module_id_twamp = 3;
/** Entry point that the lookup of the IPv4 module answers with. */
inline constexpr std::uint32_t entry_point_ipv4 = 0x00000401;
/** Entry point that the lookup of the IPv6 module answers with. */
inline constexpr std::uint32_t entry_point_ipv6 = 0x00000601;

/** The module manager: owns the system record and the module records, keeps the registered service
 *  functions, drives modules through them. While one lives, moduleMgrCpuServiceFn has the entries of the
 *  IPv4 module (1) and the IPv6 module (11). */
class framework {
  public:
    /** A framework with a system record and records of the IPv4 and the IPv6 module. */
    explicit framework(std::string system_log_name = "system");
    ~framework();
    framework(const framework &) = delete;
    framework &operator=(const framework &) = delete;

    /** The system record. */
    [[nodiscard]] olv_system_handle *system() const;
    /** The record belongs to the framework and lives as long. Its lock is created free. */
    olv_module_handle *create_module(const module_options &options);
    [[nodiscard]] olv_module_handle *ipv4_module() const; ///< The IPv4 module's, a destination of a bind.
    [[nodiscard]] olv_module_handle *ipv6_module() const; ///< The IPv6 module's, a destination of a bind.

    /** The table registered for a module; nothing when none is, or when it was withdrawn. */
    [[nodiscard]] std::optional<olv_service_function_table> registered(const olv_module_handle *module) const;
    /** The table of the last register or update call that the framework accepted, all-zero ones included. */
    [[nodiscard]] std::optional<olv_service_function_table> last_table(const olv_module_handle *module) const;

    /** Call a module's registered service function, slot 0, as the ones below call theirs.
     *  @return Its status; framework_not_registered where there is none. */
    std::uint32_t shutdown(olv_module_handle *module);
    /** Slot 5 of the request's source module. */
    std::uint32_t bind(const olv_bind_info &info);
    /** Slot 6 of the request's source module. */
    std::uint32_t unbind(const olv_bind_info &info);
    /** Slot 10. */
    std::uint32_t get_imc(olv_module_handle *module, const olv_bind_info &info, std::uint32_t *imc);
    /** Slot 16. */
    std::uint32_t set_log_level(olv_module_handle *module, std::uint32_t level);

    struct implementation;

  private:
    std::unique_ptr<implementation> implementation_;
};

/** A bind request from @p source to @p destination as the framework fills it, both on the fast path.
 *  @p bind_key has to live as long as the request. */
[[nodiscard]] olv_bind_info make_bind_info(olv_module_handle *source, olv_module_handle *destination,
                                           const std::uint32_t *bind_key);

} // namespace olv_sim

#endif
