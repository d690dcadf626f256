// Where a stopped thread is found to be.
#include "StackSamplerTest.h"

#include <ucontext.h>

namespace bridge {
namespace {

TEST_F(StackSamplerTest, FailedWalksAreCountedByTheirCode) {
    Worker& worker = add(spin);
    worker.java.walkResult = -2; // a collection is running
    ASSERT_TRUE(
        cyclesUntil([&](const std::vector<Sample>&) { return sampler.counters().errors[2] >= 3; }));
    EXPECT_EQ(sampler.counters().samples, 0u);
    EXPECT_EQ(sampler.counters().traces, 0u);
    worker.java.walkResult = 1;
    ASSERT_TRUE(cyclesUntilSampled(worker)); // the credit is still there
    worker.java.walkResult = 0;
    ASSERT_TRUE(cyclesUntil(
        [&](const std::vector<Sample>&) { return sampler.counters().droppedSamples != 0; }));
    EXPECT_GT(sampler.counters().errors[0], 0u);
}

// In a prologue the walker fails until the stack looks as if the function had returned; afterwards
// the thread goes on with its own registers.
TEST_F(StackSamplerTest, AnUnknownTopFrameIsPopped) {
    Worker& worker = add(spin);
    static std::vector<std::uintptr_t> stack;
    static std::atomic<int> calls;
    static std::atomic<bool> right;
    calls = 0;
    right = true;
    SampleSignal::uninstall();
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(
        [](JVMPI_CallTrace* trace, jint, void* context) {
#if defined(__x86_64__)
            const greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
            const auto pc = static_cast<std::uintptr_t>(registers[REG_RIP]);
            const auto sp = static_cast<std::uintptr_t>(registers[REG_RSP]);
#else
            const greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
            const auto pc = static_cast<std::uintptr_t>(registers[REG_EIP]);
            const auto sp = static_cast<std::uintptr_t>(registers[REG_UESP]);
#endif
            static std::uintptr_t firstSp;
            const int call = calls++;
            if (call % 3 == 0) firstSp = sp;
            const auto* words = reinterpret_cast<const std::uintptr_t*>(firstSp);
            if (call % 3 != 0) {
                const auto k = static_cast<std::uintptr_t>(call % 3);
                if (sp != firstSp + k * sizeof(void*) || pc != words[k - 1] - 1) right = false;
            }
            trace->num_frames = call % 3 == 2 ? 1 : -5;
            if (call % 3 == 2) trace->frames[0] = {0, methodAt(5)};
        },
        {}, problem))
        << problem;
    ASSERT_TRUE(cyclesUntilSampled(worker));
    EXPECT_EQ(calls % 3, 0);
    EXPECT_TRUE(right);
    expectProgress(worker);
    EXPECT_EQ(sampler.counters().traces, 1u);
}

// C code that Java code has called directly, and that keeps no frame pointer: the return address
// into Java code is searched on the stack, and nothing else is taken for one.
// A walk that is begun in dead code would end the process.
TEST_F(StackSamplerTest, WhereDeadCodeCannotBeToldNothingIsSearched) {
    EXPECT_TRUE(sampler.searchesStacks());
    SampleSignal::uninstall();
    FakeSymbols symbols;
    symbols.add("nmethod", "_stack_traversal_mark", 4);
    VmStructs described;
    ASSERT_TRUE(described.resolve(symbols.lookup())) << described.problem();
    CodeBlobs code;
    code.resolve(described);
    static std::atomic<unsigned> walks;
    walks = 0;
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(
        [](JVMPI_CallTrace* trace, jint, void*) {
            walks++;
            trace->num_frames = -6;
        },
        code, problem))
        << problem;
    add(spin);
    ASSERT_TRUE(
        cyclesUntil([&](const std::vector<Sample>&) { return sampler.counters().errors[6] >= 3; }));
    EXPECT_LE(walks, sampler.counters().errors[6] + 2); // some may be under way

    ThreadTable threads;
    StackSampler other(threads, described, nullptr);
    SampleSignal::uninstall();
    ASSERT_TRUE(other.start(problem)) << problem;
    EXPECT_FALSE(other.searchesStacks());
}

TEST_F(StackSamplerTest, TheReturnAddressIntoJavaCodeIsSearched) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's frames are wider than what is searched";
#endif
    // Where neither a counter, a time nor an address of this process is found on a stack.
    static const std::uintptr_t low = 0x7ABC0000;
    static const std::uintptr_t high = 0x7ABD0000;
    constexpr std::uintptr_t kReturn = 0x7ABC1234;
    static std::atomic<int> calls;
    static std::atomic<std::uintptr_t> tried;
    calls = 0;
    SampleSignal::uninstall();
    FakeSymbols symbols;
    symbols.add("CodeCache", "_low_bound", 0, const_cast<std::uintptr_t*>(&low));
    symbols.add("CodeCache", "_high_bound", 0, const_cast<std::uintptr_t*>(&high));
    VmStructs described;
    ASSERT_TRUE(described.resolve(symbols.lookup())) << described.problem();
    CodeBlobs code;
    code.resolve(described);
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(
        [](JVMPI_CallTrace* trace, jint, void* context) {
            const greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
#if defined(__x86_64__)
            const auto pc = static_cast<std::uintptr_t>(registers[REG_RIP]);
#else
            const auto pc = static_cast<std::uintptr_t>(registers[REG_EIP]);
#endif
            trace->num_frames = -6;
            if (calls++ == 0) return;
            tried = pc;
            trace->num_frames = 1;
            trace->frames[0] = {0, methodAt(5)};
        },
        code, problem))
        << problem;
    Worker& worker = add([](Worker& self) {
        self.java.setState(VmStructs::kInJava);
        volatile std::uintptr_t frame[4] = {low - 1, kReturn, high, 0x1};
        while (!self.stop) {
            self.steps++;
            ownCpuNs();
        }
        if (frame[1] != kReturn) self.faults++;
    });
    ASSERT_TRUE(cyclesUntilSampled(worker));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(tried, kReturn - 1);
    expectProgress(worker);
    worker.finish();
    EXPECT_EQ(worker.faults, 0);
}

} // namespace
} // namespace bridge
