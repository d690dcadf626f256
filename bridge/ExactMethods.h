// Exact timing: method entries and exits of the methods that the option exact= names. The VM tells
// every call of every method (which makes it interpret the program); those that are named are
// counted, timed and delivered as METHOD_ENTRY and METHOD_EXIT, whether or not the profiler has
// enabled these events. With METHOD_ENTRY or METHOD_EXIT enabled, all methods' events are
// delivered.
//
// An exit is delivered only for an entry that was, so that the two balance: also in recursion, and
// when methods end by exceptions. Calls on virtual threads are not told: their carrier may change
// between entry and exit.
#ifndef PRB_BRIDGE_EXACTMETHODS_H
#define PRB_BRIDGE_EXACTMETHODS_H

#include <cstdint>
#include <string>
#include <vector>

#include <jvmti.h>

#include "bridge/ClassRecord.h"
#include "bridge/Options.h"

namespace bridge {

class ExactMethods {
public:
    // Takes the masks; an empty list times nothing. REQUIRES: before the VM is up, once.
    static void choose(const std::vector<Options::Exact>& masks);
    static bool chosen();
    // Whether the present collection times methods; the VM's events are switched by begin(), which
    // is to be called when it runs, and by end().
    static bool isOn();
    static void announce();
    static void begin();
    static void end();
    // Takes in a class's methods that the masks name. Any thread.
    static void add(const ClassDescription& type);
    // Finds the field that tells virtual threads. False: this VM hides it.
    static bool start(JNIEnv* jni);

    // The VM's callbacks.
    static void entered(JNIEnv* jni, jthread thread, jmethodID method) noexcept;
    static void left(JNIEnv* jni, jthread thread, jmethodID method) noexcept;

    // Of each method called so far: class, method and signature, calls and elapsed nanoseconds
    // (of a recursive call the outermost alone), separated by tabulators.
    static std::vector<std::string> lines();
    static bool matches(const std::string& mask, const char* name);
};

} // namespace bridge

#endif
