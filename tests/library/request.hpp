/**
 * @file request.hpp
 * Requests of bind, unbind and the inter-module call lookup, and destinations with entry point lookups of the
 * tests' own.
 */
#ifndef OLV_TWAMP_TESTS_REQUEST_HPP
#define OLV_TWAMP_TESTS_REQUEST_HPP

#include <optional>

#include "rows.hpp"

namespace olv_test {

/** A request that is accepted: key 0xABCDEF, IPv4 module, direct path. */
struct request {
    explicit request(bench &b)
    {
        info.bind_type = 2;
        info.bind_subtype = 1;
        info.bind_path = 1;
        info.src_module = b.handle;
        info.src_instance = &key;
        info.src_location = 2;
        info.dst_module = b.framework.ipv4_module();
        info.dst_location = 2;
        info.custom_bind = 1;
        destination.magic = 0x53248791;
        destination.log_name = "destination";
    }
    request(const request &) = delete;
    request &operator=(const request &) = delete;

    /** Ask for the request's own destination, of this module ID. */
    void lead_to(std::uint32_t module_id)
    {
        destination.module_id = module_id;
        info.dst_module = &destination;
    }

    std::uint32_t key = 0xABCDEF;
    olv_module_handle destination{};
    olv_bind_info info{};
};

using change_request = std::function<void(bench &, request &)>;

/** Puts another entry point lookup into a module's CPU services while it lives. */
class replaced_lookup {
  public:
    replaced_lookup(std::uint32_t module_id, olv_entry_point_lookup lookup)
        : place_(moduleMgrCpuServiceFn[module_id].entry_point_lookup), before_(place_)
    {
        place_ = lookup;
    }
    ~replaced_lookup() { place_ = before_; }
    replaced_lookup(const replaced_lookup &) = delete;
    replaced_lookup &operator=(const replaced_lookup &) = delete;

  private:
    olv_entry_point_lookup &place_;
    olv_entry_point_lookup before_;
};

} // namespace olv_test

#endif
