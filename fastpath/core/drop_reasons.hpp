/**
 * @file drop_reasons.hpp
 * Why packets are dropped: the one list of reasons, and counters by reason.
 */
#ifndef OLV_FASTPATH_DROP_REASONS_HPP
#define OLV_FASTPATH_DROP_REASONS_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace olv_fastpath {

/**
 * The list, in the order in which figures show it: the reason's name, its text for people, who counts it.
 *  - listener: the address that the packet came to; for the module it is as if it had not come.
 *  - module, responder: records of counters, in a field that is called drop_ and the reason's name.
 * Enumerators, counters, fields of JSON, labels of metrics and texts follow from it; docs/metrics.md is held to
 * it by a test.
 */
#define OLV_DROP_REASONS(REASON)                                                                               \
    REASON(socket_full, "socket buffer full", listener)                                                        \
    REASON(source_not_allowed, "source not allowed", listener)                                                 \
    REASON(source_port, "source port too low", listener)                                                       \
    REASON(own_source, "own address as source", listener)                                                      \
    REASON(not_to_this_host, "not sent to this host", listener)                                                \
    REASON(too_long, "length above the longest", listener)                                                     \
    REASON(answer_to_reply, "answer to a reply", listener)                                                     \
    REASON(unstamped_rate, "unstamped packet rate", listener)                                                  \
    REASON(packet_rate, "packet rate", listener)                                                               \
    REASON(no_responder, "no responder", module)                                                               \
    REASON(length_check, "length check failed", module_and_responder)                                          \
    REASON(max_sessions, "too many sessions", responder)                                                       \
    REASON(hash_error, "hash error", module)                                                                   \
    REASON(no_bind, "no output path bound", module)

enum class drop_reason : std::uint8_t {
#define OLV_ENUMERATOR(name, text, counter) name,
    OLV_DROP_REASONS(OLV_ENUMERATOR)
#undef OLV_ENUMERATOR
};

/** Who counts a reason. */
enum class drop_counter : std::uint8_t { listener = 1, module = 2, responder = 4, module_and_responder = 6 };

struct drop_reason_entry {
    drop_reason reason;
    const char *name; ///< As figures, metrics and documents call it.
    const char *text; ///< As people read it.
    drop_counter counter;

    [[nodiscard]] constexpr bool is_counted_by(drop_counter who) const
    {
        return (static_cast<unsigned>(counter) & static_cast<unsigned>(who)) != 0;
    }
};

inline constexpr std::array drop_reasons{
#define OLV_ENTRY(name, text, counter) drop_reason_entry{drop_reason::name, #name, text, drop_counter::counter},
    OLV_DROP_REASONS(OLV_ENTRY)
#undef OLV_ENTRY
};

[[nodiscard]] constexpr const drop_reason_entry &entry_of(drop_reason reason)
{
    return drop_reasons[static_cast<std::size_t>(reason)];
}

/** Something for each reason. */
template <typename Value> class by_drop_reason {
  public:
    [[nodiscard]] constexpr Value &operator[](drop_reason reason)
    {
        return values_[static_cast<std::size_t>(reason)];
    }
    [[nodiscard]] constexpr const Value &operator[](drop_reason reason) const
    {
        return values_[static_cast<std::size_t>(reason)];
    }
    [[nodiscard]] constexpr auto begin() const { return values_.begin(); }
    [[nodiscard]] constexpr auto end() const { return values_.end(); }

  private:
    std::array<Value, drop_reasons.size()> values_{};
};

/** Packets dropped. */
struct drop_counts : by_drop_reason<std::uint64_t> {
    [[nodiscard]] std::uint64_t sum() const { return std::accumulate(begin(), end(), std::uint64_t{0}); }

    drop_counts &operator+=(const drop_counts &other)
    {
        for (const drop_reason_entry &each : drop_reasons) {
            (*this)[each.reason] += other[each.reason];
        }
        return *this;
    }
};

/** What a record has counted, in its fields drop_NAME. */
template <typename Record> [[nodiscard]] drop_counts drops_in(const Record &record)
{
    drop_counts counts;
#define OLV_COUNT(name, text, counter)                                                                         \
    if constexpr (requires { record.drop_##name; }) {                                                          \
        counts[drop_reason::name] = record.drop_##name;                                                        \
    }
    OLV_DROP_REASONS(OLV_COUNT)
#undef OLV_COUNT
    return counts;
}

} // namespace olv_fastpath

#endif
