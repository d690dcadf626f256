// Notices which of the objects that have ids the VM has freed: unloaded classes (CLASS_UNLOAD),
// threads that are gone, and whatever else got an id for life.
//
// It looks at the weak references, on a thread of its own. The VM would tell by ObjectFree, but a
// VM in which that event is on can stand still at its end, for good: the thread that ends the VM
// waits inside the VM until the event's thread has told everything, while that thread, back from
// the callback, waits for a collection, which waits for the thread that ends the VM.
#ifndef PRB_BRIDGE_REAPER_H
#define PRB_BRIDGE_REAPER_H

#include <cstdint>

#include <jni.h>

namespace bridge {

class Reaper {
public:
    // Starts the thread. REQUIRES: the live phase, and SystemThreads takes requests.
    static void start();

    // One look at everything; tells what is found and forgets it. On any Java thread that is in
    // native code and holds no monitor; several may look at once.
    static void look(JNIEnv* jni);

    // How long the thread pauses after a look that cost so much CPU time, both in ns: half a
    // second, and up to five where the looks would take over a thousandth of a processor.
    static std::int64_t pauseAfter(std::int64_t cpuNs);
};

} // namespace bridge

#endif
