// What differs between compilers and object formats: symbol visibility and the checking of printf formats.
#pragma once

#if defined(_WIN32)
#if defined(RYL_BUILDING)
#define RYL_API __declspec(dllexport)
#else
#define RYL_API __declspec(dllimport)
#endif
#else
#define RYL_API __attribute__((visibility("default")))
#endif

// RYL_PRINTF(format, first): argument number `format` is a printf format in the GNU dialect (%llu is unsigned long
// long), checked against the arguments from number `first`; 0 for a va_list.
#if defined(_WIN32) && !defined(__clang__)
#define RYL_PRINTF(format_, first_) __attribute__((format(gnu_printf, format_, first_)))
#else
#define RYL_PRINTF(format_, first_) __attribute__((format(printf, format_, first_)))
#endif
