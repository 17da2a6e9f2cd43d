// The frame that every exported operation has in common: handle check, entry line, module lock, work, unlock,
// exit line, status.
#ifndef TWAMP_MODULE_CALL_HPP
#define TWAMP_MODULE_CALL_HPP

#include "log.hpp"
#include "olv_twamp.h"
#include "twamp_ctx.hpp"

namespace twamp {

/** Whether init completed on this module record and shutdown has not begun. */
inline bool has_context(const olv_module_handle &module)
{
    return module.ctx != nullptr && module.ctx->magic == ctx_magic;
}

inline bool is_module(const olv_module_handle *module)
{
    return module != nullptr && module->magic == OLV_MODULE_MAGIC;
}

/** Whether an operation can work on this handle. */
bool is_initialised(const olv_module_handle *module);

/** A status of a callee, re-tagged as this module's. */
constexpr uint32_t as_module_status(uint32_t status)
{
    return (status & ~0xF0000u) | 0x30000u;
}

/** A call in progress: the module it works on, and what its messages are logged through. */
struct module_call : log_context {
    module_call(olv_module_handle &called, const olv_system_handle *system)
        : log_context(called, system), module(called)
    {}

    olv_module_handle &module;
};

/** What an operation does under the module lock. */
class operation_work {
  public:
    operation_work(const operation_work &) = delete;
    operation_work &operator=(const operation_work &) = delete;

    uint32_t operator()(const module_call &call) const { return run_(*this, call); }

  protected:
    using run_function = uint32_t (*)(const operation_work &, const module_call &);

    explicit operation_work(run_function run) : run_(run) {}
    ~operation_work() = default;

  private:
    const run_function run_;
};

/** Work from a callable: the frame is then one function, not one for each operation. */
template <typename Callable> class steps final : public operation_work {
  public:
    explicit steps(const Callable &callable)
        : operation_work([](const operation_work &self, const module_call &call) -> uint32_t {
              return static_cast<const steps &>(self).callable_(call);
          }),
          callable_(callable)
    {}

  private:
    const Callable callable_;
};

inline constexpr const char *invalid_module = "Invalid TWAMP module handle 0x%08x\n";

/**
 * Refuse an unusable module handle.
 * @param failed   What could not be done.
 * @param invalid  Format of the line with the handle's address.
 */
uint32_t reject_module(log_site site, const olv_module_handle *module, const char *failed,
                       const char *invalid = invalid_module);

/** Operation without entry and exit line. */
inline constexpr const char *untraced = nullptr;

/**
 * Entry line, module lock, work, unlock, exit line. Without the lock there is neither work nor exit line; a
 * failed release takes the place of the work's status.
 * @param system     Logged through beside the module; may be NULL.
 * @param operation  Exported name, or `untraced`.
 */
uint32_t run_locked(const operation_work &work, olv_module_handle &module, const olv_system_handle *system,
                    log_site site, const char *operation);

/** The whole frame: handle check, then the locked work. */
uint32_t run(const operation_work &work, olv_module_handle *module, log_site site, const char *operation,
             const char *failed);

} // namespace twamp

#endif
