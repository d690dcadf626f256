#include "core/PRBThreadRegistry.h"

#include "core/PRBContext.h"
#include "core/PRBLookup.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBThreadSnapshot.h"

#include <atomic>
#include <pthread.h>
#include <unordered_map>

namespace {

// Under "_ThreadTable". Allocated once and never destroyed: threads of the host run on while
// static objects go.
struct State {
    PRBSlist ended;                                             // oldest first
    std::unordered_map<std::uintptr_t, PRBJavaThread*> handles; // by POSIX thread id
};
State& state() {
    static State* const only = new State;
    return *only;
}

std::uintptr_t self() { return static_cast<std::uintptr_t>(pthread_self()); }

// The oldest ended thread when there are too many, out of the registry; null when there are not.
PRBJavaThread* removeOldest(PRBMonitorHashTable& all) {
    PRBSlist& ended = state().ended;
    if (ended.entries() <= PRBThreadRegistry::kMostEnded) return nullptr;
    auto* oldest = static_cast<PRBJavaThread*>(ended.get());
    all.remove(oldest);
    return oldest;
}

} // namespace

PRBJavaThread* PRBThreadRegistry::enter(PRBJavaThread* thread) {
    PRBMonitorHashTable* active = PRBContext::getActiveThreadTable();
    PRBMonitorHashTable* all = PRBContext::getThreadTable();
    if (active == nullptr || all == nullptr) {
        delete thread;
        return nullptr;
    }
    PRBJavaThread* stored;
    {
        PRBTableLock activeLock(*active);
        PRBTableLock allLock(*all);
        stored = static_cast<PRBJavaThread*>(all->find(thread));
        if (stored != nullptr && stored->getThreadState() == kThreadEnded) {
            // The VM has given the ended thread's environment to this one.
            all->remove(stored);
            stored->retire();
            all->insert(stored);
            stored = nullptr;
        }
        if (stored == nullptr) {
            PRBJavaThread* gone = removeOldest(*all);
            stored = static_cast<PRBJavaThread*>(all->insert(thread));
            if (stored != nullptr) active->insert(stored);
            if (PRBThreadSnapshot::publish(*all, *active) && gone != nullptr)
                PRBThreadSnapshot::retire(gone);
        }
    }
    if (stored != thread) delete thread;
    PRBReclaimer::reclaimIfMany(); // each start replaces a snapshot
    return stored;
}

void PRBThreadRegistry::end(PRBJavaThread* thread) {
    PRBMonitorHashTable* active = PRBContext::getActiveThreadTable();
    PRBMonitorHashTable* all = PRBContext::getThreadTable();
    if (active == nullptr || all == nullptr) return;
    PRBTableLock activeLock(*active);
    PRBTableLock allLock(*all);
    active->remove(thread);
    if (thread->getThreadState() != kThreadEnded) state().ended.insert(thread);
    thread->setThreadState(kThreadEnded);
    std::erase_if(state().handles, [thread](const auto& noted) { return noted.second == thread; });
    allLock.release();
    activeLock.release();
}

void PRBThreadRegistry::purgeEnded() {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kMonitorGlobal,
                        "PRBMonitorGlobal::purgeEndedThreads");
    PRBMonitorHashTable* active = PRBContext::getActiveThreadTable();
    PRBMonitorHashTable* all = PRBContext::getThreadTable();
    if (active == nullptr || all == nullptr) return;
    PRBOrdered gone;
    bool published = true;
    {
        PRBTableLock activeLock(*active);
        PRBTableWalk walk(*all);
        while (PRBCollectable* item = walk())
            if (static_cast<PRBJavaThread*>(item)->getThreadState() == kThreadEnded)
                gone.insert(item);
        for (std::size_t i = 0; i < gone.entries(); ++i) all->remove(gone.at(i));
        state().ended.clear();
        if (gone.entries() != 0) published = PRBThreadSnapshot::publish(*all, *active);
    }
    for (std::size_t i = 0; published && i < gone.entries(); ++i)
        PRBThreadSnapshot::retire(static_cast<PRBJavaThread*>(gone.at(i)));
    PRBReclaimer::reclaim();
}

bool PRBThreadRegistry::hasOnlyEnded(JNIEnv* env) {
    PRBThreadSnapshot::Reader threads;
    bool ended = false;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        if (threads[i]->getEnvId() != env) continue;
        if (threads[i]->getThreadState() != kThreadEnded) return false;
        ended = true;
    }
    return ended;
}

jlong PRBThreadRegistry::noteHandle(JNIEnv* env) {
    PRBJavaThread* thread = PRBLookup::getThreadClass(env);
    PRBMonitorHashTable* all = PRBContext::getThreadTable();
    if (thread != nullptr && all != nullptr) {
        PRBTableLock lock(*all);
        state().handles[self()] = thread;
    }
    return static_cast<jlong>(static_cast<std::intptr_t>(self()));
}

PRBJavaThread* PRBThreadRegistry::resolveHandle(JNIEnv* env, jlong handle) {
    if (handle == 0) return nullptr;
    const auto word = static_cast<std::uintptr_t>(static_cast<std::intptr_t>(handle));
    if (word == self()) return PRBLookup::getThreadClass(env);
    // Followed only once it is known to be a thread's.
    auto* address = reinterpret_cast<PRBJavaThread*>(word);
    if (PRBThreadSnapshot::Reader().contains(address)) return address;
    PRBMonitorHashTable* all = PRBContext::getThreadTable();
    if (all == nullptr) return nullptr;
    PRBTableLock lock(*all);
    auto noted = state().handles.find(word);
    return noted == state().handles.end() ? nullptr : noted->second;
}
