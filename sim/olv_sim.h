/**
 * @file olv_sim.h
 * The software platform for C programs: one processor with the TWAMP classifier program, and a framework with
 * a record of the TWAMP module on it. Faults, the call record and trace sinks are for C++, see olv_sim.hpp.
 *
 *     olv_sim_platform *platform = olv_sim_platform_create();
 *     olv_module_handle *module = olv_sim_platform_module(platform);
 *     olv_twamp_init(module);
 *
 * Conventions:
 *  - Nothing here throws or ends the process. What cannot be had is NULL, and NULL in place of a platform
 *    yields NULL.
 *  - The records belong to the platform and live as long as it does.
 *  - Several platforms can live in one process. Everything may be called from several threads, but nothing
 *    may use a platform or its records while it is destroyed.
 */
#ifndef OLV_SIM_H
#define OLV_SIM_H

#include <stdint.h>

#include "olv.h"
#include "olv_twamp.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A software platform. */
typedef struct olv_sim_platform olv_sim_platform;

/**
 * Make a platform; its module is not initialised yet.
 * @return The platform, to be given back with olv_sim_platform_destroy(); NULL when memory or the process's
 *         processors, 4096 at a time, are used up.
 */
olv_sim_platform *olv_sim_platform_create(void);

/**
 * Destroy a platform with its processor and records. Modules are to be shut down before: their private
 * contexts and responder handles are not freed.
 * @param platform  NULL does nothing.
 */
void olv_sim_platform_destroy(olv_sim_platform *platform);

/**
 * The record of the TWAMP module.
 * @param platform  The platform; NULL yields NULL.
 * @return The record, to be given to the operations of olv_twamp.h.
 */
olv_module_handle *olv_sim_platform_module(const olv_sim_platform *platform);

/**
 * The system record.
 * @param platform  The platform; NULL yields NULL.
 * @return The record, to be given to bind and unbind.
 */
olv_system_handle *olv_sim_platform_system(const olv_sim_platform *platform);

/**
 * The record of the IPv4 module.
 * @param platform  The platform; NULL yields NULL.
 * @return The record, a destination of a bind.
 */
olv_module_handle *olv_sim_platform_ipv4_module(const olv_sim_platform *platform);

/**
 * The record of the IPv6 module.
 * @param platform  The platform; NULL yields NULL.
 * @return The record, a destination of a bind.
 */
olv_module_handle *olv_sim_platform_ipv6_module(const olv_sim_platform *platform);

/**
 * A bind request as the framework fills it, both ends on the fast path.
 * @param source       The record of the module whose output is bound.
 * @param destination  The record of the module that is bound to.
 * @param bind_key     The source instance: its low 24 bits are the key. It has to live as long as the request.
 * @return The request, which holds the three pointers as they were given.
 */
olv_bind_info olv_sim_make_bind_info(olv_module_handle *source, olv_module_handle *destination,
                                     const uint32_t *bind_key);

#ifdef __cplusplus
}
#endif

#endif
