// Classes, methods, fields and objects as records.
#include "core/PRBArena.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBUnloadedRecords.h"
#include "tests/vm/runtime/RuntimeTest.h"

namespace {

class ClassModel : public RuntimeTest {};

TEST_F(ClassModel, aNewRecordIsUndecided) {
    PRBJavaObject object;
    EXPECT_EQ(object.shouldBeMonitored(), 2);
    EXPECT_EQ(object.resetShouldBeMonitoredStatus(), 2);
    EXPECT_EQ(object.isA(), 0);
}

TEST_F(ClassModel, zeroMeansMonitorAndOneMeansNot) {
    PRBMaskLists::setClassMask("com/x/*");
    ScriptedClass& in = makeClass("com/x/A", {"m"});
    ScriptedClass& out = makeClass("com/y/A", {"m"});
    EXPECT_EQ(findClass(in.id())->shouldBeMonitored(), 0);
    EXPECT_EQ(findClass(out.id())->shouldBeMonitored(), 1);
}

TEST_F(ClassModel, aDecisionIsKeptUntilItIsReset) {
    ScriptedClass& scripted = makeClass("com/x/A", {"m"});
    PRBJavaClass local(scripted.id()); // no registry resets it
    local.learnNames("com/x/A", "A.java");
    EXPECT_EQ(local.shouldBeMonitored(), 0);
    PRBMaskLists::setClassMask("com/y/*");
    EXPECT_EQ(local.shouldBeMonitored(), 0);
    EXPECT_EQ(local.resetShouldBeMonitoredStatus(), 1);
    EXPECT_EQ(local.shouldBeMonitored(), 1);
    local.markUndecided();
    PRBMaskLists::setClassMask("*");
    EXPECT_EQ(local.shouldBeMonitored(), 0);
}

TEST_F(ClassModel, theEpochChangesWithEveryReset) {
    PRBJavaClass local;
    const auto before = PRBJavaObject::getDecisionEpoch();
    local.shouldBeMonitored();
    EXPECT_EQ(PRBJavaObject::getDecisionEpoch(), before);
    local.markUndecided();
    EXPECT_NE(PRBJavaObject::getDecisionEpoch(), before);
}

TEST_F(ClassModel, aClassKeepsWhatItsEventTold) {
    ScriptedClass& scripted =
        vm.addClass({.name = "com/x/A",
                     .source = "A.java",
                     .statics = {{.name = "s", .signature = "J"}, {.name = "t", .signature = "[I"}},
                     .instances = {{.name = "i", .signature = "Ljava/lang/String;"}},
                     .interfaces = {"java/lang/Runnable", "java/lang/Cloneable"}});
    vm.send.classLoad(vm.mainThread(), scripted);
    PRBJavaClass* cls = findClass(scripted.id());
    ASSERT_NE(cls, nullptr);
    EXPECT_STREQ(cls->getClassName(), "com/x/A");
    EXPECT_STREQ(cls->getSourceName(), "A.java");
    EXPECT_EQ(cls->getClassId(), scripted.id());
    EXPECT_EQ(cls->getNumInterfaces(), 2);
    EXPECT_EQ(cls->getSuperClass(), nullptr);
    ASSERT_EQ(cls->getNumStaticFields(), 2);
    EXPECT_EQ(cls->getStaticField(0)->getType(), 5);
    EXPECT_EQ(cls->getStaticField(1)->getType(), 9);
    ASSERT_EQ(cls->getNumInstanceFields(), 1);
    EXPECT_EQ(cls->getInstanceField(0)->getType(), 8);
    EXPECT_EQ(cls->getNumObjects() + cls->getNumBytes() + cls->getNumAllocations() +
                  cls->getNumFree() + cls->getNumMove(),
              0);
    cls->setSuperClass(scripted.id());
    EXPECT_EQ(cls->getSuperClass(), scripted.id());
}

TEST_F(ClassModel, aClassThatWasToldWithoutMembersLearnsThemOnceWhenItIsToldAgain) {
    JVMPI_Event event{};
    auto& load = event.u.class_load;
    load.class_name = "com/x/Late";
    load.class_id = reinterpret_cast<jobjectID>(std::uintptr_t{0x777});
    PRBJavaClass local(&event);
    EXPECT_EQ(local.getNumStaticFields(), 0);

    char name[] = "f", reference[] = "[I", number[] = "J";
    JVMPI_Field statics[] = {{name, reference}, {name, number}};
    JVMPI_Field instances[] = {{name, number}};
    load.num_interfaces = 3;
    load.num_static_fields = 2;
    load.statics = statics;
    load.num_instance_fields = 1;
    load.instances = instances;
    local.learnShape(&event);
    EXPECT_EQ(local.getNumInterfaces(), 3);
    ASSERT_EQ(local.getNumStaticFields(), 2);
    EXPECT_EQ(local.getStaticField(0)->getType(), PRBJavaClass::Field::kArray);
    EXPECT_EQ(local.getStaticField(1)->getType(), PRBJavaClass::Field::kLong);
    ASSERT_EQ(local.getNumInstanceFields(), 1);

    load.num_interfaces = 1;
    load.num_static_fields = 0;
    local.learnShape(&event);
    EXPECT_EQ(local.getNumInterfaces(), 3);
    EXPECT_EQ(local.getNumStaticFields(), 2);
}

TEST_F(ClassModel, fieldTypesAndLengths) {
    struct Row {
        const char* signature;
        int type, length;
    };
    const Row rows[] = {{"Z", 0, 1}, {"C", 1, 2}, {"B", 2, 1}, {"S", 3, 2},     {"I", 4, 4},
                        {"J", 5, 8}, {"F", 6, 4}, {"D", 7, 8}, {"Lx/A;", 8, 4}, {"[[J", 9, 4}};
    for (const Row& row : rows) {
        PRBJavaClass::Field field;
        EXPECT_EQ(field.getLength(), 0); // not known yet
        field.setType(row.signature);
        EXPECT_EQ(field.getType(), row.type) << row.signature;
        EXPECT_EQ(field.getLength(), row.length) << row.signature;
        for (const char* other : {"V", "", "j", static_cast<const char*>(nullptr)}) {
            field.setType(other);
            EXPECT_EQ(field.getType(), row.type) << row.signature;
        }
    }
}

TEST_F(ClassModel, aClassWithoutFieldsHasNoArrays) {
    PRBJavaClass* cls = findClass(makeClass("com/x/A", {}).id());
    EXPECT_EQ(cls->getStaticFields(), nullptr);
    EXPECT_EQ(cls->getInstanceFields(), nullptr);
    EXPECT_EQ(cls->getNumStaticFields(), 0);
    EXPECT_EQ(cls->getNumInstanceFields(), 0);
}

TEST_F(ClassModel, anEventWithNullsAndAbsurdCountsGivesAnEmptyClass) {
    JVMPI_Event event{};
    event.u.class_load.num_static_fields = 7; // no array
    event.u.class_load.num_instance_fields = -3;
    JVMPI_Field field{};
    event.u.class_load.instances = &field;
    PRBJavaClass cls(&event);
    EXPECT_STREQ(cls.getClassName(), "");
    EXPECT_STREQ(cls.getSourceName(), "");
    EXPECT_EQ(cls.getNumStaticFields(), 0);
    EXPECT_EQ(cls.getNumInstanceFields(), 0);
}

TEST_F(ClassModel, objectStatisticsStopAtZero) {
    PRBJavaClass cls;
    cls.objectCreated(10);
    cls.objectCreated(20);
    cls.objectMoved();
    cls.objectFreed(25);
    EXPECT_EQ(cls.getNumAllocations(), 2);
    EXPECT_EQ(cls.getNumObjects(), 1);
    EXPECT_EQ(cls.getNumBytes(), 5);
    EXPECT_EQ(cls.getNumMove(), 1);
    cls.objectFreed(6); // more than is live
    cls.objectFreed(5);
    EXPECT_EQ(cls.getNumFree(), 3);
    EXPECT_EQ(cls.getNumObjects(), 0);
    EXPECT_EQ(cls.getNumBytes(), 0);
    cls.resetStats();
    EXPECT_EQ(cls.getNumAllocations() + cls.getNumFree() + cls.getNumMove(), 0);
}

TEST_F(ClassModel, theEndOfADumpMakesItsObjectsTheLiveOnes) {
    PRBJavaClass cls;
    cls.objectCreated(10);
    cls.dumpBegins();
    cls.foundInDump(2, 16);
    cls.objectCreated(100); // meanwhile
    EXPECT_EQ(cls.getNumObjects(), 2);
    EXPECT_EQ(cls.getNumBytes(), 110);
    cls.foundInDump(1, 8);
    cls.dumpEnds();
    EXPECT_EQ(cls.getNumObjects(), 3);
    EXPECT_EQ(cls.getNumBytes(), 24);
    EXPECT_EQ(cls.getNumAllocations(), 2); // a dump is no allocation
    cls.dumpBegins();
    cls.dumpEnds();
    EXPECT_EQ(cls.getNumObjects() + cls.getNumBytes(), 0);
    cls.foundInDump(5, 40);
    cls.dumpEnds();
    cls.resetStats();
    EXPECT_EQ(cls.getNumObjects() + cls.getNumBytes() + cls.getNumAllocations(), 0);
}

TEST_F(ClassModel, aMethodIsMatchedByClassFullStopAndName) {
    ScriptedClass& scripted = makeClass("com/x/A", {"run", "stop"});
    PRBMaskLists::setMethodMask("com/x/A.run");
    EXPECT_EQ(findMethod(scripted.methodId("run"))->shouldBeMonitored(), 0);
    EXPECT_EQ(findMethod(scripted.methodId("stop"))->shouldBeMonitored(), 1);
    PRBMaskLists::setMethodMask("com/x/A/run");
    EXPECT_EQ(findMethod(scripted.methodId("run"))->shouldBeMonitored(), 1);
}

TEST_F(ClassModel, aMethodOfUnknownClassIsMonitoredWhileUndecidedAndStoresNothing) {
    PRBMaskLists::setMethodMask("none");
    PRBJavaMethod method(reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x440)));
    EXPECT_EQ(method.shouldBeMonitored(), 0);
    EXPECT_EQ(method.PRBJavaObject::shouldBeMonitored(), 2);
    EXPECT_FALSE(method.isDecided());
}

