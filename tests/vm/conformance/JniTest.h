// A native method of the scripted VM, with the environment of the main thread.
#ifndef PRB_TESTS_VM_CONFORMANCE_JNITEST_H
#define PRB_TESTS_VM_CONFORMANCE_JNITEST_H

#include "tests/vm/ScriptedVmTest.h"

namespace scripted {

class Jni : public ScriptedVmTest {
protected:
    Jni() : env(vm.env()) {}
    Texts violations() { return vm.recorder().takeViolations(); }
    JNIEnv* env;
};

} // namespace scripted

#endif
