#include "bridge/AttachRequest.h"

#include <cstring>
#include <mutex>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "bridge/AgentLibrary.h"
#include "bridge/BridgeLink.h"
#include "bridge/CompiledCode.h"
#include "bridge/Context.h"
#include "bridge/JavaDriver.h"
#include "bridge/Jvmti.h"
#include "bridge/Loader.h"
#include "bridge/Options.h"
#include "bridge/Report.h"
#include "bridge/VmCallbacks.h"

namespace bridge {
namespace {

// Gathers the answer while it lives; gives it at its end.
class Reply {
public:
    explicit Reply(std::string file) : file_(std::move(file)) {
        current() = this;
        setReportListener([](const char* line, unsigned length) {
            const std::lock_guard<std::mutex> guard(mutex());
            if (Reply* reply = current()) reply->said_.append("said=").append(line, length);
        });
    }
    ~Reply() {
        setReportListener(nullptr);
        const std::lock_guard<std::mutex> guard(mutex());
        current() = nullptr;
        write();
    }
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;

    void state(const char* state, const std::string& capture) {
        answer_ = std::string("state=") + state + "\n";
        if (!capture.empty()) answer_ += "capture=" + capture + "\n";
    }

private:
    // A line may be said on any thread.
    static std::mutex& mutex() {
        static std::mutex& the = *new std::mutex;
        return the;
    }
    static Reply*& current() {
        static Reply* the = nullptr;
        return the;
    }

    // Only into a file that is there, and no link: the name comes from outside.
    void write() const {
        if (file_.empty()) return;
        const int file = open(file_.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC);
        struct stat kind {};
        if (file < 0) return;
        const std::string text = answer_ + said_;
        if (fstat(file, &kind) == 0 && S_ISREG(kind.st_mode)) {
            [[maybe_unused]] const ssize_t written = ::write(file, text.data(), text.size());
        }
        close(file);
    }

    const std::string file_;
    std::string answer_ = "state=failed\n";
    std::string said_;
};

// What a VM cannot give to one who comes late.
std::string lateLimit(const Options& options, bool recompiled) {
    std::string text;
    if (!recompiled)
        text =
            "attached late: in code that was compiled before, inlined methods may show the share "
            "of their callers and neighbours";
    if (options.data() & Options::kAlloc) {
        text += text.empty() ? "attached late: " : "; ";
        text += "threads that were there before tell their allocations only after their next "
                "half megabyte";
    }
    return text;
}

// A further collection in a VM that has the bridge. The library stays the one that is loaded.
void beginAgain(JNIEnv* jni, const Options& options) {
    Context& the = context();
    if (!options.agentText().empty() && options.agentText() != the.options.agentText())
        report("options of the agent itself count for the first collection only");
    if (!options.exact().empty())
        report("methods are timed exactly only from the JVM's start on; exact= is ignored");
    the.options = options;
    setQuiet(options.quiet());
    if (!Loader::needJar()) return;
    if (const std::string problem = wake(); !problem.empty()) {
        report("%s; the program runs unprofiled", problem.c_str());
        return;
    }
    if (!options.driver()) return;
    if (void* library = AgentLibrary::handle()) JavaDriver::start(jni, library);
}

bool recompile(JNIEnv* jni) {
    ExceptionShelter shelter(jni);
    LocalRef<jclass> ours(jni, jni->FindClass("com/tessel/prb/workanalysis/BridgeLink"));
    if (ours && dropCompiledCode(context().jvmti, ours.get())) return true;
    report("this JVM does not give up the code that it has compiled: recompile=yes has no effect");
    return false;
}

void begin(JavaVM* vm, const char* optionText, const Options& options, Reply& reply) {
    if (!isLive()) {
        if (isDead() || Loader::touchedVm()) {
            report("this JVM was found unfit before, or is about to end; nothing was done");
            return;
        }
        if (!Loader::load(vm, optionText, true)) return;
        if (JNIEnv* jni = currentEnv()) beginLive(jni);
    } else {
        JNIEnv* jni = currentEnv();
        if (!jni) return;
        if (const std::string running = JavaDriver::capture(jni); !running.empty()) {
            reply.state("busy", running);
            return;
        }
        beginAgain(jni, options);
    }
    JNIEnv* jni = isLive() ? currentEnv() : nullptr;
    if (!jni) return;
    const std::string capture = JavaDriver::capture(jni);
    if (capture.empty() && options.driver()) {
        rest();
        return;
    }
    setCollectionLimit(lateLimit(options, options.recompile() && recompile(jni)));
    reply.state("started", capture);
}

void end(Reply& reply) {
    JNIEnv* jni = isLive() ? currentEnv() : nullptr;
    const std::string capture = jni ? JavaDriver::capture(jni) : std::string();
    if (capture.empty()) {
        reply.state("idle", {});
        return;
    }
    JavaDriver::end(jni);
    rest();
    reply.state("ended", capture);
}

} // namespace

void AttachRequest::serve(JavaVM* vm, const char* optionText) {
    Options options;
    const std::string problem = options.parse(optionText);
    Reply reply(options.reply());
    if (!problem.empty())
        report("%s; nothing was done", problem.c_str());
    else if (options.detach())
        end(reply);
    else
        begin(vm, optionText, options, reply);
}

} // namespace bridge
