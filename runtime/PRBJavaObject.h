// Base of the records of the runtime model: carries the one decision that they share, whether
// the thing falls inside the masks that the user gave.
#ifndef PRB_RUNTIME_PRBJAVAOBJECT_H
#define PRB_RUNTIME_PRBJAVAOBJECT_H

#include "core/PRBCollectable.h"

#include <atomic>
#include <cstdint>

// The monitored status. Mind the sense: 0 means "monitor", so callers compare with 0.
namespace PRBMonitored {
constexpr int kMonitor = 0;
constexpr int kIgnore = 1;
constexpr int kUndecided = 2;
} // namespace PRBMonitored

class PRBJavaObject : public PRBCollectable {
public:
    PRBJavaObject() = default;
    PRBJavaObject(const PRBJavaObject& other);
    PRBJavaObject& operator=(const PRBJavaObject& other);

    // Forgets the decision, decides again at once, answers the status. May call the VM (see
    // PRBJavaMethod), so REQUIRES: no registry held; under a registry use markUndecided.
    virtual int resetShouldBeMonitoredStatus();
    // 0 monitor, 1 do not, 2 not decided. Decided lazily and kept until the next reset.
    virtual int shouldBeMonitored();

    // Forgets the decision; the next query makes it anew. Callable under any lock.
    void markUndecided();

    // Changes whenever some decision may have changed: a mask list was replaced or a class went.
    // A decision noted together with the epoch holds while the epoch stays the same.
    static std::uint32_t getDecisionEpoch() {
        return decisionEpoch.load(std::memory_order_acquire);
    }

protected:
    int getStatus() const { return static_cast<int>(readDecision() & 3U); }
    // A decision made from what the masks say now must not overwrite a reset that came
    // meanwhile: read the word first, ask the masks, then store against that word.
    std::uint32_t readDecision() const { return decision.load(std::memory_order_acquire); }
    int storeDecision(std::uint32_t read, bool monitor);
    static void newDecisionEpoch() { decisionEpoch.fetch_add(1, std::memory_order_acq_rel); }

private:
    // The status in the low two bits, the number of resets above them.
    std::atomic<std::uint32_t> decision{PRBMonitored::kUndecided};
    static std::atomic<std::uint32_t> decisionEpoch;
};

#endif
