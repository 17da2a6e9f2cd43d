#include "apps/twamp-probe/csv_report.hpp"

#include <cinttypes>

#include "apps/common/formatted.hpp"
#include "apps/common/run_report.hpp"
#include "net/traffic_class.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;

std::string result_of(const packet_record &record)
{
    if (!record.answered) {
        return "lost";
    }
    return record.is_valid() ? "valid" : text_of(record.faults());
}

void append_delays(std::string &line, const packet_record &record)
{
    for (const path which : {path::round_trip, path::forward, path::backward}) {
        line += ',';
        if (record.has(which)) {
            append(line, "%.3f", microseconds(record.delay(which)));
        }
    }
}

/** @param started  Nanoseconds since 1970. */
void append_packet(std::string &line, std::uint64_t sequence, const packet_record &record,
                   std::uint64_t started)
{
    append(line, ",%" PRIu64 ",%.3f,%s", sequence, microseconds(record.sent_at), result_of(record).c_str());
    append_delays(line, record);
    if (record.measured) {
        append(line, ",%u,%u", unsigned{record.request_ttl}, unsigned{record.reply_ttl});
    } else {
        line += ",,";
    }
    append(line, ",%u,%u", record.late ? 1u : 0u, unsigned{record.duplicates});
    if (record.measured) {
        append(line, ",%u,%s", unsigned{record.reply_traffic_class} >> 2,
               olv_net::ecn_name(record.reply_traffic_class));
    } else {
        line += ",,";
    }
    append(line, ",%s\n", utc_text(started + static_cast<std::uint64_t>(record.sent_at)).c_str());
}

} // namespace

void write_csv(std::FILE *output, const std::vector<sender_packets> &senders, std::uint64_t started)
{
    (void)std::fputs(
        "sender,sequence,sent_us,result,round_trip_us,forward_us,backward_us,request_ttl,reply_ttl,"
        "reordered,duplicates,reply_dscp,reply_ecn,sent\n",
        output); // an error shows when the output is ended
    std::string line;
    for (const sender_packets &sender : senders) {
        std::uint64_t sequence = sender.result->forgotten();
        for (const packet_record &record : sender.result->records()) {
            line = sender.address;
            append_packet(line, sequence++, record, started);
            (void)std::fputs(line.c_str(), output); // as above
        }
    }
}

} // namespace olv_probe