TEST_F(ClassModel, aDeadClassAndItsMethodsAreNotMonitored) {
    ScriptedClass& scripted = makeClass("com/x/A", {"run"});
    PRBJavaClass* cls = findClass(scripted.id());
    PRBJavaMethod method(*findMethod(scripted.methodId("run")));
    EXPECT_EQ(cls->shouldBeMonitored(), 0);
    const auto dead = PRBUnloadedRecords::deadClasses();
    vm.send.classUnload(vm.mainThread(), scripted.id());
    EXPECT_EQ(findClass(scripted.id()), nullptr);
    EXPECT_EQ(PRBUnloadedRecords::deadClasses(), dead + 1);
    EXPECT_EQ(cls->shouldBeMonitored(), 1); // kept for whoever caches it
    EXPECT_EQ(method.shouldBeMonitored(), 1);
}

TEST_F(ClassModel, namesAndClassAreResolvedOnlyWhenEmpty) {
    ScriptedClass& late = makeClass("com/x/Late", {"m"}, false);
    PRBJavaMethod empty(late.methodId("m"));
    PRBContext::getMethodTable()->insert(new PRBJavaMethod(late.methodId("m")));
    PRBJavaMethod* method = findMethod(late.methodId("m"));
    vm.recorder().clear();
    EXPECT_STREQ(method->getMethodName(), "m");
    EXPECT_STREQ(method->getMethodSignature(), "()V");
    EXPECT_EQ(method->getClass(), findClass(late.id()));
    EXPECT_EQ(vm.recorder().count("GetMethodClass"), 1u);
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 1u);
    EXPECT_STREQ(empty.peekMethodName(), ""); // a record outside the registry learns nothing
    EXPECT_EQ(empty.peekClass(), nullptr);
}

