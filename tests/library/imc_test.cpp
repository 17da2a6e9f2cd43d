// The inter-module call lookup.
#include "request.hpp"

namespace olv_test {
namespace {

constexpr const char *file = "twamp_internal.c";

std::uint32_t imc = 0;

operation asks(const change_request &alter)
{
    return [alter](bench &b) {
        imc = 0xDEADBEEF;
        request asked(b);
        alter(b, asked);
        return olv_twamp_get_imc(b.handle, &asked.info, &imc);
    };
}

/** Neither entry nor exit line. */
story framed(const bench &b, const story &work)
{
    const frame of(b, file, "");
    return of.begin + work + of.end;
}

story answers(const bench &b)
{
    return framed(b, changes(writes_result()));
}

story refuses_cpu(const bench &b)
{
    return framed(
        b, says(severity::info, file, "Module location CPU not supported\n").said_by(voice::module_alone) +
               yields(0x3000C));
}

story refuses_destination(const bench &b)
{
    return framed(b, says(severity::info, file, "Invalid/unsupported bind path\n") + yields(0x3000C));
}

story lacks_argument(const bench &b)
{
    return framed(b, fails(file, 0x30008, "Null Bind Info / IMC Pointer"));
}

/** The same tree function for both families; the indirect one is not handed out. */
void imc_is_written_or_not(bench & /*unused*/, const outcome &expected)
{
    EXPECT_EQ(imc, expected.result_written ? ip_direct_imc_id : 0xDEADBEEF);
}

row asking(const char *label, const change_request &alter, const teller_of_row &tells)
{
    return {.label = label, .work = asks(alter), .tells = tells, .afterwards = imc_is_written_or_not};
}

void unaltered(bench & /*unused*/, request & /*unused*/) {}

const table rows{
    "olv_twamp_get_imc",
    row_list{
        asking("IPv4", unaltered, answers),
        asking(
            "IPv6", [](bench &b, request &asked) { asked.info.dst_module = b.framework.ipv6_module(); },
            answers),
        asking(
            "the rest of the request is not looked at",
            [](bench &, request &asked) {
                asked.info.bind_type = 9;
                asked.info.bind_path = 9;
                asked.info.custom_bind = 0;
                asked.info.src_module = nullptr;
                asked.info.src_instance = nullptr;
                asked.info.src_location = 0xFFFFFFFF;
                asked.info.dst_location = 0xFFFFFFFF;
            },
            answers),
        asking(
            "locations below the CPU's",
            [](bench &, request &asked) {
                asked.info.src_location = 0;
                asked.info.dst_location = 0;
            },
            answers),
        asking(
            "destination on the CPU", [](bench &, request &asked) { asked.info.dst_location = 1; },
            refuses_cpu),
        asking(
            "source on the CPU: looked at before the destination",
            [](bench &, request &asked) {
                asked.info.src_location = 1;
                asked.info.dst_module = nullptr;
            },
            refuses_cpu),
        asking(
            "destination neither IPv4 nor IPv6", [](bench &, request &asked) { asked.lead_to(7); },
            refuses_destination),
        asking(
            "destination neither IPv4 nor IPv6, whatever the path",
            [](bench &, request &asked) {
                asked.lead_to(0);
                asked.info.bind_path = 2;
            },
            refuses_destination),
        asking(
            "null destination module", [](bench &, request &asked) { asked.info.dst_module = nullptr; },
            [](const bench &b) { return framed(b, fails(file, 0x30008, "Null Destination Module Pointer")); }),
        {.label = "null request",
         .work = [](bench &b) { return olv_twamp_get_imc(b.handle, nullptr, &imc); },
         .tells = lacks_argument},
        {.label = "null result word",
         .work =
             [](bench &b) {
                 const request asked(b);
                 return olv_twamp_get_imc(b.handle, &asked.info, nullptr);
             },
         .tells = lacks_argument},
        {.label = "null result word of a refused destination is not looked at",
         .work =
             [](bench &b) {
                 request asked(b);
                 asked.lead_to(12);
                 return olv_twamp_get_imc(b.handle, &asked.info, nullptr);
             },
         .tells = refuses_destination}} +
        unusable_handles(
            {.work = asks(unaltered), .afterwards = imc_is_written_or_not},
            [](const bench &b) { return refuses_module(b, file, "TWAMP module failed to get IMC function\n"); },
            [](const bench &b) {
                return says_unknown(file, "Invalid TWAMP module handle 0x%08x\n", low_word(b.handle)) +
                       yields(1);
            })};

TEST(GetImc, GoesAsEachRowSays)
{
    rows.run();
}

} // namespace
} // namespace olv_test
