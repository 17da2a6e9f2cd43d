// Objects that a process has once.
#ifndef OLV_SIM_PROCESS_WIDE_HPP
#define OLV_SIM_PROCESS_WIDE_HPP

#include <mutex>

namespace olv_sim {

/** The process's object of a type, made when it is first asked for. It is never destroyed: processors and
 *  frameworks with static storage go when the process ends, after whatever was made later than they. */
template <typename Object> Object &process_wide()
{
    static auto *const one = new Object;
    return *one;
}

/** The process's object of a type, for one thread as long as this lives. */
template <typename Object> class locked {
  public:
    Object *operator->() const { return &shared().object; }
    Object &operator*() const { return shared().object; }

  private:
    struct shared_object {
        std::mutex mutex;
        Object object;
    };
    static shared_object &shared() { return process_wide<shared_object>(); }

    const std::lock_guard<std::mutex> lock_{shared().mutex};
};

} // namespace olv_sim

#endif
