// Deferred deletion: what was taken out of a structure is deleted only when no thread that may
// still hold a pointer from it is reading. Readers never wait and take no lock, so they may run
// inside a collection pause.
#ifndef PRB_RUNTIME_PRBRECLAIMER_H
#define PRB_RUNTIME_PRBRECLAIMER_H

#include <atomic>
#include <cstdint>

// Process-wide, constant-initialised, never destroyed. Epochs: a reader counts itself into the
// epoch it starts in; the epoch advances only when the one before has no reader left; a thing
// retired in epoch e goes when the epoch has reached e + 2.
class PRBReclaimer {
public:
    // Pointers looked up during its life stay valid until its end. May nest, may last as long
    // as a whole data return: only reclaiming is put off.
    class Reader {
    public:
        Reader();
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

    private:
        std::uint32_t epoch_;
    };

    using Destroy = void (*)(void*);
    // Takes ownership. REQUIRES: no look-up that starts from now on can find the thing.
    static void retire(void* thing, Destroy destroy);
    template <typename T> static void retire(T* thing) {
        retire(thing, [](void* p) { delete static_cast<T*>(p); });
    }
    // Deletes what no reader can see any more; bounded by what was retired. Runs the destructors
    // on this thread. REQUIRES: no registry held, not inside a collection pause.
    static void reclaim();
    // The same once some 64 things have come together since the last time. For events that make
    // others retire things: the sampler and the polls reclaim, but there may be neither.
    static void reclaimIfMany();
    // Things retired and not deleted yet.
    static std::uint32_t pending();

private:
    static constexpr std::uint32_t kMany = 64;
    struct Node;
    static bool advance();
    static std::atomic<std::uint32_t> epoch;
    static std::atomic<std::uint32_t> readers[2];
    static std::atomic<Node*> retired;
    static std::atomic<std::uint32_t> count;
    static std::atomic<std::uint32_t> many; // when reclaimIfMany() acts next
    static std::atomic<bool> reclaiming;
};

#endif
