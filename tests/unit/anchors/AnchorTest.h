// What the tests of anchors share: every anchor class as the receivers know it, and a way to set
// its fields without naming them.
#ifndef PRB_TESTS_UNIT_ANCHORS_ANCHORTEST_H
#define PRB_TESTS_UNIT_ANCHORS_ANCHORTEST_H

#include "anchors/PRBAnchors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace anchortest {

using Anchor = std::unique_ptr<PRBDescribedAnchor>;
template <class A> A& as(PRBResourceAnchor& anchor) { return static_cast<A&>(anchor); }

// One identifying field: gives the anchor the first or the second of two values, or the wild one.
struct Field {
    const char* name;
    bool ofS; // isSpecific asks for it
    bool ofH; // hashed by getHashKey
    bool number;
    std::function<void(PRBResourceAnchor&, int which)> set; // 0: wild
    std::function<std::string(PRBResourceAnchor&)> get;
};

struct Class {
    const char* name;
    int isA, sampleType;
    std::function<Anchor()> create, pattern;
    bool equalByClass; // isEqual and doesItMatch test the class: some class on the way has its own
    bool specificByName;       // isSpecific asks for the resource name
    std::vector<Field> fields; // beside sample type and resource name
};

std::vector<Class> allClasses();

inline std::string nameOf(const testing::TestParamInfo<Class>& info) { return info.param.name; }

} // namespace anchortest

#endif
