#include "classifier_entry.hpp"

namespace twamp {

void classifier_entry::print(log_site site) const
{
    // The line of a responder's entry tells file and line, the one of a bind's does not.
    if (tree_ == module_tree::responder) {
        call_.print_prefix(site);
    } else {
        call_.print_name(site.kind());
    }
    std::printf("%s: ", tree_name());
    olv_ptn_print(pattern_);
    if (site.kind() == severity::entry_removed) {
        std::printf("<xsize = %d>", static_cast<int>(TWAMP_KEY_BITS));
    }
    olv_ptn_action_print(action_);
    std::putchar('\n');
}

} // namespace twamp
