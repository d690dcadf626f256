// Signals of native code beside those of a profiler. As a JNI library it is Signals.java's other
// half; as an agent it is another one that wants the profiler's signal. Its options:
//   take=N            handles N real-time signals from SIGRTMIN+6 up before any other agent can
//   replace, default  0.5 s after somebody has begun to handle SIGRTMIN+6, puts a handler of its
//                     own, or the default action, in that place
//   borrow            puts its own there at once, and the former one back after 0.5 s
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <jni.h>
#include <pthread.h>
#include <sys/time.h>

namespace {

constexpr int kContested = 6; // SIGRTMIN+6
constexpr int kRounds = 10;
constexpr auto kPause = std::chrono::milliseconds(500);

// Signals that were sent here, and those that somebody else has sent.
std::atomic<int> own{0};
std::atomic<int> others{0};
std::atomic<int> ticks{0}; // of the profiling timer
const void* const kMark = &own;

void handle(int, siginfo_t* info, void*) {
    if (info->si_value.sival_ptr == kMark)
        own++;
    else
        others++;
}

void onTick(int, siginfo_t*, void*) { ticks++; }

void install(int signal, void (*handler)(int, siginfo_t*, void*)) {
    struct sigaction action {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

// To the calling thread, so that each has arrived when this returns.
void send(int signal) {
    const sigval value{.sival_ptr = const_cast<void*>(kMark)};
    pthread_sigqueue(pthread_self(), signal, value);
}

void awaitTheHandlerOf(int signal) {
    struct sigaction present {};
    do {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        sigaction(signal, nullptr, &present);
    } while (!(present.sa_flags & SA_SIGINFO) && present.sa_handler == SIG_DFL);
}

void interfere(const std::string& how) {
    const int signal = SIGRTMIN + kContested;
    awaitTheHandlerOf(signal);
    if (how != "borrow") std::this_thread::sleep_for(kPause);
    struct sigaction former {};
    sigaction(signal, nullptr, &former);
    if (how == "default") {
        // Signals that are under way would be deadly; those that come while they are ignored are
        // not.
        struct sigaction action {};
        action.sa_handler = SIG_IGN;
        sigaction(signal, &action, nullptr);
        std::this_thread::sleep_for(kPause);
        action.sa_handler = SIG_DFL;
        sigaction(signal, &action, nullptr);
        return;
    }
    install(signal, handle);
    for (int i = 0; i < kRounds; i++) send(signal);
    if (how != "borrow") return;
    std::this_thread::sleep_for(kPause);
    sigaction(signal, &former, nullptr);
}

} // namespace

extern "C" JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM*, char* options, void*) {
    const std::string how = options ? options : "";
    if (how.rfind("take=", 0) != 0) {
        std::thread(interfere, how).detach();
        return 0;
    }
    const int count = std::atoi(how.c_str() + 5);
    for (int i = 0; i < count; i++) install(SIGRTMIN + kContested + i, handle);
    for (int i = 0; i < kRounds; i++) send(SIGRTMIN + kContested);
    return 0;
}

extern "C" JNIEXPORT void JNICALL Agent_OnUnload(JavaVM*) {
    std::printf("neighbour own %d others %d\n", own.load(), others.load());
    std::fflush(stdout);
}

// Handlers for signals that nobody else in the process cares for, and a timer that ticks while
// the process works.
extern "C" JNIEXPORT void JNICALL Java_com_tessel_prb_live_programs_Signals_install(JNIEnv*,
                                                                                    jclass) {
    install(SIGUSR1, handle);
    install(SIGRTMIN + 2, handle);
    install(SIGPROF, onTick);
    const itimerval every{{0, 2000}, {0, 2000}};
    setitimer(ITIMER_PROF, &every, nullptr);
}

// Sends each of the signals once; answers how many have arrived since the start.
extern "C" JNIEXPORT jint JNICALL Java_com_tessel_prb_live_programs_Signals_send(JNIEnv*, jclass) {
    send(SIGUSR1);
    send(SIGRTMIN + 2);
    return own.load();
}

extern "C" JNIEXPORT jint JNICALL Java_com_tessel_prb_live_programs_Signals_ticks(JNIEnv*, jclass) {
    return ticks.load();
}

extern "C" JNIEXPORT jint JNICALL Java_com_tessel_prb_live_programs_Signals_strangers(JNIEnv*,
                                                                                      jclass) {
    return others.load();
}
