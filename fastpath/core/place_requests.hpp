/**
 * @file place_requests.hpp
 * How a reflector that has to refuse a new session asks the others of the fast path to give way.
 */
#ifndef OLV_FASTPATH_PLACE_REQUESTS_HPP
#define OLV_FASTPATH_PLACE_REQUESTS_HPP

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace olv_fastpath {

/**
 * One request at a time: a session of a responder is to end. Every other reflector looks at it once; the first
 * that has a session that may end takes it. Reflectors that are refused meanwhile ask again with the next
 * packet that they have no place for. There is no lock in it.
 */
class place_requests {
  public:
    /** Of one that looks at requests. */
    using look_count = std::uint32_t;

    /** @param reflectors  That ask, and look.
     *  @param ring        Called with a request, by the thread that asks: all others are to look soon. */
    explicit place_requests(std::uint32_t reflectors = 1, std::function<void()> ring = {})
        : others_(reflectors - 1), ring_(std::move(ring))
    {}

    /** Ask for a session of a responder to end. Nothing when another request is open. */
    void ask(std::uint32_t responder_id, look_count &looks)
    {
        std::uint32_t none = 0;
        if (others_ == 0 || !unseen_.compare_exchange_strong(none, others_)) {
            return;
        }
        responder_.store(responder_id);
        looks = asked_.fetch_add(1) + 1; // its own it need not look at
        if (ring_) {
            ring_();
        }
    }

    /** Whether there is a request that the one who looks has not seen. */
    [[nodiscard]] bool is_asked(look_count looks) const
    {
        return asked_.load(std::memory_order_relaxed) != looks;
    }

    /** Look at the request. @param has_one  Whether a session of a responder may end here.
     *  @return The responder, if the one who looks is the one to end a session of it. */
    template <typename HasOne>
    [[nodiscard]] std::optional<std::uint32_t> look(look_count &looks, const HasOne &has_one)
    {
        if (asked_.load() == looks) {
            return std::nullopt;
        }
        ++looks; // no other request comes before all have seen this one
        std::uint32_t responder_id = responder_.load();
        const bool takes = responder_id != nobody && has_one(responder_id) &&
                           responder_.compare_exchange_strong(responder_id, nobody);
        unseen_.fetch_sub(1);
        return takes ? std::optional{responder_id} : std::nullopt;
    }

  private:
    static constexpr std::uint32_t nobody = UINT32_MAX; // no ID: these have 24 bits

    std::uint32_t others_;
    std::function<void()> ring_;
    std::atomic<std::uint32_t> unseen_{0}; ///< By so many others; 0: no request is open.
    std::atomic<std::uint32_t> responder_{nobody};
    std::atomic<look_count> asked_{0}; ///< Requests so far.
};

} // namespace olv_fastpath

#endif