TEST_F(ClassModel, anUnresolvedMethodAsksAgainEachTime) {
    PRBJavaMethod method(reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x440)));
    vm.recorder().clear();
    EXPECT_EQ(method.getClass(), nullptr);
    EXPECT_STREQ(method.getMethodName(), "");
    EXPECT_STREQ(method.getMethodSignature(), "");
    method.shouldBeMonitored();
    EXPECT_EQ(vm.recorder().count("GetMethodClass"), 4u);
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 0u); // the VM named no class
}

TEST_F(ClassModel, aCopiedMethodKeepsNamesClassIdAndStatus) {
    PRBMaskLists::setMethodMask("none");
    ScriptedClass& scripted = makeClass("com/x/A", {"run"});
    PRBJavaMethod* original = findMethod(scripted.methodId("run"));
    EXPECT_EQ(original->shouldBeMonitored(), 1);
    PRBJavaMethod copy(*original);
    PRBJavaMethod assigned;
    assigned = *original;
    PRBMaskLists::setMethodMask("*");
    for (PRBJavaMethod* method : {&copy, &assigned}) {
        EXPECT_STREQ(method->peekMethodName(), "run");
        EXPECT_STREQ(method->peekMethodSignature(), "()V");
        EXPECT_EQ(method->peekClass(), findClass(scripted.id()));
        EXPECT_EQ(method->getMethodId(), scripted.methodId("run"));
        EXPECT_EQ(method->shouldBeMonitored(), 1); // the decision came along
    }
}

