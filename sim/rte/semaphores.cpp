// Binary semaphores: olv_sys_sem_lock_wait, hyx_sem_post.
#include <array>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "olv_sim/calls.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/statuses.hpp"
#include "olv_sim/violations.hpp"
#include "sim/faults/platform_call.hpp"
#include "sim/faults/report_violation.hpp"
#include "sim/process_wide.hpp"

namespace olv_sim {
namespace {

constexpr std::uint32_t index_bits = 16;
constexpr std::uint32_t index_mask = (1u << index_bits) - 1;

/** A semaphore's place. Places are never given back, so that a late user finds one that is not alive. */
struct semaphore {
    std::mutex mutex;
    std::condition_variable posted;
    std::uint32_t handle = 0; // Of the semaphore that lives here, 0: none.
    bool held = false;
};

struct semaphore_table {
    std::mutex mutex;
    std::array<std::atomic<semaphore *>, index_mask> places{};
    std::vector<std::unique_ptr<semaphore>> owned;
    std::vector<std::uint32_t> free;
    std::uint32_t generation = 0;
};

semaphore_table &the_table()
{
    return process_wide<semaphore_table>();
}

/** Handles count from 1 in their low half; the high half tells apart who used the same place. */
semaphore *find(std::uint32_t handle)
{
    const std::uint32_t position = handle & index_mask;
    return position == 0 ? nullptr : the_table().places[position - 1].load(std::memory_order_acquire);
}

void report_unknown(const char *user, std::uint32_t handle)
{
    violations::report(std::string{user} + ": no semaphore " + hex_word(handle, 8));
}

std::uint32_t wait(std::uint32_t handle)
{
    semaphore *place = find(handle);
    if (place != nullptr) {
        std::unique_lock lock{place->mutex};
        place->posted.wait(lock, [&] { return place->handle != handle || !place->held; });
        if (place->handle == handle) {
            place->held = true;
            return rte_ok;
        }
    }
    report_unknown("olv_sys_sem_lock_wait", handle);
    return rte_invalid_semaphore;
}

std::uint32_t post(std::uint32_t handle)
{
    semaphore *place = find(handle);
    if (place != nullptr) {
        const std::lock_guard lock{place->mutex};
        if (place->handle == handle && place->held) {
            place->held = false;
            place->posted.notify_one();
            return rte_ok;
        }
        if (place->handle == handle) {
            violations::report("hyx_sem_post: semaphore " + hex_word(handle, 8) + " is not held");
            return rte_semaphore_not_held;
        }
    }
    report_unknown("hyx_sem_post", handle);
    return rte_invalid_semaphore;
}

} // namespace

std::uint32_t semaphores::create()
{
    semaphore_table &table = the_table();
    const std::lock_guard lock{table.mutex};
    std::uint32_t index = 0;
    if (!table.free.empty()) {
        index = table.free.back();
        table.free.pop_back();
        ++table.generation;
    } else if (table.owned.size() < table.places.size()) {
        index = static_cast<std::uint32_t>(table.owned.size());
        table.owned.push_back(std::make_unique<semaphore>());
        table.places[index].store(table.owned.back().get(), std::memory_order_release);
    } else {
        violations::report("semaphores: none left");
        return 0;
    }
    semaphore &place = *table.owned[index];
    const std::lock_guard place_lock{place.mutex};
    place.handle = (table.generation << index_bits) | (index + 1);
    place.held = false;
    return place.handle;
}

void semaphores::destroy(std::uint32_t semaphore_handle)
{
    semaphore_table &table = the_table();
    const std::lock_guard lock{table.mutex};
    semaphore *place = find(semaphore_handle);
    if (place != nullptr) {
        const std::lock_guard place_lock{place->mutex};
        if (place->handle == semaphore_handle) {
            place->handle = 0;
            place->posted.notify_all();
            table.free.push_back((semaphore_handle & index_mask) - 1);
            return;
        }
    }
    report_unknown("semaphores::destroy", semaphore_handle);
}

std::uint32_t semaphores::held(std::uint32_t semaphore_handle)
{
    semaphore *place = find(semaphore_handle);
    if (place == nullptr) {
        return 0;
    }
    const std::lock_guard lock{place->mutex};
    return place->handle == semaphore_handle && place->held ? 1 : 0;
}

} // namespace olv_sim

using namespace olv_sim;

std::uint32_t olv_sys_sem_lock_wait(std::uint32_t lock)
{
    return status_call(
        call::olv_sys_sem_lock_wait, [&](argument_text &text) { text.hex("lock", lock); },
        [&] { return wait(lock); });
}

std::uint32_t hyx_sem_post(std::uint32_t semaphore_handle)
{
    return status_call(
        call::hyx_sem_post, [&](argument_text &text) { text.hex("semaphore", semaphore_handle); },
        [&] { return post(semaphore_handle); });
}
