// What bind and unbind refuse once they have the lock.
#include "bind_steps.hpp"

namespace olv_test {
namespace {

constexpr const char *no_entry_point = "Invalid Entry point function found for destination module\n";
constexpr const char *pair_refused = "Following is only supported bind combination\n"
                                     " source module = TWAMP, destination module = IPV4\n"
                                     " source module = TWAMP, destination module = IPV6\n";

teller_of_row refuses_type(const direction &way, int type)
{
    return [&way, type](const bench &b) {
        const change made(b, way);
        return made.begins() + fails(bind_file, 0x30008, "Unsupported Binding Type %d\n", type) +
               made.gives_up();
    };
}

row_list refused_requests(const direction &way)
{
    const auto no_destination = [](bench &, request &asked) { asked.info.dst_module = nullptr; };
    return {
        asking(
            way, "path not direct: looked at before the type and the rest",
            [no_destination](bench &b, request &asked) {
                no_destination(b, asked);
                asked.info.bind_path = 2;
                asked.info.bind_type = 5;
                asked.info.custom_bind = 0;
            },
            refuses(way, 0x30008, path_refused)),
        asking(
            way, "path 0", [](bench &, request &asked) { asked.info.bind_path = 0; },
            refuses(way, 0x30008, path_refused)),
        asking(
            way, "type not 2: looked at before custom_bind and the rest",
            [no_destination](bench &b, request &asked) {
                no_destination(b, asked);
                asked.info.bind_type = 1;
                asked.info.custom_bind = 0;
            },
            refuses_type(way, 1)),
        asking(
            way, "the type is printed as a signed number",
            [](bench &, request &asked) { asked.info.bind_type = 0xFFFFFFFF; }, refuses_type(way, -1)),
        asking(way, "null destination module", no_destination,
               refuses(way, 0x30008, "Null Destination Module Pointer")),
        asking(
            way, "null source instance", [](bench &, request &asked) { asked.info.src_instance = nullptr; },
            [&way](const bench &b) {
                const change made(b, way);
                return made.asks(1) + fails(bind_file, 0x30008, "Null Source Instance Pointer") +
                       made.gives_up();
            }),
    };
}

row_list refused_destinations(const direction &way)
{
    return {
        looking_up(way, "lookup fails: neither its entry point nor the default one is used", 1, answer_and_fail,
                   default_allowed,
                   refuses(way, 0x3000D, "Failed to get Entry point function for destination module\n")),
        looking_up(
            way, "no lookup, default entry point not allowed", 1, nullptr,
            [](bench &, request &asked) { asked.destination.default_entry_point = 0x0123; },
            refuses(way, 0x3000D, no_entry_point)),
        looking_up(
            way, "lookup yields 0, default entry point not allowed", 1, answer<0>,
            [](bench &, request &asked) {
                asked.info.bind_subtype = 3;
                asked.destination.default_entry_point = 0x0123;
            },
            refuses(way, 0x3000D, no_entry_point)),
        looking_up(
            way, "no lookup, default entry point allowed but 0", 1, nullptr,
            [](bench &, request &asked) { asked.info.bind_subtype = 2; },
            refuses(way, 0x3000D, no_entry_point)),
        looking_up(way, "module 7 without an entry point: that is found first", 7, nullptr, unaltered,
                   refuses(way, 0x3000D, no_entry_point)),
        looking_up(way, "module 0 with an entry point", 0, answer<0x777>, unaltered,
                   refuses(way, way.pair_status, pair_refused)),
        looking_up(way, "module 12 with an entry point", 12, answer<0x777>, unaltered,
                   refuses(way, way.pair_status, pair_refused)),
        looking_up(
            way, "module 7: looked at before the source instance", 7, answer<0x777>,
            [](bench &, request &asked) { asked.info.src_instance = nullptr; },
            refuses(way, way.pair_status, pair_refused)),
    };
}

/** The key is refused with a status of the framework's. */
row refused_key(const direction &way, std::uint32_t status, std::uint32_t result)
{
    row each = asking(way, result == 0x30005 ? "key refused" : "key refused: the module's number in the status",
                      unaltered, [&way, result](const bench &b) {
                          const change made(b, way);
                          return made.asks(1) + made.lacks_key(result);
                      });
    each.faults = {{call::olv_ptn_extend, {.code = status}}};
    return each;
}

/** The key is bound, or not bound, already. */
row refused_by_the_tree(const direction &way)
{
    row each = asking(way, way.binds ? "bound before" : "never bound", unaltered, [&way](const bench &b) {
        const change made(b, way);
        return made.asks(1) + made.is_refused();
    });
    each.arrange = [&way](bench &b) {
        if (way.binds) {
            b.learn(bind_tree_id, 0xABCDEF, 1, 0x401);
        }
    };
    return each;
}

row_list rows_of(const direction &way)
{
    return refused_requests(way) + refused_destinations(way) +
           row_list{refused_key(way, 0x20005, 0x30005), refused_key(way, 0xA5FC1234, 0xA5F31234),
                    refused_by_the_tree(way)};
}

void no_custom_bind_and_destination(bench &b, request &asked)
{
    no_custom_bind(b, asked);
    asked.info.dst_module = nullptr;
}

const table bind_rows{binding.operation,
                      rows_of(binding) +
                          row_list{asking(binding, "no custom bind asked for: looked at before the destination",
                                          no_custom_bind_and_destination,
                                          refuses(binding, 0x30008, "Only custom bind supported\n"))}};

const table unbind_rows{unbinding.operation, rows_of(unbinding)};

TEST(CustomBind, RefusesAsEachRowSays)
{
    bind_rows.run();
}

TEST(CustomUnbind, RefusesAsEachRowSays)
{
    unbind_rows.run();
}

} // namespace
} // namespace olv_test
