// What becomes of unloaded classes, of their methods, and of what refers to them.
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBUnloadedRecords.h"
#include "tests/vm/core/CoreTest.h"

using namespace scripted;

namespace {

class Unloads : public OrderTest {};

} // namespace

TEST_F(Unloads, aClassThatSomebodyKeepsStaysWhenItIsUnloaded) {
    vm.send.classLoad(worker, order);
    const std::size_t dead = PRBUnloadedRecords::deadClasses();
    PRBJavaClass* kept = monitor.getClassForClassID(order.id());
    ASSERT_NE(kept, nullptr);
    vm.send.classUnload(worker, order.id());
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
    EXPECT_EQ(PRBUnloadedRecords::deadClasses(), dead + 1);
    EXPECT_TRUE(kept->isDead());
    EXPECT_STREQ(kept->getClassName(), "com/x/Order");
}

TEST_F(Unloads, aClassThatIsLentBeforeItIsDeletedStays) {
    vm.send.classLoad(worker, order);
    const std::size_t dead = PRBUnloadedRecords::deadClasses();
    PRBJavaClass* cls = findClass(order.id());
    {
        PRBReclaimer::Reader late; // has found the class before it went
        vm.send.classUnload(worker, order.id());
        for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
        cls->lend();
    }
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBUnloadedRecords::deadClasses(), dead + 1);
    EXPECT_TRUE(cls->isDead());
}

// Its objects' records go with the collection's finish; what unloads a class comes after one, but
// objects may be told in between.
TEST_F(Unloads, aClassWhoseObjectsWereToldGoesAfterTheNextCollection) {
    vm.send.classLoad(worker, order);
    vm.send.objectAlloc(worker, vm.allocate(worker, order, 48));
    const std::size_t dead = PRBUnloadedRecords::deadClasses();
    vm.send.classUnload(worker, order.id());
    PRBUnloadedRecords::release();
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 1u);
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u); // its methods
    vm.send.gcFinish(-1, 100, 200);         // one without a start promises nothing
    PRBUnloadedRecords::release();
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 1u);
    vm.send.gcStart();
    vm.send.gcFinish(-1, 100, 200);
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 1u); // nothing is deleted in a pause
    PRBUnloadedRecords::release();
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 0u);
    EXPECT_EQ(PRBReclaimer::pending(), 1u);
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
    EXPECT_EQ(PRBUnloadedRecords::deadClasses(), dead);
}

TEST_F(Unloads, thoseThatWereUnloadedSinceWaitForOneMore) {
    const auto unloadOne = [&](ScriptedClass& one) {
        vm.send.classLoad(worker, one);
        vm.send.objectAlloc(worker, vm.allocate(worker, one, 48));
        vm.send.classUnload(worker, one.id());
    };
    unloadOne(order);
    vm.send.gcStart();
    vm.send.gcFinish(-1, 100, 200);
    unloadOne(vm.addClass({.name = "com/x/Later"}));
    PRBUnloadedRecords::release();
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 1u);
    vm.send.gcStart();
    vm.send.gcFinish(-1, 100, 200);
    PRBUnloadedRecords::release();
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 0u);
}

TEST_F(Unloads, aClassThatWasAskedForByItsObjectStays) {
    vm.send.classLoad(worker, order);
    auto& object = vm.allocate(worker, order, 48);
    vm.send.objectAlloc(worker, object);
    const std::size_t dead = PRBUnloadedRecords::deadClasses();
    PRBJavaClass* kept = monitor.getClassForObject(object.id);
    ASSERT_NE(kept, nullptr);
    vm.send.classUnload(worker, order.id());
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 0u);
    EXPECT_EQ(PRBUnloadedRecords::deadClasses(), dead + 1);
    EXPECT_TRUE(kept->isDead());
}

TEST_F(Unloads, theNextLoadReleasesWhatWaited) {
    vm.send.classLoad(worker, order);
    vm.send.objectAlloc(worker, vm.allocate(worker, order, 48));
    vm.send.classUnload(worker, order.id());
    vm.send.gcStart();
    vm.send.gcFinish(-1, 100, 200);
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 1u);
    vm.send.classLoad(worker, vm.addClass({.name = "com/x/Later"}));
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 0u);
}

TEST_F(Unloads, anUnloadRemovesTheClassItsMethodsAndTheirFrequencies) {
    monitor.setMethodMask("*");
    monitor.setDataBeingCollected(PRBCollect::kMethods);
    vm.send.classLoad(worker, order);
    PRBJavaThread* thread = threadOf(worker);
    vm.recorder().clear();
    worker.run([&] { thread->findMethodFrequency(order.methodId("price")); });
    ASSERT_EQ(thread->getMethodFrequencyTable()->entries(), 1u);
    PRBJavaClass* cls = findClass(order.id());
    const std::size_t dead = PRBUnloadedRecords::deadClasses();
    const std::uint32_t pending = PRBReclaimer::pending();
    PRBReclaimer::Reader keep; // the class is deleted after it
    vm.send.classUnload(worker, order.id());
    EXPECT_EQ(findClass(order.id()), nullptr);
    EXPECT_EQ(findMethod(order.methodId("price")), nullptr);
    EXPECT_EQ(findMethod(order.methodId("pay")), nullptr);
    EXPECT_EQ(PRBUnloadedRecords::deadClasses(), dead);
    EXPECT_EQ(PRBReclaimer::pending(), pending + 3); // with its two methods
    EXPECT_TRUE(cls->isDead());
    EXPECT_EQ(cls->shouldBeMonitored(), 1);
    thread->purgeMethodFrequencyObjects();
    EXPECT_EQ(thread->getMethodFrequencyTable()->entries(), 0u);
    vm.send.classUnload(worker, order.id()); // unknown now
}
