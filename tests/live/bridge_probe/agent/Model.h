// What the events told the probe: the classes and threads of the VM, and how often which event
// came.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "jvmpi/jvmpi.h"

namespace probe {

struct Class {
    std::string name;
    std::string source;
    std::set<std::string> methods; // name and signature
    std::set<std::string> statics;
    std::set<std::string> instances;
    std::map<std::string, jmethodID> ids;
    jint interfaces = 0;
};

struct Thread {
    std::string name;
    std::string group;
    std::string parent;
    jobjectID object = nullptr;
};

// Guards all below but the words of one thread. Nothing is ever destroyed: the sampler may run
// until the process is gone.
extern std::mutex mutex;
extern std::map<jobjectID, Class>& classesById;
extern std::map<JNIEnv*, Thread>& threadsByEnv;
extern std::set<std::string>& everStarted;
extern std::vector<jmethodID>& methodsOfUnloaded;
extern int startsOfWorkers;
extern int endsOfWorkers;
extern int unloadsOfKnown;
extern int initDone;
extern int shutDowns;
extern int doubleStarts;

// What requests on the calling thread brought: how many events, and the last of each kind.
extern thread_local int requestsSeen;
extern thread_local Thread requestedThread;
extern thread_local Class requestedClass;

// The NotifyEvent of the probe.
void notify(JVMPI_Event* event);

} // namespace probe
