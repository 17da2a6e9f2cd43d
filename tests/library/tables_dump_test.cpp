// Dumps of the classifier trees: the operation, and the walk that it makes.
#include "interposed.hpp"
#include "rows.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp.c";
constexpr const char *walk_file = "twamp_internal.c";

operation dumps(std::uint32_t group)
{
    return [group](bench &b) { return olv_twamp_tables_dump(b.handle, group); };
}

operation walks(std::uint32_t group)
{
    return [group](bench &b) { return olv_twamp_dump_tables(b.handle, group); };
}

/** Two responders, whose IDs are 1 and 2, and a bind of key 0xABCDEF to entry point 0x401. */
void fill(bench &b)
{
    b.create_responder();
    b.create_responder();
    b.learn(bind_tree_id, 0xABCDEF, 1, 0x401);
}

story header()
{
    return prints("\nolv_twamp.twamp_responder_lookup, RESPONDER-ID, DEFINED/NOT_DEFINED \n");
}

/** The walk, which has an exit line only when it fails; the rest of the story is then @p failed. */
class walk {
  public:
    walk(const bench &b, story failed) : b_(b), failed_(std::move(failed)) {}

    [[nodiscard]] static story begins() { return enters(walk_file, "olv_twamp_dump_tables"); }

    [[nodiscard]] story lists_empty(std::uint32_t index) const
    {
        return (index == 0 ? header() : story()) + lists(index);
    }
    [[nodiscard]] story lists_responders(const story &then) const
    {
        return header() + lists(0) + shows(1, shows(2, then));
    }
    [[nodiscard]] story lists_bind() const
    {
        return lists(1) + prints("olv_twamp.twamp_bind_to_next_module, <key = 0xabcdef/24>"
                                 "<action = 0x00000001 0x00000401 0x00000000>\n");
    }

  private:
    [[nodiscard]] story lists(std::uint32_t index) const
    {
        return calls(call::hyx_ptn_list_ptns, "rte=%u, tree=0x%x", b_.module->rte_handle,
                     index == 0 ? responder_tree_id : bind_tree_id)
            .or_else(fails(walk_file, 0x7E, "RTE Error %s: Failed to dump TWAMP tree for idx %d\n",
                           rte_text(injected), static_cast<int>(index)) +
                     fails(walk_file, 0x7E, "Failed to dump TWAMP module's trees") +
                     exits(walk_file, "olv_twamp_dump_tables") + failed_);
    }
    /** A key that cannot be read has a mark in place of the rest of its line. */
    [[nodiscard]] static story shows(std::uint32_t id, const story &then)
    {
        return prints("olv_twamp.twamp_responder_lookup, ") +
               calls(call::olv_ptn_parse, "key=0x%06x/24, fields=1", id)
                   .or_else(prints("!!Parse Error!!\n") + then) +
               prints("0x%X, DEFINED\n", id) + then;
    }

    const bench &b_;
    story failed_;
};

using told_by_walk = std::function<story(const walk &, const story &rest)>;

teller_of_row dump(const told_by_walk &lists)
{
    return [lists](const bench &b) {
        const frame of(b, file, "olv_twamp_tables_dump");
        const walk made(b, fails(file, 0x3007E, "Failed to dump TWAMP Tables") + of.end);
        return of.begin + walk::begins() + lists(made, of.end);
    };
}

teller_of_row walk_alone(const told_by_walk &lists)
{
    return [lists](const bench &b) { return walk::begins() + lists(walk(b, {}), {}); };
}

const told_by_walk both = [](const walk &made, const story &rest) {
    return made.lists_responders(made.lists_bind() + rest);
};
const told_by_walk responders = [](const walk &made, const story &rest) { return made.lists_responders(rest); };
const told_by_walk binds = [](const walk &made, const story &rest) { return made.lists_bind() + rest; };
const told_by_walk both_empty = [](const walk &made, const story &rest) {
    return made.lists_empty(0) + made.lists_empty(1) + rest;
};
const told_by_walk nothing = [](const walk &, const story &rest) { return rest; };

row invalid_group(std::uint32_t group)
{
    return {.label = "group " + std::to_string(group), .work = dumps(group), .tells = [group](const bench &b) {
                const frame of(b, file, "olv_twamp_tables_dump");
                return of.begin + says_unknown(file, "Invalid table group %d\n", static_cast<int>(group)) +
                       yields(0x30008) + of.end;
            }};
}

const table rows{
    "olv_twamp_tables_dump",
    row_list{{.label = "both trees, empty", .work = dumps(3), .tells = dump(both_empty)},
             {.label = "both trees", .arrange = fill, .work = dumps(3), .tells = dump(both)},
             {.label = "responder tree", .arrange = fill, .work = dumps(1), .tells = dump(responders)},
             {.label = "bind tree", .arrange = fill, .work = dumps(2), .tells = dump(binds)},
             {.label = "entry without a key",
              .arrange = [](bench &b) { b.learn(responder_tree_id, std::nullopt, 1, 0); },
              .work = dumps(1),
              .tells = dump([](const walk &made, const story &rest) {
                  return made.lists_empty(0) + prints("olv_twamp.twamp_responder_lookup, *, NOT_DEFINED\n") +
                         rest;
              })},
             invalid_group(0),
             invalid_group(4),
             invalid_group(7),
             invalid_group(0xFFFFFFFF)} +
        unusable_handles(
            {.work = dumps(0)},
            [](const bench &b) { return refuses_module(b, file, "failed to dump TWAMP tables"); },
            [](const bench &b) {
                return says_unknown(file, "Invalid module handle 0x%08x\n", low_word(b.handle)) +
                       yields(0x30001);
            })};

TEST(TablesDump, GoesAsEachRowSays)
{
    rows.run();
}

const table walk_rows{
    "olv_twamp_dump_tables",
    row_list{
        {.label = "both trees", .arrange = fill, .work = walks(3), .tells = walk_alone(both)},
        {.label = "groups of no tree", .arrange = fill, .work = walks(~3U), .tells = walk_alone(nothing)}} +
        unusable_handles({.work = walks(3)}, [](const bench &b) {
            return says_unknown(walk_file, "Invalid TWAMP module handle 0x%08x\n", low_word(b.handle)) +
                   yields(1);
        })};

TEST(DumpTables, GoesAsEachRowSays)
{
    walk_rows.run();
}

} // namespace
} // namespace olv_test
