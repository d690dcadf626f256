// What sample type ids stand for.
#include "tests/unit/data/DataTest.h"

#include "data/PRBSample.h"

using namespace datatest;

TEST(SampleTypes, HaveTheirDisplayNames) {
    const struct {
        int type;
        const char* name;
    } names[] = {{1, "Application Server"},
                 {2, "Container"},
                 {3, "Transaction"},
                 {4, "Object Pool"},
                 {5, "EJB"},
                 {6, "EJB Method"},
                 {7, "DB Connection"},
                 {8, "Web Application"},
                 {9, "Servlet"},
                 {10, "Thread"},
                 {11, "Method"},
                 {12, "Contention"},
                 {13, "Heap"},
                 {14, "Garbage Collection"},
                 {15, "Application Server Event"},
                 {16, "ProductEvent"},
                 {19, "Application Server SMF Interval Statistics"},
                 {20, "MOFW Container"},
                 {21, "MOFW Class"},
                 {22, "MOFW Method"},
                 {23, "J2EE Container"},
                 {24, "J2EE Java Bean"},
                 {25, "J2EE Method"},
                 {31, "Workload Summary"},
                 {32, "Workload Detail"},
                 {33, "HTTPSession Detail"},
                 {34, "DataSource Detail"},
                 {35, "MQAccess Detail"},
                 {36, "Workload Exceptionl"},
                 {37, "MethodSummary"},
                 {39, "Application Server Overview"},
                 {40, "Application Server Configuration"},
                 {41, "JVM Properties"},
                 {42, "Application Server Detail Version Info"},
                 {43, "JDBC Pool Configuration"},
                 {44, "JDBC Pool Counters"},
                 {45, "Web Application Configuration"},
                 {46, "Servlet Configuration"},
                 {47, "HTTP Session Manager Configuration"},
                 {48, "Web Container"},
                 {49, "Web Application"},
                 {50, "Web Servlet"},
                 {53, "Garbage Collection Allocation Failure Detail"},
                 {54, "Garbage Collection Cycle Detail"},
                 {55, "WAS Environment Variables"},
                 {56, "Class Heap Summary"},
                 {57, "Workload Heap Usage"},
                 {58, "Class Heap Detail"},
                 {61, "Heap Object Reference"},
                 {63, "Heap Allocation By Method"},
                 {64, "Inflight Workload Summary"},
                 {65, "Inflight Workload Detail"},
                 {66, "CTG Summary"},
                 {998, "End of samples"}};
    std::vector<std::string> expected(1010, "Unknown");
    for (const auto& row : names) expected[static_cast<std::size_t>(row.type)] = row.name;
    for (int type = 0; type < 1010; ++type)
        EXPECT_EQ(PRBSample::getSampleTypeInEnglish(static_cast<_SampleType>(type)),
                  expected[static_cast<std::size_t>(type)])
            << type;
    EXPECT_STREQ(PRBSample::getSampleTypeInEnglish(_SampleType{-1}), "Unknown");
}

TEST(SampleTypes, OnlyReceivableClassesAreBuilt) {
    const std::vector<int> known{1, 10, 11, 12, 13, 14, 17, 18, 37, 39, 998};
    std::vector<int> built;
    for (int type = -2; type < 1100; ++type) {
        const auto sample = PRBSample::buildFromType(static_cast<_SampleType>(type));
        if (sample == nullptr) continue;
        EXPECT_EQ(sample->getSampleType(), type);
        built.push_back(type);
    }
    EXPECT_EQ(built, known);
}

TEST(SampleTypes, EveryReceivableTypeComesBackFromItsBytes) {
    for (int type : {1, 10, 11, 12, 13, 14, 17, 18, 37, 39, 998}) {
        auto sample = PRBSample::buildFromType(static_cast<_SampleType>(type));
        std::vector<int> keys(static_cast<std::size_t>(sample->getNumNumericKeys()));
        sample->numericKeys(keys.data());
        for (int key : keys) sample->saveNumericData(key, key * 1000003LL % 4294967291);
        std::vector<int> texts(static_cast<std::size_t>(sample->getNumStringKeys()));
        sample->stringKeys(texts.data());
        for (int key : texts)
            sample->saveStringData(key, ("text of " + std::to_string(key)).c_str());
        const std::string record = streamed(*sample);
        EXPECT_EQ(decode(record).fields.size(), keys.size() + texts.size());
        PRBBuffer buffer(record.data(), record.size());
        const auto back = PRBTransportableData::buildFromBuffer(buffer);
        ASSERT_NE(back, nullptr) << type;
        EXPECT_EQ(hex(streamed(*back)), hex(record)) << type;
        EXPECT_TRUE(PRBBuffer::isWellFormed(record.data(), record.size()));
    }
}

TEST(SampleTypes, HaveASource) {
    for (int type : {10, 11, 12, 13, 14, 17, 18, 37})
        EXPECT_EQ(PRBSample::getDataSource(static_cast<_SampleType>(type)), 1) << type;
    for (int type : {31, 32, 33, 34, 35, 36, 56, 57, 58, 61, 63, 66})
        EXPECT_EQ(PRBSample::getDataSource(static_cast<_SampleType>(type)), 2) << type;
    for (int type : {1, 2, 9, 15, 19, 39, 40, 55, 67, 998, 5000, -1})
        EXPECT_EQ(PRBSample::getDataSource(static_cast<_SampleType>(type)), 0) << type;
}
