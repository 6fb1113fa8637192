/*
 * Sections of a program whose instructions are counted. One hint instruction begins a section and another ends it. The
 * processor ignores both.
 */
#pragma once

enum { kSectionBegin = 32, kSectionEnd = 64, kMaxSections = 32 };

#if defined(__arm__)

#if defined(__thumb__)
#define MARKER(hint) ".inst.w 0xf3af8000 | (" hint ")"
#else
#define MARKER(hint) ".inst 0xe320f000 | (" hint ")"
#endif

/* number: 0 to kMaxSections - 1 */
template <int number>
inline void begin_section()
{
    asm volatile(MARKER("%c0") : : "i"(kSectionBegin + number) : "memory");
}

template <int number>
inline void end_section()
{
    asm volatile(MARKER("%c0") : : "i"(kSectionEnd + number) : "memory");
}

#endif
