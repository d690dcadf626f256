// The keyword tables of the server's classes, row by row.
#include "tests/unit/data/AllSamples.h"

#include <gtest/gtest.h>

#include <vector>

using namespace datatest;

namespace {

struct KeywordRow {
    const char* keyword;
    int key;
};

void expectTable(const PRBSample& sample, const std::vector<KeywordRow>& expected) {
    const PRBKeyword* row = sample.getZAMKeywordTable();
    ASSERT_NE(row, nullptr);
    for (const KeywordRow& e : expected) {
        ASSERT_NE(row->keyword, nullptr);
        EXPECT_STREQ(row->keyword, e.keyword);
        EXPECT_EQ(row->key, e.key) << e.keyword;
        ++row;
    }
    EXPECT_EQ(row->keyword, nullptr);
}

} // namespace

// clang-format off
TEST(KeywordTables, Container) {
    expectTable(PRBContainerSample(), {
        {"cont_name", 6}, {"cont_il", 59}, {"beanMethodRT", 120}, {"avgMethodRt", 120},
        {"beanMethodCalls", 121}, {"totalMethodCalls", 121}, {"statelessBeansLive", 150},
        {"statelessBeanMethodLoad", 151}, {"statelessBeanInstantiates", 152},
        {"statelessBeanDestroys", 153}, {"entityBeansLive", 154}, {"entityBeanMethodLoad", 156},
        {"entityBeansActive", 155}, {"entityBeanInstantiates", 157}, {"instantiates", 157},
        {"entityBeanDestroys", 158}, {"destroys", 158}, {"entityBeanCreates", 159},
        {"creates", 159}, {"entityBeanRemoves", 160}, {"removes", 160},
        {"entityBeanActivations", 161}, {"activates", 161}, {"entityBeanPassivations", 162},
        {"passivates", 162}, {"entityBeanLoads", 163}, {"loads", 163}, {"entityBeanStores", 164},
        {"stores", 164}, {"statefulBeansLive", 165}, {"statefulBeanMethodLoad", 167},
        {"statefulBeansActive", 166}, {"statefulBeanInstantiates", 168},
        {"statefulBeanDestroys", 169}, {"statefulBeanCreates", 170}, {"statefulBeanRemoves", 171},
        {"statefulBeanActivations", 172}, {"statefulBeanPassivations", 173}, {"summary", 17},
        {"avgCreateTime", 212}, {"avgRemoveTime", 213}, {"creates", 174}, {"removes", 175},
        {"activates", 176}, {"passivates", 177}, {"instantiates", 178}, {"destroys", 179},
        {"concurrentActives", 180}, {"concurrentLives", 181}, {"activeMethods", 182}});
}

TEST(KeywordTables, Transaction) {
    expectTable(PRBTransactionSample(), {
        {"cont_name", 6}, {"trans_il", 54}, {"activeTrans", 132}, {"avgTranDuration", 133},
        {"numBeansPerTran", 134}, {"numMethodsPerTran", 135}, {"numTransactions", 129},
        {"numTransCommitted", 130}, {"numTransRolledBack", 131}, {"summary", 17},
        {"globalTransBegun", 370}, {"globalTransInvolved", 371}, {"localTransBegun", 372},
        {"activeGlobalTrans", 373}, {"activeLocalTrans", 374}, {"globalTranDuration", 375},
        {"localTranDuration", 376}, {"globalBeforeCompletionDuration", 377},
        {"globalPrepareDuration", 378}, {"globalCommitDuration", 379},
        {"localBeforeCompletionDuration", 380}, {"localCommitDuration", 381},
        {"numOptimization", 382}, {"globalTransCommitted", 383}, {"localTransCommitted", 384},
        {"globalTransRolledBack", 385}, {"localTransRolledBack", 386},
        {"globalTransTimeout", 387}, {"localTransTimeout", 388}});
}

