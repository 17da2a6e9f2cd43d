#include "sim/lttng/lttng_trace_sink.hpp"

#include "tracepoints.h"

namespace olv_sim::lttng {
namespace {

static_assert(trace_event::forced_error == OLV_LTTNG_FORCED_ERROR);

/** A message is a field: what ends its line is of no use there. */
std::string without_line_ends(std::string text)
{
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

/** One tracepoint for each kind of event. */
class recorder {
  public:
    explicit recorder(const trace_event &event)
        : event_(event), site_{event.level, event.module.c_str(), event.file.c_str(), event.line}
    {}

    void operator()(const trace_details::message &) const
    {
        if (lttng_ust_tracepoint_enabled(olv_twamp, message)) {
            const std::string text = without_line_ends(event_.text);
            lttng_ust_do_tracepoint(olv_twamp, message, &site_, text.c_str());
        }
    }
    void operator()(const trace_details::function_entry &entry) const
    {
        lttng_ust_tracepoint(olv_twamp, function_entry, &site_, entry.operation.c_str());
    }
    void operator()(const trace_details::function_exit &exit) const
    {
        lttng_ust_tracepoint(olv_twamp, function_exit, &site_, exit.operation.c_str());
    }
    void operator()(const trace_details::state_write &write) const
    {
        const olv_lttng_state_write fields{write.namespace_id, write.index,
                                           write.bytes ? write.bytes->data() : nullptr,
                                           write.bytes ? write.length : 0};
        lttng_ust_tracepoint(olv_twamp, state_write, &site_, &fields);
    }
    void operator()(const trace_details::entry_learnt &entry) const
    {
        const olv_lttng_entry fields = fields_of(entry);
        lttng_ust_tracepoint(olv_twamp, entry_learnt, &site_, &fields);
    }
    void operator()(const trace_details::entry_removed &entry) const
    {
        const olv_lttng_entry fields = fields_of(entry);
        lttng_ust_tracepoint(olv_twamp, entry_removed, &site_, &fields);
    }
    void operator()(const trace_details::forced_error &) const
    {
        if (lttng_ust_tracepoint_enabled(olv_twamp, forced_error)) {
            const std::string text = without_line_ends(event_.text);
            lttng_ust_do_tracepoint(olv_twamp, forced_error, &site_, event_.first_word, text.c_str());
        }
    }

  private:
    template <typename Entry> static olv_lttng_entry fields_of(const Entry &entry)
    {
        return {entry.tree.c_str(), entry.pattern.word, entry.action.word, entry.key.value_or(0),
                entry.key_width};
    }

    const trace_event &event_;
    olv_lttng_site site_;
};

class lttng_trace_sink : public trace_sink {
  public:
    void event(const trace_event &event) override { std::visit(recorder{event}, event.details); }
};

} // namespace
} // namespace olv_sim::lttng

extern "C" olv_sim::trace_sink *olv_sim_lttng_make_sink()
{
    return new olv_sim::lttng::lttng_trace_sink;
}
