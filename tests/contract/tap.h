/* Checks that print one line each, numbered, in the Test Anything Protocol. */
#ifndef ZR_TESTS_CONTRACT_TAP_H
#define ZR_TESTS_CONTRACT_TAP_H

#include <stdint.h>

/* Each returns non-zero when the check holds. The description is formatted like printf's. */
int tap_check(const char* file, int line, int holds, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int tap_equal(const char* file, int line, int64_t found, int64_t wanted, const char* format, ...)
    __attribute__((format(printf, 5, 6)));
int tap_same_text(const char* file, int line, const char* found, const char* wanted,
                  const char* format, ...) __attribute__((format(printf, 5, 6)));

#define CHECK(holds, ...) tap_check(__FILE__, __LINE__, (holds), __VA_ARGS__)
#define CHECK_EQUAL(found, wanted, ...)                                                            \
    tap_equal(__FILE__, __LINE__, (int64_t)(found), (int64_t)(wanted), __VA_ARGS__)
#define CHECK_TEXT(found, wanted, ...)                                                             \
    tap_same_text(__FILE__, __LINE__, (found), (wanted), __VA_ARGS__)

/* Ends the program: nothing that follows could be meaningful. */
void tap_bail_out(const char* format, ...) __attribute__((format(printf, 1, 2), noreturn));

/* Prints the plan; 0 when every check held and there was at least one. */
int tap_finish(void);

#endif