TEST(KeywordTables, ObjectPool) {
    expectTable(PRBObjectPoolSample(), {
        {"cont_name", 6}, {"bop_il", 56}, {"numGets", 122}, {"getsFromPool", 122},
        {"numGetFound", 123}, {"getsFound", 123}, {"numPuts", 124}, {"returnsToPool", 124},
        {"numPutDiscarded", 125}, {"returnsDiscarded", 125}, {"numDrains", 126},
        {"drainsFromPool", 126}, {"avgDrainSize", 136}, {"poolSize", 128}, {"summary", 17}});
}

TEST(KeywordTables, EJB) {
    expectTable(PRBEJBSample(), {
        {"bean_il", 52}, {"cont_name", 6}, {"bean_name", 7}, {"bean_type", 200}, {"bop_il", 56},
        {"poolSize", 128}, {"avgDrainSize", 136}, {"numGets", 122}, {"getsFromPool", 122},
        {"numGetFound", 123}, {"getsFound", 123}, {"numPuts", 124}, {"returnsToPool", 124},
        {"numPutDiscarded", 125}, {"returnsDiscarded", 125}, {"numDrains", 126},
        {"drainsFromPool", 126}, {"statelessBeansLive", 150}, {"methodLoad", 211},
        {"activeMethods", 211}, {"methodRt", 120}, {"avgMethodRt", 120}, {"instantiates", 207},
        {"destroys", 208}, {"methodCalls", 121}, {"totalMethodCalls", 121},
        {"entityBeansLive", 154}, {"concurrentLives", 154}, {"entityBeansActive", 155},
        {"concurrentActives", 155}, {"loads", 205}, {"stores", 206}, {"creates", 201},
        {"removes", 202}, {"activations", 204}, {"activates", 204}, {"passivations", 203},
        {"passivates", 203}, {"statefulBeansLive", 165}, {"statefulBeansActive", 166},
        {"avgCreateTime", 212}, {"avgRemoveTime", 213}});
}

TEST(KeywordTables, EJBMethod) {
    expectTable(PRBEJBMethodSample(), {
        {"cont_name", 6}, {"bean_name", 7}, {"mthd_name", 11}, {"RT", 120}, {"methodRt", 120},
        {"num_calls", 220}, {"methodCalls", 220}, {"beanm_il", 53}});
}

TEST(KeywordTables, DBConnectPool) {
    expectTable(PRBDBConnectPoolSample(), {
        {"dbname", 8}, {"cont_name", 8}, {"dcp_il", 55}, {"percentUsed", 248},
        {"avgTimeHeld", 247}, {"avgWaitTime", 246}, {"numWaiters", 245},
        {"concurrentWaiters", 245}, {"poolSize", 244}, {"percentMaxed", 249}, {"numCreates", 240},
        {"numDestroys", 241}, {"numAllocates", 242}, {"numTimeoutWaiters", 243}, {"faults", 243},
        {"numReturns", 251}, {"summary", 17}, {"prepStmtCacheDiscards", 250}});
}

TEST(KeywordTables, Application) {
    expectTable(PRBApplicationSample(), {
        {"appl_name", 9}, {"vhost_name", 267}, {"serve_il", 57}, {"numLoadedServlets", 265},
        {"numReloads", 266}, {"numConcurrentRequests", 262}, {"concurrentRequests", 262},
        {"responseTime", 263}, {"numErrors", 260}, {"totalRequests", 261}, {"summary", 17},
        {"web_il", 268}, {"websub_il", 269}});
}

TEST(KeywordTables, Servlet) {
    expectTable(PRBServletSample(), {
        {"appl_name", 9}, {"vhost_name", 267}, {"svlt_name", 270}, {"serv_il", 57},
        {"serve_il", 57}, {"numConcurrentRequests", 262}, {"concurrentRequests", 262},
        {"responseTime", 263}, {"numErrors", 260}, {"totalRequests", 261}, {"loadedSince", 264},
        {"jspPath", 271}, {"is_jsp", 272}});
}
// clang-format on
