// An agent on the scripted VM that writes down every event it gets.
#ifndef PRB_TESTS_VM_CONFORMANCE_JVMPITEST_H
#define PRB_TESTS_VM_CONFORMANCE_JVMPITEST_H

#include "tests/vm/ScriptedVmTest.h"

#include <functional>
#include <string>
#include <vector>

namespace scripted {

// One event as the agent saw it. Texts are copied while they are valid.
struct Seen {
    jint type = 0;
    JNIEnv* env = nullptr;
    ScriptedThread* thread = nullptr;
    std::string text;
    JVMPI_Event event{};
};

class Jvmpi : public ScriptedVmTest {
protected:
    Jvmpi() : table(*vm.jvmpi()) {
        seen.clear();
        react = nullptr;
        table.NotifyEvent = notified;
    }
    ~Jvmpi() override { react = nullptr; }
    std::vector<jint> types() const {
        std::vector<jint> all;
        for (const Seen& one : seen) all.push_back(one.type);
        return all;
    }

    static inline std::vector<Seen> seen;
    static inline std::function<void(JVMPI_Event*)> react; // what the agent does in its callback
    JVMPI_Interface& table;

private:
    static void notified(JVMPI_Event* event) {
        Seen one;
        one.type = event->event_type;
        one.env = event->env_id;
        one.thread = &ScriptedVm::current().currentThread();
        one.event = *event;
        switch (event->event_type & ~JVMPI_REQUESTED_EVENT) {
        case JVMPI_EVENT_THREAD_START:
            one.text = event->u.thread_start.thread_name;
            break;
        case JVMPI_EVENT_CLASS_LOAD:
            one.text = event->u.class_load.class_name;
            break;
        default:
            break;
        }
        seen.push_back(one);
        if (react) react(event);
    }
};

} // namespace scripted

#endif
