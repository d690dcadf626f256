// What every stand-in for the profiling agent shares: the VM, the interface, the log of what is
// not as it should be, and the natives by which the Java program asks. A probe is one library that
// defines loaded(), runCheck() and answer().
#pragma once

#include <atomic>
#include <span>
#include <string>

#include "jvmpi/jvmpi.h"

namespace probe {

extern JavaVM* vm;
extern JVMPI_Interface* jvmpi;
extern std::atomic<int> failures;

// Writes one line to the file that the environment variable PRB_PROBE_LOG names if `right` is
// false; at most a hundred of them. Any thread.
__attribute__((format(printf, 2, 3))) void check(bool right, const char* format, ...);
// Writes the line as it is.
void note(const char* text);
// The last line of a probe's log: "done", or that it found faults.
void noteEnd();

// The calling thread's environment; null when it has none.
JNIEnv* self();
void* asArgument(jlong id);
std::string textOf(JNIEnv* jni, jobject text);
jlong longOf(JNIEnv* jni, jobject number);

struct NamedCheck {
    const char* name;
    void (*run)(JNIEnv* jni, jobject argument);
};
// Runs the check of that name; a name without a row is a failure.
void runNamed(std::span<const NamedCheck> checks, JNIEnv* jni, const std::string& name,
              jobject argument);

// ---- Defined by each probe -------------------------------------------------------------------

// JVM_OnLoad with the interface at hand; sets NotifyEvent.
void loaded(const char* options);
void runCheck(JNIEnv* jni, const std::string& name, jobject argument);
jlong answer(JNIEnv* jni, const std::string& name, jobject argument);

} // namespace probe
