/* A caller written in C. */
#ifndef TARNQUILL_TESTS_API_C_CALLER_H
#define TARNQUILL_TESTS_API_C_CALLER_H

#ifdef __cplusplus
extern "C" {
#endif

/* Loads, queries, aborts and saves; the condition that did not hold, or null. */
const char* call_from_c(void);

#ifdef __cplusplus
}
#endif

#endif
