// Printing addresses, environments and ids as the log's texts have them: "%X" on 32-bit x86,
// the same digits at full width on 64 bit. Use: PRBTrace::log("thread " PRB_PTR, prbPtr(env)).
#ifndef PRB_CORE_PRBFORMAT_H
#define PRB_CORE_PRBFORMAT_H

#include <cstdint>

#if defined(__LP64__)
#define PRB_PTR "%lX"
#define PRB_PTR0 "%0lX"
#define PRB_PTR08 "%08lX"
inline unsigned long prbPtr(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }
inline unsigned long prbPtr(std::uintptr_t p) { return p; }
#else
#define PRB_PTR "%X"
#define PRB_PTR0 "%0X"
#define PRB_PTR08 "%08X"
inline unsigned prbPtr(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }
inline unsigned prbPtr(std::uintptr_t p) { return static_cast<unsigned>(p); }
#endif

#endif
