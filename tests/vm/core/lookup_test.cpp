#include "tests/vm/core/CoreTest.h"

using namespace scripted;

namespace {

class Lookup : public CoreTest {
protected:
    PRBMonitorGlobal& monitor = start();
    ScriptedClass& order =
        vm.addClass({.name = "com/x/Order", .methods = {{.name = "price", .signature = "()I"}}});

    std::size_t requests() { return vm.recorder().count("RequestEvent"); }
};

} // namespace

TEST_F(Lookup, aKnownClassIsNotRequested) {
    vm.send.classLoad(vm.mainThread(), order);
    vm.recorder().clear();
    EXPECT_EQ(monitor.getClassForClassID(order.id()), findClass(order.id()));
    EXPECT_EQ(requests(), 0u);
}

TEST_F(Lookup, anUnknownClassIsRequestedOnce) {
    PRBJavaClass* cls = monitor.getClassForClassID(order.id());
    ASSERT_NE(cls, nullptr);
    EXPECT_STREQ(cls->getClassName(), "com/x/Order");
    EXPECT_EQ(requests(), 1u);
    EXPECT_EQ(monitor.getClassForClassID(order.id()), cls);
    EXPECT_EQ(requests(), 1u);
}

TEST_F(Lookup, aRefusedClassIsNull) {
    EXPECT_EQ(monitor.getClassForClassID(vm.unknownId()), nullptr);
    EXPECT_EQ(PRBContext::getClassTable()->entries(), 0u);
    EXPECT_EQ(monitor.getClassForClassID(nullptr), nullptr);
    EXPECT_EQ(requests(), 1u);
}

TEST_F(Lookup, anUnknownObjectIsRequestedWithCollectionsDisabled) {
    auto& object = vm.allocate(vm.mainThread(), order, 40);
    ASSERT_EQ(findObject(object.id), nullptr); // allocation events are not enabled
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, true);
    vm.recorder().clear();
    PRBJavaObjectAllocated* record = monitor.getObject(object.id);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->getSize(), 40);
    const Texts calls = vm.jvmpiCalls();
    const auto at = [&](const std::string& text) {
        return std::find_if(calls.begin(), calls.end(),
                            [&](const std::string& call) { return call.rfind(text, 0) == 0; }) -
               calls.begin();
    };
    EXPECT_LT(at("DisableGC"), at("RequestEvent(4"));
    EXPECT_LT(at("RequestEvent(4"), at("EnableGC"));
    EXPECT_LT(at("EnableGC"), static_cast<std::ptrdiff_t>(calls.size()));
    vm.recorder().clear();
    EXPECT_EQ(monitor.getObject(object.id), record);
    EXPECT_EQ(vm.jvmpiCalls(), Texts{});
}

TEST_F(Lookup, aKnownObjectIsFoundUnderItsRegistriesInOrder) {
    vm.send.objectAlloc(vm.mainThread(), 1, nullptr, JVMPI_INT, 8, objectId(5));
    vm.recorder().clear();
    ASSERT_NE(monitor.getObject(objectId(5)), nullptr);
    EXPECT_EQ(vm.monitorCalls(),
              (Texts{"RawMonitorEnter(_ClassTable)", "RawMonitorEnter(_ArenaTable)",
                     "RawMonitorEnter(_ObjectTable)", "RawMonitorEnter(_ObjectTable)",
                     "RawMonitorExit(_ObjectTable)", "RawMonitorExit(_ObjectTable)",
                     "RawMonitorExit(_ArenaTable)", "RawMonitorExit(_ClassTable)"}));
}

TEST_F(Lookup, aRefusedObjectLeavesTheRegistryUnchanged) {
    EXPECT_EQ(monitor.getObject(vm.unknownId()), nullptr);
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 0u);
    EXPECT_EQ(vm.gcDisableDepth(), 0);
    EXPECT_EQ(monitor.getObject(nullptr), nullptr);
    EXPECT_EQ(vm.recorder().count("DisableGC"), 1u);
}

TEST_F(Lookup, theClassOfAnObject) {
    vm.send.classLoad(vm.mainThread(), order);
    vm.send.objectAlloc(vm.mainThread(), 1, order.id(), 0, 8, objectId(5));
    EXPECT_EQ(monitor.getClassForObject(objectId(5)), findClass(order.id()));
    EXPECT_EQ(monitor.getClassIDForObject(objectId(5)), order.id());
    EXPECT_EQ(monitor.getClassForObject(vm.unknownId()), nullptr);
    EXPECT_EQ(monitor.getClassIDForObject(vm.unknownId()), nullptr);
    vm.recorder().clear();
    EXPECT_EQ(monitor.getClassIDForObject(nullptr), nullptr);
    EXPECT_EQ(requests(), 0u);
}

