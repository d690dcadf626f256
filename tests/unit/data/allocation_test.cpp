#include "tests/unit/data/AllSamples.h"
#include "tests/unit/data/DataTest.h"
#include "tests/vm/AllocationHook.h"

SCRIPTED_VM_ALLOCATION_HOOK

TEST(Allocations, StreamingTakesOneForTheBytes) {
    PRBMethodUsageSample sample;
    for (int key : {2, 4, 314, 304, 305, 306, 307, 310, 315, 321, 322})
        sample.saveNumericData(key, key);
    for (int key : {10, 11, 320}) sample.saveStringData(key, std::string(4000, 'x').c_str());
    PRBKeyValueSet set;
    set.defineKeyValuePair(2000, std::string(4000, 'y'));
    set.defineKeyValuePair(2001, 1);
    sample.save(set);
    PRBBuffer buffer;
    const scripted::AllocationCount count;
    sample.stream(buffer);
    EXPECT_EQ(count.now(), 1u);
    EXPECT_EQ(buffer.size(), 8 + 13 * 16 + 4 * 4012u + 16);
}

TEST(Allocations, SavingNumbersAndShortTextsTakesNone) {
    PRBCThreadSample sample;
    const scripted::AllocationCount count;
    sample.saveNumericData(304, 5);
    sample.sumNumericData(305, 5);
    sample.saveStringData(301, "main");
    EXPECT_EQ(sample.getNumericValueForStream(305), 5);
    EXPECT_EQ(count.now(), 0u);
}
