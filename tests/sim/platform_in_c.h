// What platform_in_c.c offers to the tests.
#ifndef OLV_TWAMP_TESTS_PLATFORM_IN_C_H
#define OLV_TWAMP_TESTS_PLATFORM_IN_C_H

#ifdef __cplusplus
extern "C" {
#endif

/** Use a platform as a C program does. @return The first condition that did not hold, NULL when all did. */
const char *use_platform_in_c(void);

#ifdef __cplusplus
}
#endif

#endif