TEST_F(Lookup, theClassOfAnObjectIsReplayedWithTheObject) {
    auto& object = vm.allocate(vm.mainThread(), order, 40);
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, true);
    ASSERT_EQ(findObject(object.id), nullptr);
    PRBJavaClass* cls = monitor.getClassForObject(object.id);
    ASSERT_NE(cls, nullptr);
    EXPECT_EQ(cls, findClass(order.id()));
    EXPECT_NE(findObject(object.id), nullptr);
    EXPECT_EQ(monitor.getClassIDForObject(object.id), order.id());
}

TEST_F(Lookup, theClassOfAMethodIsReplayedWhenItIsUnknown) {
    PRBJavaClass* cls = monitor.getClassForMethod(order.methodId("price"));
    ASSERT_NE(cls, nullptr);
    EXPECT_EQ(cls, findClass(order.id()));
    EXPECT_EQ(vm.recorder().count("GetMethodClass"), 1u);
    EXPECT_EQ(requests(), 1u);
    EXPECT_EQ(monitor.getClassIDForMethod(order.methodId("price")), order.id());
    EXPECT_EQ(vm.recorder().count("GetMethodClass"), 1u);
    EXPECT_EQ(monitor.getClassForMethod(nullptr), nullptr);
}

TEST_F(Lookup, aKnownClassIsReplayedForAMethodThatItCameWithout) {
    auto* cls = new PRBJavaClass(order.id());
    PRBContext::getClassTable()->insert(cls);
    EXPECT_EQ(monitor.getClassForMethod(order.methodId("price")), cls);
    EXPECT_EQ(requests(), 1u);
    ASSERT_NE(findMethod(order.methodId("price")), nullptr);
    EXPECT_EQ(findMethod(order.methodId("price"))->peekClass(), cls);
}

TEST_F(Lookup, aMethodWithoutAClassHasNone) {
    vm.recorder().failNext("GetMethodClass");
    EXPECT_EQ(monitor.getClassForMethod(order.methodId("price")), nullptr);
    vm.recorder().failNext("RequestEvent");
    EXPECT_EQ(monitor.getClassIDForMethod(order.methodId("price")), nullptr);
}

TEST_F(Lookup, tablesLockThemselvesAndNest) {
    PRBMonitorHashTable& table = *PRBContext::getClassTable();
    PRBJavaClass key(order.id());
    table.lock();
    table.find(&key);
    table.release();
    EXPECT_EQ(vm.monitorCalls(),
              (Texts{"RawMonitorEnter(_ClassTable)", "RawMonitorEnter(_ClassTable)",
                     "RawMonitorExit(_ClassTable)", "RawMonitorExit(_ClassTable)"}));
    vm.recorder().clear();
    PRBHashSet::Iterator* iterator = table.getIterator();
    EXPECT_EQ(vm.monitorCalls(), Texts{"RawMonitorEnter(_ClassTable)"});
    table.destroyIterator(iterator);
    EXPECT_EQ(vm.monitorCalls(),
              (Texts{"RawMonitorEnter(_ClassTable)", "RawMonitorExit(_ClassTable)"}));
}

TEST_F(Lookup, aTableThatItsCallerGuardsHasNoMonitor) {
    {
        PRBMonitorHashTable own("own", vm.jvmpi(), kCallerGuarding);
        PRBJavaClass item(order.id());
        own.insert(&item);
        own.find(&item);
        own.remove(&item);
        own.lock();
        own.release();
        // Whatever the value, as long as it is not that of self-guarding.
        PRBMonitorHashTable other("other", vm.jvmpi(), static_cast<_SerializationType>(2));
        EXPECT_EQ(other.entries(), 0u);
    }
    EXPECT_EQ(vm.monitorCalls(), Texts{});
    { PRBMonitorHashTable own("own", vm.jvmpi()); }
    EXPECT_EQ(vm.monitorCalls(), (Texts{"RawMonitorCreate(own)", "RawMonitorDestroy(own)"}));
}

namespace {

class Masks : public CoreTest {
protected:
    PRBMonitorGlobal& monitor = start();
    ScriptedClass& a =
        vm.addClass({.name = "com/x/A", .methods = {{.name = "run", .signature = "()V"}}});
    ScriptedClass& b =
        vm.addClass({.name = "org/y/B", .methods = {{.name = "go", .signature = "()V"}}});
};

} // namespace

