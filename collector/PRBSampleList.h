// The samples of one pass, each in its serialised form.
#ifndef PRB_COLLECTOR_PRBSAMPLELIST_H
#define PRB_COLLECTOR_PRBSAMPLELIST_H

#include "core/PRBCollections.h"

class PRBSample;

// A list of PRBBuffer that is emptied, and its buffers destroyed, however its scope is left.
class PRBSampleList : public PRBSlist {
public:
    PRBSampleList() = default;
    ~PRBSampleList() override { clearAndDestroy(); }

    // Streams the sample into a new buffer at the end of a list; nothing when there is no
    // memory for it. The sample itself is not kept.
    static void save(const PRBSample& sample, PRBSlist& list);
};

#endif
