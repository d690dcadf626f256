#include "collector/PRBSampleList.h"

#include "data/PRBBuffer.h"
#include "data/PRBSample.h"

#include <memory>

void PRBSampleList::save(const PRBSample& sample, PRBSlist& list) {
    std::unique_ptr<PRBBuffer> buffer(new PRBBuffer);
    if (buffer == nullptr) return;
    sample.stream(*buffer);
    list.insert(buffer.get());
    buffer.release();
}
