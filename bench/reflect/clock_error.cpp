#include "clock_error.hpp"

#include <algorithm>
#include <cmath>

#include "percentiles.hpp"

namespace reflect_bench {
namespace {

constexpr double microsecond = 1e3; ///< In nanoseconds.

/** Nanoseconds that an instant is outside the time from @p begin to @p end; 0 inside. */
std::int64_t outside(std::int64_t instant, std::int64_t begin, std::int64_t end)
{
    return std::max({begin - instant, instant - end, std::int64_t{0}});
}

clock_row row_of(const std::vector<stamped_reply> &replies)
{
    std::vector<double> offsets;
    std::vector<double> sendings;
    std::int64_t farthest = 0;
    for (const stamped_reply &each : replies) {
        const auto sending = static_cast<double>(each.after_send - each.before_send);
        offsets.push_back(static_cast<double>(each.received - each.before_send) - sending / 2);
        sendings.push_back(sending);
        farthest = std::max({farthest, outside(each.received, each.before_send, each.after_send),
                             outside(each.replied, each.before_send, each.arrival)});
    }
    return {.replies = replies.size(),
            .offset = median(std::move(offsets)) / microsecond,
            .uncertainty = median(std::move(sendings)) / 2 / microsecond,
            .outside = static_cast<double>(farthest) / microsecond};
}

} // namespace

double clock_row::bound() const
{
    return std::abs(offset) + uncertainty;
}

void clock_error::add(const stamped_reply &reply)
{
    if (rows_.empty()) {
        start_ = reply.before_send;
    }
    const auto row =
        static_cast<std::size_t>(static_cast<double>(reply.before_send - start_) / nanoseconds_in_row_);
    rows_.resize(std::max(rows_.size(), row + 1));
    rows_[row].push_back(reply);
    reversed_ += reply.replied < reply.received ? 1 : 0;
}

std::vector<clock_row> clock_error::rows() const
{
    std::vector<clock_row> rows;
    for (std::size_t index = 0; index < rows_.size(); ++index) {
        if (!rows_[index].empty()) {
            rows.push_back(row_of(rows_[index]));
            rows.back().begin_seconds = static_cast<double>(index) * nanoseconds_in_row_ / 1e9;
        }
    }
    return rows;
}

double worst_error(const std::vector<clock_row> &rows)
{
    double worst = 0;
    for (const clock_row &each : rows) {
        worst = std::max({worst, each.bound(), each.outside});
    }
    return worst;
}

double drift_per_hour(const std::vector<clock_row> &rows)
{
    if (rows.size() < 2) {
        return 0;
    }
    double mean_time = 0;
    double mean_offset = 0;
    for (const clock_row &each : rows) {
        mean_time += each.begin_seconds / static_cast<double>(rows.size());
        mean_offset += each.offset / static_cast<double>(rows.size());
    }
    double products = 0;
    double squares = 0;
    for (const clock_row &each : rows) {
        products += (each.begin_seconds - mean_time) * (each.offset - mean_offset);
        squares += (each.begin_seconds - mean_time) * (each.begin_seconds - mean_time);
    }
    return products / squares * 3600;
}

} // namespace reflect_bench
