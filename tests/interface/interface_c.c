/* Every header on its own terms in C, and every operation with its type. */
#include "olv_twamp.h"

#include "hyx.h"
#include "olv.h"
#include "olv_layout.h"
#include "twamp_program.h"

#include "exported_operations.h"

#define OLV_OPERATION_ADDRESS(name, result, parameters) .name = name,
const struct exported_operations operations_of_c = {OLV_EXPORTED_OPERATIONS(OLV_OPERATION_ADDRESS)};
