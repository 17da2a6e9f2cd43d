#include "classifier_entry.hpp"

namespace twamp {

uint32_t classifier_entry::learn(const log_context &log, log_site site)
{
    if (const uint32_t rte = hyx_ptn_learn(tree_.rte_handle, tree_.tree_id, &pattern_, &action_)) {
        return rte;
    }
    print(log, severity::entry_learnt, site);
    trace_message(log, severity::entry_learnt, site, nullptr, tree_.name, pattern_.word[0], pattern_.word[1],
                  pattern_.word[2], action_.word[0], action_.word[1], action_.word[2]);
    return 0;
}

uint32_t classifier_entry::unlearn(const log_context &log, log_site site)
{
    if (const uint32_t rte =
            hyx_ptn_unlearn(tree_.rte_handle, tree_.tree_id, &pattern_, key_bits, &action_, 1)) {
        return rte;
    }
    print(log, severity::entry_removed, site);
    trace_message(log, severity::entry_removed, site, nullptr, tree_.name, pattern_.word[0], pattern_.word[1],
                  pattern_.word[2], key_bits, action_.word[0], action_.word[1], action_.word[2]);
    return 0;
}

void classifier_entry::print(const log_context &log, severity kind, log_site site) const
{
    if (!log.shows(kind)) {
        return;
    }
    if (line_ == console_line::with_site) {
        log.print_prefix(kind, site);
    } else {
        log.print_name(kind);
    }
    std::printf("%s: ", tree_.name);
    olv_ptn_print(pattern_);
    if (kind == severity::entry_removed) {
        std::printf("<xsize = %d>", static_cast<int>(key_bits));
    }
    olv_ptn_action_print(action_);
    std::putchar('\n');
}

} // namespace twamp
