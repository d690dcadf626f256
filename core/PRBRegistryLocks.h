// Several registries held for a scope, in the one order in which they may be taken.
#ifndef PRB_CORE_PRBREGISTRYLOCKS_H
#define PRB_CORE_PRBREGISTRYLOCKS_H

#include "core/PRBContext.h"
#include "core/PRBMonitorHashTable.h"

// Class, method, arena, object: taken in this order, released in reverse. Registries that do
// not exist yet are passed over.
class PRBRegistryLocks {
public:
    enum Which : unsigned { kClass = 1, kMethod = 2, kArena = 4, kObject = 8, kAll = 15 };

    explicit PRBRegistryLocks(unsigned which) : which_(which) { lockAll(which_); }
    ~PRBRegistryLocks() { release(); }
    PRBRegistryLocks(const PRBRegistryLocks&) = delete;
    PRBRegistryLocks& operator=(const PRBRegistryLocks&) = delete;
    void release() {
        releaseAll(which_);
        which_ = 0;
    }

    // For locks that outlive a scope: a collection holds all from its start to its finish.
    static void lockAll(unsigned which) {
        for (unsigned i = 0; i < 4; ++i)
            if (PRBMonitorHashTable* table = (which >> i & 1) != 0 ? at(i) : nullptr) table->lock();
    }
    static void releaseAll(unsigned which) {
        for (unsigned i = 4; i-- > 0;)
            if (PRBMonitorHashTable* table = (which >> i & 1) != 0 ? at(i) : nullptr)
                table->release();
    }

private:
    static PRBMonitorHashTable* at(unsigned i) {
        switch (i) {
        case 0:
            return PRBContext::getClassTable();
        case 1:
            return PRBContext::getMethodTable();
        case 2:
            return PRBContext::getArenaTable();
        default:
            return PRBContext::getObjectTable();
        }
    }
    unsigned which_;
};

#endif
