#include "collector/PRBSampleList.h"

#include "data/PRBSample.h"

#include <new>

PRBSampleList::~PRBSampleList() {
    const bool isSmall = array_.capacity() > kLittle && array_.size() < array_.capacity() / 4;
    kept_.smallPasses_ = isSmall ? kept_.smallPasses_ + 1 : 0;
    if (kept_.smallPasses_ >= kSmallPasses) {
        array_.clear();
        kept_.smallPasses_ = 0;
    }
    array_.rewind();
    // The larger of two stays when a pass began inside this one.
    if (array_.capacity() > kept_.array_.capacity()) array_.swap(kept_.array_);
}

void PRBSampleList::save(const PRBSample& sample) {
    if (!array_.add(sample)) throw std::bad_alloc();
}
