/**
 * @file olv_sim.hpp
 * The software platform: the framework (`olv_*`) and the runtime environment (`hyx_*`) in a process of a
 * workstation, with faults on demand, a call record and clocks that can be set.
 *
 * The C symbols of olv.h and hyx.h are what a module uses. The headers in olv_sim/ are for whoever drives the
 * platform, each about one subject; this one includes them all.
 *
 *     olv_sim::processor processor{olv_sim::classifier_program::twamp()};
 *     olv_sim::framework framework;
 *     olv_module_handle *module = framework.create_module({.module_id = 7, .processor = &processor});
 *     olv_twamp_init(module);
 *
 * Several processors and frameworks can live in one process. Memory, semaphores, patterns, the tracer, the
 * fault plan and the call record belong to the process. Everything here may be used from several threads,
 * except where a comment says otherwise.
 */
#ifndef OLV_SIM_HPP
#define OLV_SIM_HPP

#include "olv_sim/call_record.hpp"
#include "olv_sim/calls.hpp"
#include "olv_sim/fast_path_seam.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_sim/violations.hpp"

#endif