TEST_F(ClassModel, aReplayedClassKeepsItsAddressAndNames) {
    ScriptedClass& scripted = makeClass("com/x/A", {"run"});
    PRBJavaClass* cls = findClass(scripted.id());
    PRBJavaMethod* method = findMethod(scripted.methodId("run"));
    vm.send.classLoad(vm.mainThread(), scripted, true);
    EXPECT_EQ(findClass(scripted.id()), cls);
    EXPECT_EQ(findMethod(scripted.methodId("run")), method);
    EXPECT_EQ(cls->firstMethod(), method);
    EXPECT_EQ(method->nextOfClass(), nullptr); // not listed twice
}

TEST_F(ClassModel, recordsAreIdentifiedByTheirKindAndId) {
    ScriptedClass& one = makeClass("com/x/A", {"a", "b"});
    ScriptedClass& two = makeClass("com/x/B", {"a"});
    PRBJavaClass classKey(one.id()), otherClass(two.id());
    PRBJavaMethod methodKey(one.methodId("a")), otherMethod(one.methodId("b"));
    PRBJavaObjectAllocated objectKey(one.id()), otherObject(two.id());
    EXPECT_EQ(classKey.isA(), 32744);
    EXPECT_EQ(methodKey.isA(), 32741);
    EXPECT_EQ(objectKey.isA(), 32742);
    EXPECT_TRUE(classKey.isEqual(findClass(one.id())));
    EXPECT_EQ(classKey.hash(), findClass(one.id())->hash());
    EXPECT_TRUE(methodKey.isEqual(findMethod(one.methodId("a"))));
    EXPECT_EQ(methodKey.hash(), findMethod(one.methodId("a"))->hash());
    PRBJavaObjectAllocated same(nullptr, nullptr, 0, 8, one.id(), nullptr);
    EXPECT_TRUE(objectKey.isEqual(&same));
    EXPECT_EQ(objectKey.hash(), same.hash());
    EXPECT_FALSE(classKey.isEqual(&otherClass));
    EXPECT_FALSE(methodKey.isEqual(&otherMethod));
    EXPECT_FALSE(objectKey.isEqual(&otherObject));
    EXPECT_FALSE(classKey.isEqual(&objectKey)); // the same id, another kind
    EXPECT_FALSE(objectKey.isEqual(&classKey));
    EXPECT_FALSE(methodKey.isEqual(nullptr));
}

