#include "probe/reflector_numbers.hpp"

#include <algorithm>
#include <array>

#include "probe/name_and_text.hpp"

namespace olv_probe {
namespace {

constexpr std::array<name_and_text, 6> numberings = {
    {{"unknown", "nothing came back"},
     {"session", "the reflector numbers the replies of this session"},
     {"request", "the reflector's numbers are the requests'"},
     {"reflector", "the reflector numbers other replies, too"},
     {"constant", "the reflector does not number its replies"},
     {"irregular", "the reflector's numbers are in no order"}}};

} // namespace

const char *text_of(numbering how)
{
    return numberings[static_cast<std::size_t>(how)].text;
}

const char *name_of(numbering how)
{
    return numberings[static_cast<std::size_t>(how)].name;
}

void way_counts::add(const way_counts &other)
{
    forward += other.forward;
    backward += other.backward;
    unknown += other.unknown;
}

void numbering_epoch::take_number(std::uint32_t number)
{
    const std::uint32_t above = number - static_cast<std::uint32_t>(highest_number);
    const std::uint32_t below_first = static_cast<std::uint32_t>(first_number) - number;
    if (is_above(number, static_cast<std::uint32_t>(highest_number))) {
        highest_number += above;
    } else if (below_first - 1 < number_memory::depth && first_number != 0) {
        first_number -= below_first; // the first ones did not come first
    }
    ++numbers;
}

reflector_numbers::finding reflector_numbers::reply(pair given, std::uint64_t sent)
{
    finding found;
    only_number_ = replies_ == 0 ? given.number : only_number_;
    ++replies_;
    all_the_requests_ &= given.number == static_cast<std::uint32_t>(given.sequence);
    all_the_same_ &= given.number == only_number_;
    if (!epoch_) {
        begin(given);
    } else if (past_.requests != 0 && given.sequence < epoch_->first_sequence) {
        ++past_.answered; // late, with a number of before
        return found;
    }
    if (candidate_ && given.sequence > candidate_->sequence) {
        const pair candidate = *candidate_;
        candidate_.reset();
        if (goes_on_from(candidate, given)) {
            begin_anew(candidate);
            (void)add(candidate, sent); // the first number of an epoch is not repeated
            found.began_anew = candidate.sequence;
        } else {
            refuted_ = candidate.number;
            if (add(candidate, sent)) {
                found.repeated_before = candidate.sequence;
            }
        }
    }
    if (may_begin_anew(given, sent)) {
        candidate_ = given;
        return found;
    }
    found.is_repeated = add(given, sent);
    return found;
}

void reflector_numbers::begin(pair given)
{
    epoch_.emplace();
    const bool from_the_beginning = given.number <= given.sequence;
    epoch_->first_sequence = from_the_beginning ? 0 : given.sequence;
    epoch_->highest_sequence = given.sequence;
    epoch_->first_number = from_the_beginning ? 0 : given.number;
    epoch_->highest_number = given.number;
}

/** A number that is not above the highest, and that a counter that began after the latest reply can have come
 * to; or so far below that no reordering explains it. */
bool reflector_numbers::may_begin_anew(pair given, std::uint64_t sent) const
{
    const auto highest = static_cast<std::uint32_t>(epoch_->highest_number);
    if (given.sequence <= epoch_->highest_sequence || is_above(given.number, highest) ||
        refuted_ == given.number) {
        return false;
    }
    const std::uint64_t since = given.sequence - epoch_->highest_sequence - 1;
    return given.number <= since || highest - given.number > sent;
}

/** Whether the reply after the candidate counts on from it instead of from the highest number. */
bool reflector_numbers::goes_on_from(pair candidate, pair given) const
{
    if (!is_above(given.number, candidate.number)) {
        return false;
    }
    if (!is_above(given.number, static_cast<std::uint32_t>(epoch_->highest_number))) {
        return true;
    }
    return epoch_->memory.knows(candidate.number) && given.number < given.sequence - epoch_->highest_sequence;
}

void reflector_numbers::begin_anew(pair candidate)
{
    const std::uint64_t between = candidate.sequence - epoch_->highest_sequence - 1;
    const std::uint64_t answered_and_lost = std::min<std::uint64_t>(candidate.number, between);
    const std::uint64_t used = epoch_->used();
    past_.requests += epoch_->requests() + between;
    past_.answered += epoch_->answered;
    past_.missing_numbers += used - std::min(used, epoch_->numbers) + answered_and_lost;
    past_.unknown += between - answered_and_lost;
    epoch_.emplace();
    epoch_->first_sequence = candidate.sequence;
    epoch_->highest_sequence = candidate.sequence;
    epoch_->first_number = candidate.number;
    epoch_->highest_number = candidate.number;
}

/** @return Whether the number was there before. */
bool reflector_numbers::add(pair given, std::uint64_t sent)
{
    numbering_epoch &now = *epoch_;
    ++now.answered;
    now.first_sequence = std::min(now.first_sequence, given.sequence);
    now.highest_sequence = std::max(now.highest_sequence, given.sequence);
    overtaken_ += now.order.is_late(given.number) ? 1 : 0;
    if (now.memory.is_repeated(given.number)) {
        return true;
    }
    now.take_number(given.number);
    const std::uint64_t possible = sent - now.first_sequence;
    excess_ = std::max(excess_, now.used() - std::min(now.used(), possible));
    return false;
}

void reflector_numbers::duplicate(std::uint32_t number)
{
    if (!epoch_) {
        return;
    }
    if (epoch_->memory.is_repeated(number)) {
        ++doubled_backward_;
    } else {
        ++doubled_forward_;
        epoch_->take_number(number);
    }
}

numbering reflector_numbers::how() const
{
    if (replies_ == 0) {
        return numbering::unknown;
    }
    if (all_the_requests_ && doubled_forward_ == 0) {
        return numbering::by_request;
    }
    if (all_the_same_ && replies_ > 1) {
        return numbering::constant;
    }
    if (overtaken_ * 2 > replies_) {
        return numbering::irregular;
    }
    // A request that was doubled on its way takes two numbers, and one of its replies may be lost.
    return excess_ > 2 * doubled_forward_ ? numbering::by_reflector : numbering::by_session;
}

bool reflector_numbers::tell_order() const
{
    return how() == numbering::by_session || how() == numbering::by_reflector;
}

way_counts reflector_numbers::losses(std::uint64_t lost) const
{
    if (how() != numbering::by_session) {
        return {.forward = 0, .backward = 0, .unknown = lost};
    }
    const std::uint64_t used = epoch_->used();
    const std::uint64_t missing = used - std::min(used, epoch_->numbers);
    const std::uint64_t unanswered = epoch_->requests() - std::min(epoch_->requests(), epoch_->answered);
    const std::uint64_t past_lost = past_.requests - std::min(past_.requests, past_.answered);
    const std::uint64_t past_backward = std::min(past_.missing_numbers, past_lost);
    const std::uint64_t past_unknown = std::min(past_.unknown, past_lost - past_backward);
    way_counts counts;
    counts.backward = std::min(lost, std::min(missing, unanswered) + past_backward);
    counts.forward = std::min(lost - counts.backward, unanswered - std::min(missing, unanswered) + past_lost -
                                                          past_backward - past_unknown);
    // Of the last ones, after which no reply came, nobody knows; nor of those before a first number above 0.
    counts.unknown = lost - counts.backward - counts.forward;
    return counts;
}

way_counts reflector_numbers::duplicates() const
{
    if (!tell_order()) {
        return {.forward = 0, .backward = 0, .unknown = doubled_forward_ + doubled_backward_};
    }
    return {.forward = doubled_forward_, .backward = doubled_backward_, .unknown = 0};
}

} // namespace olv_probe
