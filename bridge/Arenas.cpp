#include "bridge/Arenas.h"

#include "bridge/Context.h"
#include "bridge/HandleSlots.h"
#include "bridge/HeapFigures.h"
#include "bridge/Interface.h"

namespace bridge {
namespace {

constexpr jint kFirst = 1; // eden, or the only one
constexpr jint kOld = 3;

struct Row {
    const char* collector;
    const char* names[3]; // eden, survivors, old; or one
};
constexpr Row kRows[] = {
    {"Serial", {"Eden Space", "Survivor Space", "Tenured Gen"}},
    {"Parallel", {"PS Eden Space", "PS Survivor Space", "PS Old Gen"}},
    {"G1", {"G1 Eden Space", "G1 Survivor Space", "G1 Old Gen"}},
    {"Shenandoah", {"Shenandoah"}},
    {"Z", {"ZHeap"}},
};
constexpr Row kUnknown = {"", {"Java heap"}};

} // namespace

std::vector<const char*> Arenas::namesFor(const std::string& collector) {
    const Row* found = &kUnknown;
    for (const Row& row : kRows)
        if (collector == row.collector) found = &row;
    std::vector<const char*> names;
    for (const char* name : found->names)
        if (name) names.push_back(name);
    return names;
}

jint Arenas::enable() {
    if (JNIEnv* jni = isLive() ? currentEnv() : nullptr) announce(jni);
    return JVMPI_SUCCESS;
}

void Arenas::announce(JNIEnv* jni) {
    jint id = kFirst;
    for (const char* name : namesFor(heapFigures().collector())) {
        JVMPI_Event event{};
        event.event_type = JVMPI_EVENT_ARENA_NEW;
        event.env_id = jni;
        event.u.new_arena.arena_id = id++;
        event.u.new_arena.arena_name = name;
        events().deliver(event);
    }
}

jint Arenas::ofNew(jobject object, jlong size) {
    const HeapFigures& figures = heapFigures();
    if (const jlong region = figures.regionBytes(); region > 0)
        return size > region / 2 ? kOld : kFirst;
    const int space = object ? figures.spaceOf(HandleSlots::peek(object)) : -1;
    return space < 0 ? kFirst : kFirst + space;
}

} // namespace bridge
