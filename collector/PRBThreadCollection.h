// The threads of one pass of data return.
#ifndef PRB_COLLECTOR_PRBTHREADCOLLECTION_H
#define PRB_COLLECTOR_PRBTHREADCOLLECTION_H

#include "core/PRBMemoryManager.h"
#include "jvmpi/jvmpi.h"
#include "runtime/PRBThreadSnapshot.h"

#include <vector>

class PRBJavaThread;

// The threads of the model without the agent's own, in the order of the thread table. Does not
// own them; they stay valid as long as it lives. Built without taking a lock.
class PRBThreadCollection : public PRBMemoryManager {
public:
    PRBThreadCollection();

    // The first thread of that id; null when there is none. Ids are compared in 32 bits, the
    // width in which the Java side knows them.
    PRBJavaThread* findThread(jobjectID id) const;

    auto begin() const { return threads_.begin(); }
    auto end() const { return threads_.end(); }
    std::size_t entries() const { return threads_.size(); }

private:
    PRBThreadSnapshot::Reader snapshot_; // first: it keeps the threads valid
    std::vector<PRBJavaThread*> threads_;
};

#endif
