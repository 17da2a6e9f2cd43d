/**
 * @file reflector_numbers.hpp
 * What the reflector's sequence numbers say: on which way packets were lost, doubled or overtaken.
 */
#ifndef OLV_PROBE_REFLECTOR_NUMBERS_HPP
#define OLV_PROBE_REFLECTOR_NUMBERS_HPP

#include <cstdint>
#include <optional>

#include "probe/statistics.hpp"

namespace olv_probe {

/** How a reflector numbers its replies, as far as they show it. */
enum class numbering : std::uint8_t {
    unknown,      ///< Nothing came back.
    by_session,   ///< One by one, for this session alone.
    by_request,   ///< With the requests' numbers; or by session, and no request was lost.
    by_reflector, ///< In order, but for others, too.
    constant,     ///< Not at all.
    irregular
};

/** As text for people. */
[[nodiscard]] const char *text_of(numbering how);
/** As a name for programs. */
[[nodiscard]] const char *name_of(numbering how);

/** By the way on which it happened. */
struct way_counts {
    std::uint64_t forward = 0;
    std::uint64_t backward = 0;
    std::uint64_t unknown = 0;

    void add(const way_counts &other);
};

/** Requests and numbers since the reflector began. */
struct numbering_epoch {
    std::uint64_t first_sequence = 0;
    std::uint64_t highest_sequence = 0;
    std::uint64_t first_number = 0;   ///< Counted on where the 32 bits go round.
    std::uint64_t highest_number = 0; ///< The same.
    std::uint64_t answered = 0;
    std::uint64_t numbers = 0; ///< That came.
    number_memory memory;
    arrival_order order;

    [[nodiscard]] std::uint64_t used() const { return highest_number - first_number + 1; }
    [[nodiscard]] std::uint64_t requests() const { return highest_sequence - first_sequence + 1; }
    void take_number(std::uint32_t number);
};

/** Requests of epochs that are over, with what their numbers said. */
struct past_epochs {
    std::uint64_t requests = 0;
    std::uint64_t answered = 0;
    std::uint64_t missing_numbers = 0;
    std::uint64_t unknown = 0; ///< Sent while the reflector began anew.
};

/** Follows the numbers of one session. */
class reflector_numbers {
  public:
    /** A request, counted on behind the last of 32 bits, and the number of its reply. */
    struct pair {
        std::uint64_t sequence = 0;
        std::uint32_t number = 0;
    };
    struct finding {
        bool is_repeated = false;
        /** This earlier reply used a number again, which looked like a new beginning when it came. */
        std::optional<std::uint64_t> repeated_before;
        /** The reflector began anew with the reply to this request. */
        std::optional<std::uint64_t> began_anew;
    };

    /** The first reply to a request came, when so many had been sent. */
    [[nodiscard]] finding reply(pair given, std::uint64_t sent);
    /** A further reply to a request came. */
    void duplicate(std::uint32_t number);

    [[nodiscard]] numbering how() const;
    /** @param lost  Requests. The counts add up to it. */
    [[nodiscard]] way_counts losses(std::uint64_t lost) const;
    [[nodiscard]] way_counts duplicates() const;
    /** Replies that were overtaken on their way back. */
    [[nodiscard]] std::uint64_t overtaken_backward() const { return overtaken_; }
    /** Whether the numbers tell the order in which the reflector saw the requests. */
    [[nodiscard]] bool tell_order() const;
    /** The latest reply, perhaps the first one of a new beginning: the next will tell. */
    [[nodiscard]] const std::optional<pair> &candidate() const { return candidate_; }

  private:
    void begin(pair given);
    [[nodiscard]] bool may_begin_anew(pair given, std::uint64_t sent) const;
    [[nodiscard]] bool goes_on_from(pair candidate, pair given) const;
    void begin_anew(pair candidate);
    [[nodiscard]] bool add(pair given, std::uint64_t sent);

    std::optional<numbering_epoch> epoch_;
    past_epochs past_;
    std::optional<pair> candidate_;        ///< Perhaps the first one of a new beginning.
    std::optional<std::uint32_t> refuted_; ///< Number of the last candidate that was none.
    std::uint64_t replies_ = 0;
    std::uint64_t overtaken_ = 0;
    std::uint64_t doubled_forward_ = 0;
    std::uint64_t doubled_backward_ = 0;
    std::uint64_t excess_ = 0; ///< Numbers used above requests sent, at most.
    std::uint32_t only_number_ = 0;
    bool all_the_requests_ = true;
    bool all_the_same_ = true;
};

} // namespace olv_probe

#endif
