// All threads of the model as of the last start or purge, readable without a lock.
#ifndef PRB_RUNTIME_PRBTHREADSNAPSHOT_H
#define PRB_RUNTIME_PRBTHREADSNAPSHOT_H

#include "jvmpi/jvmpi.h"
#include "runtime/PRBReclaimer.h"

#include <cstddef>

class PRBJavaThread;
class PRBMonitorHashTable;

// Immutable once published. Readers: the data return, validation of handles, object-free events
// (inside a collection pause too). Writers: thread start, purge. That a thread has ended its state
// tells: ten thousand ended ones, which nobody polls, must not cost each thread that comes and
// goes.
class PRBThreadSnapshot {
public:
    // A view that stays valid, with its threads, as long as it lives.
    class Reader {
    public:
        Reader();
        std::size_t size() const;
        PRBJavaThread* operator[](std::size_t i) const; // in the registry's order
        // The thread that has this environment and has not ended; null when there is none.
        PRBJavaThread* findLive(JNIEnv* env) const;
        // Is this the address of a thread of the model (ended ones included until purged)?
        bool contains(const PRBJavaThread* thread) const;

    private:
        PRBReclaimer::Reader hold_; // first: it must cover the load of the view
        const PRBThreadSnapshot* view_;
    };

    // Publishes what the registries of all threads and of those that have not ended hold now.
    // False without memory: then the threads of the last one stay visible. REQUIRES: the caller
    // holds both registries.
    static bool publish(PRBMonitorHashTable& threads, PRBMonitorHashTable& active);
    // After the thread has left the registry and that was published: deletes it when no reader
    // can see it any more.
    static void retire(PRBJavaThread* thread);
    static bool isLive(const PRBJavaThread* thread);

private:
    PRBThreadSnapshot() = default;
    static PRBThreadSnapshot* make(std::size_t threads, std::size_t active);
    static void destroy(void* snapshot);
    std::size_t size_ = 0;  // threads
    std::size_t mask_ = 0;  // slots of the environment index, less one
    std::size_t bytes_ = 0; // of the whole block
    PRBJavaThread** threads_ = nullptr;
    PRBJavaThread** byEnv_ = nullptr; // the active ones, open addressing on the environment
};

#endif