TEST_F(ClassModel, anObjectHasItsClassesDecisionAndNoneOfItsOwn) {
    ScriptedClass& scripted = makeClass("com/x/A", {});
    PRBJavaObjectAllocated object(nullptr, findClass(scripted.id()), 0, 24, vm.unknownId(),
                                  vm.env());
    EXPECT_EQ(object.shouldBeMonitored(), 0);
    EXPECT_EQ(object.PRBJavaObject::shouldBeMonitored(), 2);
    PRBMaskLists::setClassMask("none");
    EXPECT_EQ(object.shouldBeMonitored(), 1);
    EXPECT_EQ(PRBJavaObjectAllocated(vm.unknownId()).shouldBeMonitored(), 2);
}

TEST_F(ClassModel, anObjectKeepsWhatItsEventTold) {
    PRBArena arena(7, "eden");
    PRBJavaObjectAllocated object(&arena, nullptr, 10, 24, vm.unknownId(), vm.env());
    EXPECT_EQ(object.getArenaId(), 7);
    EXPECT_EQ(object.getIsArray(), 10);
    EXPECT_EQ(object.getSize(), 24);
    EXPECT_EQ(object.getAllocatingThread(), vm.env());
    EXPECT_EQ(object.getHeapScanCount(), 0u);
    object.setHeapScanCount(5);
    EXPECT_EQ(object.getHeapScanCount(), 5u);
    object.setNewArena(nullptr);
    EXPECT_EQ(object.getArenaId(), 0);
    PRBJavaObjectAllocated empty;
    EXPECT_EQ(empty.getArenaId(), 0);
    EXPECT_EQ(empty.getSize(), 0);
    EXPECT_EQ(empty.getObjectId(), nullptr);
}

TEST_F(ClassModel, aNameSetAgainStaysReadableForThoseWhoHoldTheOldOne) {
    PRBJavaMethod method;
    method.setMethodName("first");
    const char* held = method.peekMethodName();
    method.setMethodName("second");
    EXPECT_STREQ(held, "first");
    EXPECT_STREQ(method.peekMethodName(), "second");
    method.setMethodName(nullptr);
    EXPECT_STREQ(method.peekMethodName(), "");
}

class ClassModelDebug : public RuntimeTest {
    void SetUp() override { startAgent("debug=PUBLIC"); }
};

TEST_F(ClassModelDebug, resolvingTellsItsTwoSteps) {
    ScriptedClass& late = makeClass("com/x/Late", {"m"}, false);
    PRBJavaMethod method(late.methodId("m"));
    method.resolveMethod();
    char first[120], second[120];
    std::snprintf(first, sizeof first,
                  "PRBJavaMethod::resolveMethod about to call GetMethodClass for method %lX",
                  static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(late.methodId("m"))));
    std::snprintf(second, sizeof second,
                  "PRBJavaMethod::resolveMethod about to call RequestEvent for class %lX",
                  static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(late.id())));
    const Texts log = logTexts();
    const auto at = std::find(log.begin(), log.end(), first);
    ASSERT_NE(at, log.end());
    EXPECT_NE(std::find(at, log.end(), second), log.end());
    EXPECT_NE(findClass(late.id()), nullptr);
}

} // namespace
