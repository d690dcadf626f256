// Counts the allocations of a test program, so that "no allocation here" can be tested.
//
// One source of the test program says
//
//     SCRIPTED_VM_ALLOCATION_HOOK
//
// at file scope. From then on hostState().allocations counts what the calling thread allocates
// or releases outside the scripted VM, and doing either while it holds threads suspended is a
// violation. AllocationCount reads the difference over a scope.
//
// Without a sanitizer the C library's functions are replaced; a sanitizer brings its own
// allocator and the hooks into it.
#ifndef PRB_TESTS_VM_ALLOCATIONHOOK_H
#define PRB_TESTS_VM_ALLOCATIONHOOK_H

#include "tests/vm/ScriptedThreads.h"

#include <cerrno>
#include <cstddef>

namespace scripted {

class AllocationCount {
public:
    AllocationCount() : start_(hostState().allocations) {}
    unsigned long long now() const { return hostState().allocations - start_; }

private:
    unsigned long long start_;
};

} // namespace scripted

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*,
                                                                  std::size_t),
                                                         void (*)(const volatile void*));
#define SCRIPTED_VM_ALLOCATION_HOOK                                                                \
    namespace {                                                                                    \
    [[maybe_unused]] const int allocationHook = __sanitizer_install_malloc_and_free_hooks(         \
        [](const volatile void*, std::size_t) { scripted::noteAllocation(); },                     \
        [](const volatile void*) { scripted::noteAllocation(); });                                 \
    }
#else
#define SCRIPTED_VM_ALLOCATION_HOOK                                                                \
    extern "C" {                                                                                   \
    void* __libc_malloc(std::size_t);                                                              \
    void* __libc_calloc(std::size_t, std::size_t);                                                 \
    void* __libc_realloc(void*, std::size_t);                                                      \
    void* __libc_memalign(std::size_t, std::size_t);                                               \
    void __libc_free(void*);                                                                       \
    __attribute__((visibility("default"))) void* malloc(std::size_t size) {                        \
        scripted::noteAllocation();                                                                \
        return __libc_malloc(size);                                                                \
    }                                                                                              \
    __attribute__((visibility("default"))) void* calloc(std::size_t n, std::size_t size) {         \
        scripted::noteAllocation();                                                                \
        return __libc_calloc(n, size);                                                             \
    }                                                                                              \
    __attribute__((visibility("default"))) void* realloc(void* p, std::size_t size) {              \
        scripted::noteAllocation();                                                                \
        return __libc_realloc(p, size);                                                            \
    }                                                                                              \
    __attribute__((visibility("default"))) void* memalign(std::size_t a, std::size_t size) {       \
        scripted::noteAllocation();                                                                \
        return __libc_memalign(a, size);                                                           \
    }                                                                                              \
    __attribute__((visibility("default"))) void* aligned_alloc(std::size_t a, std::size_t size) {  \
        scripted::noteAllocation();                                                                \
        return __libc_memalign(a, size);                                                           \
    }                                                                                              \
    __attribute__((visibility("default"))) int posix_memalign(void** out, std::size_t a,           \
                                                              std::size_t size) {                  \
        scripted::noteAllocation();                                                                \
        *out = __libc_memalign(a, size);                                                           \
        return *out != nullptr ? 0 : ENOMEM;                                                       \
    }                                                                                              \
    __attribute__((visibility("default"))) void free(void* p) {                                    \
        if (p != nullptr) scripted::noteAllocation();                                              \
        __libc_free(p);                                                                            \
    }                                                                                              \
    }
#endif

#endif
