// The VM's own walks over the heap with callbacks that do next to nothing: the floor of heap data
// and of the search for references. Loaded by -agentpath beside the bridge; HeapBench calls it.
#include <jvmti.h>

namespace {

jvmtiEnv* jvmti = nullptr;

jint JNICALL countObject(jlong, jlong size, jlong*, jint, void* sum) {
    *static_cast<jlong*>(sum) += size;
    return 0;
}

jint JNICALL countReference(jvmtiHeapReferenceKind, const jvmtiHeapReferenceInfo*, jlong, jlong,
                            jlong, jlong*, jlong*, jint, void* sum) {
    ++*static_cast<jlong*>(sum);
    return JVMTI_VISIT_OBJECTS;
}

// As a profiler has them.
void tagClasses(JNIEnv* jni) {
    jint count = 0;
    jclass* classes = nullptr;
    if (jvmti->GetLoadedClasses(&count, &classes) != JVMTI_ERROR_NONE) return;
    for (jint i = 0; i < count; i++) {
        jvmti->SetTag(classes[i], i + 1);
        jni->DeleteLocalRef(classes[i]);
    }
    jvmti->Deallocate(reinterpret_cast<unsigned char*>(classes));
}

} // namespace

extern "C" {

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char*, void*) {
    if (vm->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_1_2) != JNI_OK) return 1;
    jvmtiCapabilities wanted{};
    wanted.can_tag_objects = 1;
    return jvmti->AddCapabilities(&wanted) == JVMTI_ERROR_NONE ? 0 : 1;
}

JNIEXPORT jlong JNICALL Java_com_tessel_prb_workanalysis_HeapBench_walkObjects(JNIEnv* jni,
                                                                               jclass) {
    tagClasses(jni);
    jlong sum = 0;
    jvmtiHeapCallbacks callbacks{};
    callbacks.heap_iteration_callback = countObject;
    jvmti->IterateThroughHeap(0, nullptr, &callbacks, &sum);
    return sum;
}

JNIEXPORT jlong JNICALL Java_com_tessel_prb_workanalysis_HeapBench_walkReferences(JNIEnv* jni,
                                                                                  jclass) {
    tagClasses(jni);
    jlong sum = 0;
    jvmtiHeapCallbacks callbacks{};
    callbacks.heap_reference_callback = countReference;
    jvmti->FollowReferences(0, nullptr, nullptr, &callbacks, &sum);
    return sum;
}
}
