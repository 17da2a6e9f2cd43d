// The module's private context.
#ifndef TWAMP_CTX_HPP
#define TWAMP_CTX_HPP

#include <cstddef>
#include <cstdint>

namespace twamp {

inline constexpr uint32_t ctx_magic = 0x18496124;

} // namespace twamp

/** One classifier tree of the module. */
struct twamp_tree_desc {
    uint32_t tree_id;
    uint32_t key_bits; ///< A listed entry whose pattern's third word equals this is printed once per walk.
    uint32_t reserved_8[3];
    uint32_t reserved_20[3];
    uint8_t responder_format; ///< 1: the dump has a header and prints entries as responders.
    uint32_t reserved_36;
    uint32_t table_group_mask; ///< Table groups that select the tree.
};

/** The private context: one zeroed block from init to shutdown. */
struct twamp_ctx {
    uint32_t magic; ///< twamp::ctx_magic; written last by init, cleared first by shutdown.
    uint32_t reserved_4;
    uint32_t lli_processing_tree_id;
    uint32_t to_ip_direct_imc_tree_id;
    uint32_t to_ipv6_indirect_imc_tree_id;
    twamp_tree_desc responder_tree;
    twamp_tree_desc bind_tree;
    uint32_t responder_ns;
    uint32_t reflector_session_ns;
    uint32_t reserved_116;
    uint32_t responder_create_count; ///< Creations that got an ID; never lowered.
};

static_assert(sizeof(twamp_tree_desc) == 44);
static_assert(offsetof(twamp_tree_desc, table_group_mask) == 40);
static_assert(sizeof(twamp_ctx) == 124);
static_assert(offsetof(twamp_ctx, responder_ns) == 108);

#endif
