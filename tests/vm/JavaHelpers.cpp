#include "tests/vm/JavaHelpers.h"

#include "tests/vm/ScriptedWorld.h"

#include <algorithm>

namespace scripted {

namespace {

// "java/lang/String" as Class.getName gives it.
std::string dotted(std::string name) {
    std::replace(name.begin(), name.end(), '/', '.');
    return name;
}

JavaValue getProperty(JavaCall& call) {
    const ScriptedObject* key = call.args[0].object;
    if (key == nullptr) {
        call.throwNew("java/lang/NullPointerException", "key can't be null");
        return {};
    }
    const auto& properties = call.vm.systemProperties();
    const auto found = properties.find(key->text);
    return found != properties.end() ? &call.vm.newString(found->second) : nullptr;
}

} // namespace

void addStandardClasses(ScriptedVm& vm) {
    ScriptedClass& object = vm.addClass({.name = "java/lang/Object", .superclass = ""});
    ScriptedClass& cls = vm.addClass({.name = "java/lang/Class",
                                      .methods = {{.name = "getName",
                                                   .signature = "()Ljava/lang/String;",
                                                   .body = [](JavaCall& call) -> JavaValue {
                                                       return &call.vm.newString(
                                                           dotted(call.self->mirrorOf->name()));
                                                   }}}});
    // These two exist before the class of classes does.
    object.mirror->cls = &cls;
    cls.mirror->cls = &cls;
    vm.addClass({.name = "java/lang/String"});
    vm.addClass({.name = "[B"});
    vm.addClass({.name = "[J"});
    vm.addClass({.name = "[Ljava/lang/Object;"});
    vm.addClass({.name = "[Ljava/lang/String;"});
    vm.addClass({.name = "java/lang/System",
                 .methods = {{.name = "getProperty",
                              .signature = "(Ljava/lang/String;)Ljava/lang/String;",
                              .isStatic = true,
                              .body = getProperty}}});
    vm.addClass(
        {.name = "java/lang/Thread",
         .methods = {{.name = "currentThread",
                      .signature = "()Ljava/lang/Thread;",
                      .isStatic = true,
                      .body = [](JavaCall& call) -> JavaValue { return call.thread.object(); }},
                     {.name = "stop", .signature = "()V"}}});
    const std::pair<const char*, const char*> throwables[] = {
        {"java/lang/Throwable", "java/lang/Object"},
        {"java/lang/Exception", "java/lang/Throwable"},
        {"java/lang/RuntimeException", "java/lang/Exception"},
        {"java/lang/NullPointerException", "java/lang/RuntimeException"},
        {"java/lang/NegativeArraySizeException", "java/lang/RuntimeException"},
        {"java/lang/ArrayIndexOutOfBoundsException", "java/lang/RuntimeException"},
        {"java/lang/Error", "java/lang/Throwable"},
        {"java/lang/ThreadDeath", "java/lang/Error"},
        {"java/lang/OutOfMemoryError", "java/lang/Error"},
        {"java/lang/NoClassDefFoundError", "java/lang/Error"},
        {"java/lang/NoSuchMethodError", "java/lang/Error"},
    };
    for (const auto& [name, superclass] : throwables)
        vm.addClass({.name = name, .superclass = superclass});
}

JavaCollector makeCollector(ScriptedVm& vm, const std::vector<std::string>& without,
                            const std::string& className) {
    JavaCollector collector;
    collector.script = std::make_shared<CollectorScript>();
    const std::shared_ptr<CollectorScript> script = collector.script;
    // Every method first throws if it is told to.
    const auto guarded = [script](MethodBody body) -> MethodBody {
        return [script, body](JavaCall& call) -> JavaValue {
            if (!script->throws.empty()) {
                call.throwNew(script->throws, "scripted");
                return {};
            }
            return body(call);
        };
    };
    std::vector<MethodSpec> methods = {
        {.name = "getBuildLevel",
         .signature = "()I",
         .isStatic = true,
         .body = guarded([script](JavaCall&) -> JavaValue { return script->buildLevel; })},
        {.name = "getFreeBytes",
         .signature = "()J",
         .isStatic = true,
         .body = guarded([script](JavaCall&) -> JavaValue { return script->freeBytes; })},
        {.name = "getTotalBytes",
         .signature = "()J",
         .isStatic = true,
         .body = guarded([script](JavaCall&) -> JavaValue { return script->totalBytes; })},
        {.name = "writeToLog",
         .signature = "(Ljava/lang/String;)V",
         .isStatic = true,
         .body = guarded([script](JavaCall& call) -> JavaValue {
             const ScriptedObject* text = call.args[0].object;
             script->log.push_back(text != nullptr ? text->text : "null");
             return {};
         })},
        {.name = "isGCCollectionActive",
         .signature = "()Z",
         .body = guarded([script](JavaCall&) -> JavaValue { return script->gcCollectionActive; })},
    };
    std::erase_if(methods, [&](const MethodSpec& method) {
        return std::find(without.begin(), without.end(), method.name) != without.end();
    });
    collector.object = &vm.newObject(vm.addClass({.name = className, .methods = methods}));
    return collector;
}

ScriptedObject& makeRequest(ScriptedVm& vm, jlong type, jint threadId) {
    return vm.newObject(
        vm.addClass({.name = "com/tessel/prb/workanalysis/DataRequest",
                     .methods = {
                         {.name = "getType",
                          .signature = "()J",
                          .body = [type](JavaCall&) -> JavaValue { return type; }},
                         {.name = "getThreadId",
                          .signature = "()I",
                          .body = [threadId](JavaCall&) -> JavaValue { return threadId; }},
                     }}));
}

ScriptedObject& makeInstrumentedEntry(ScriptedVm& vm) {
    ScriptedClass* cls = vm.findClass("com/tessel/prb/workanalysis/InstrumentedMethodEntry");
    if (cls == nullptr)
        cls = &vm.addClass({.name = "com/tessel/prb/workanalysis/InstrumentedMethodEntry",
                            .methods = {{.name = "setNumCpuSamples", .signature = "(IIII)V"}}});
    return vm.newObject(*cls);
}

} // namespace scripted
