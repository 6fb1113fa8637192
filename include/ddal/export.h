/* Linkage of the public interface. Included by every public header; applications need nothing from it. */
#ifndef DDAL_EXPORT_H
#define DDAL_EXPORT_H

#if defined(__GNUC__)
/* Exported by the library. */
#define DDAL_API __attribute__((visibility("default")))
/* At a definition: a default that another definition replaces. */
#define DDAL_WEAK __attribute__((weak))
/* Arguments checked as those of printf(3). */
#define DDAL_PRINTF(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))
#else
#define DDAL_API
#define DDAL_WEAK
#define DDAL_PRINTF(format_index, first_argument)
#endif

/* Around all declarations: C linkage for C++. */
#ifdef __cplusplus
#define DDAL_BEGIN_DECLS                                                                                               \
    extern "C"                                                                                                         \
    {
#define DDAL_END_DECLS }
#else
#define DDAL_BEGIN_DECLS
#define DDAL_END_DECLS
#endif

#endif
