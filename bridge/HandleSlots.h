// What a JNI reference refers to, read from the VM's memory without a call of the VM: inside a
// collection none is possible. A reference is the address of a slot with its kind in the two
// lowest bits (slots of 32-bit VMs lie 4 bytes apart, so a wider mask would hit a neighbour);
// the slot holds the object's address, or null for a weak reference whose object has died.
//
// That is so for collectors that stop the world while they move and clear: Serial, Parallel, G1.
// The others clear weak references beside the program, and their addresses carry marks.
#ifndef PRB_BRIDGE_HANDLESLOTS_H
#define PRB_BRIDGE_HANDLESLOTS_H

#include <cstdint>

#include <jni.h>

namespace bridge {

class HandleSlots {
public:
    // The object's address at this moment. REQUIRES: the reference is not null and not deleted.
    // Stable inside a collection, and good for nothing but a comparison outside of one. What is
    // read after it is read later.
    static const void* peek(jobject reference) {
        const char* slot = reinterpret_cast<const char*>(reference);
        slot -= reinterpret_cast<std::uintptr_t>(slot) & 3;
        return __atomic_load_n(reinterpret_cast<void* const*>(slot), __ATOMIC_ACQUIRE);
    }

    // Whether the VM keeps references that way: local, global and weak references of one living
    // object are read and must agree, those of another one must differ.
    static bool verify(JNIEnv* jni);
};

} // namespace bridge

#endif