TEST_F(Masks, withoutAListNothingIsMonitored) {
    EXPECT_FALSE(monitor.shouldClassBeMonitored("com/x/A"));
    monitor.setClassMask("com/x/*, org/y/*");
    EXPECT_TRUE(monitor.shouldClassBeMonitored("com/x/A"));
    EXPECT_TRUE(monitor.shouldClassBeMonitored("org/y/B"));
    EXPECT_FALSE(monitor.shouldClassBeMonitored("net/z/C"));
    EXPECT_FALSE(monitor.shouldClassBeMonitored("COM/X/A"));
    EXPECT_FALSE(monitor.shouldMethodBeMonitored("com/x/A.run"));
    monitor.setClassMask("");
    EXPECT_FALSE(monitor.shouldClassBeMonitored("com/x/A"));
    monitor.setClassMask("*");
    EXPECT_TRUE(monitor.shouldClassBeMonitored(""));
    monitor.setClassMask(nullptr);
    EXPECT_FALSE(monitor.shouldClassBeMonitored("com/x/A"));
}

TEST_F(Masks, aNewListTakesTheMemoryOfTheOldOne) {
    monitor.setClassMask("com/*x?,org/*");
    monitor.setMethodMask("*run");
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    for (int i = 0; i < 10; ++i) {
        monitor.setClassMask("net/*y?,edu/*");
        monitor.setMethodMask("*get");
    }
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
    monitor.setClassMask("");
    EXPECT_LT(PRBMemoryManager::getCurrentAllocation(), before);
}

TEST_F(Masks, aNewListDecidesLoadedClassesAndMethodsAnew) {
    vm.send.classLoad(vm.mainThread(), a);
    vm.send.classLoad(vm.mainThread(), b);
    monitor.setClassMask("com/*");
    monitor.setMethodMask("*run");
    EXPECT_EQ(findClass(a.id())->shouldBeMonitored(), 0);
    EXPECT_EQ(findClass(b.id())->shouldBeMonitored(), 1);
    EXPECT_EQ(findMethod(a.methodId("run"))->shouldBeMonitored(), 0);
    EXPECT_EQ(findMethod(b.methodId("go"))->shouldBeMonitored(), 1);
    monitor.setClassMask("org/*");
    monitor.setMethodMask("org/y/B?go");
    EXPECT_EQ(findClass(a.id())->shouldBeMonitored(), 1);
    EXPECT_EQ(findClass(b.id())->shouldBeMonitored(), 0);
    EXPECT_EQ(findMethod(a.methodId("run"))->shouldBeMonitored(), 1);
    EXPECT_EQ(findMethod(b.methodId("go"))->shouldBeMonitored(), 0);
}

TEST_F(Masks, aNewListCallsTheVmForNoUndecidedMethod) {
    PRBContext::getMethodTable()->insert(new PRBJavaMethod(a.methodId("run")));
    vm.recorder().clear();
    monitor.setMethodMask("*");
    EXPECT_EQ(vm.jvmpiCalls(), Texts{});
    monitor.setMethodMask("nothing");
    EXPECT_EQ(findMethod(a.methodId("run"))->shouldBeMonitored(), 1); // at the next query
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 1u);
}

TEST_F(Masks, theListIsReplacedBeforeTheRegistryIsWalked) {
    vm.send.classLoad(vm.mainThread(), a);
    vm.recorder().clear();
    monitor.setClassMask("com/*");
    for (const Call& call : vm.recorder().calls(kMonitor)) {
        if (call.text != "RawMonitorEnter(_ClassTable)") continue;
        EXPECT_EQ(std::count(call.held.begin(), call.held.end(), "_MaskList"), 0);
    }
}

TEST_F(Masks, mayChangeWhileOthersAskAndPoll) {
    vm.recorder().setRecording(false);
    for (int i = 0; i < 20; ++i) {
        auto& cls = vm.addClass({.name = "com/x/C" + std::to_string(i),
                                 .methods = {{.name = "run", .signature = "()V"}}});
        vm.send.classLoad(vm.mainThread(), cls);
    }
    auto& asker = vm.addThread({.name = "asker"});
    auto& walker = vm.addThread({.name = "walker"});
    asker.startReal();
    walker.startReal();
    std::atomic<bool> stop{false};
    asker.post([&] {
        while (!stop) monitor.shouldMethodBeMonitored("com/x/C1.run");
    });
    walker.post([&] {
        while (!stop) {
            PRBTableLock classes(*PRBContext::getClassTable());
            PRBTableWalk methods(*PRBContext::getMethodTable());
            while (PRBCollectable* item = methods())
                static_cast<PRBJavaMethod*>(item)->peekShouldBeMonitored();
        }
    });
    for (int i = 0; i < 300; ++i) {
        monitor.setMethodMask(i % 2 == 0 ? "*" : "org/*,*go");
        monitor.setClassMask(i % 2 == 0 ? "com/*" : "");
    }
    stop = true;
    asker.waitIdle();
    walker.waitIdle();
    asker.stopReal();
    walker.stopReal();
    EXPECT_EQ(findClass(vm.findClass("com/x/C1")->id())->shouldBeMonitored(), 1);
}
