// The anchors of a receiver: each resource once, found by its identity or by a pattern.
#ifndef PRB_ANCHORS_PRBANCHORCOLLECTION_H
#define PRB_ANCHORS_PRBANCHORCOLLECTION_H

#include "anchors/PRBResourceAnchor.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// Owns its anchors. Two anchors are the same resource when they are of one class (isA) and
// isEqual. Look-up takes constant time whatever the texts, as it hashes every identifying field
// (identityHash). Not locked; identifying fields of anchors in it must not change. The order of
// iteration is fixed by the identities and the order in which they came.
//
// A receiver's use: for every sample of a poll, save(sample, number of the poll); for a report,
// forEachMatch(PRBThreadAnchor::pattern(), ...) and each anchor's getLastHistoricalSample().
class PRBAnchorCollection {
public:
    PRBAnchorCollection() = default;
    PRBAnchorCollection(const PRBAnchorCollection&) = delete;
    PRBAnchorCollection& operator=(const PRBAnchorCollection&) = delete;

    // Null when there is none.
    PRBResourceAnchor* find(const PRBResourceAnchor& identity) const;
    // Keeps the anchor unless its resource is there; answers the one that is kept.
    // REQUIRES: not null.
    PRBResourceAnchor* insert(std::unique_ptr<PRBResourceAnchor> anchor);
    // Takes an anchor out; null when there is none.
    std::unique_ptr<PRBResourceAnchor> remove(const PRBResourceAnchor& identity);
    // Gives a sample to the anchor of its resource, which is made when it is new, as
    // PRBResourceAnchor::saveNewSample does. Answers the anchor. REQUIRES: not null.
    PRBResourceAnchor* save(std::unique_ptr<PRBSample> sample, unsigned int intervalId);

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    // Calls `use(PRBResourceAnchor&)` for every anchor, or for those that a pattern stands for.
    // `use` must neither insert nor remove. Looks at every anchor.
    template <class Use> void forEach(Use&& use) const {
        for (const Slot& slot : slots_)
            if (slot.anchor != nullptr) use(*slot.anchor);
    }
    template <class Use> void forEachMatch(const PRBResourceAnchor& pattern, Use&& use) const {
        forEach([&](PRBResourceAnchor& anchor) {
            if (anchor.doesItMatch(pattern)) use(anchor);
        });
    }

private:
    struct Slot {
        std::unique_ptr<PRBResourceAnchor> anchor; // null: free
        std::uint32_t hash = 0;
    };

    static std::uint32_t hashOf(const PRBResourceAnchor& anchor) {
        return static_cast<std::uint32_t>(anchor.identityHash());
    }
    std::size_t next(std::size_t at) const { return (at + 1) & (slots_.size() - 1); }
    // Where the anchor is, or the free slot where it belongs. REQUIRES: a free slot.
    std::size_t locate(const PRBResourceAnchor& identity, std::uint32_t hash) const;
    void grow();

    std::vector<Slot> slots_; // open addressing, linear probing; a power of two
    std::size_t size_ = 0;
};

#endif
