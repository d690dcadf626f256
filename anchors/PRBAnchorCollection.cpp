#include "anchors/PRBAnchorCollection.h"

#include <utility>

namespace {

constexpr std::size_t kFirstSlots = 64;

} // namespace

std::size_t PRBAnchorCollection::locate(const PRBResourceAnchor& identity,
                                        std::uint32_t hash) const {
    std::size_t at = hash & (slots_.size() - 1);
    while (slots_[at].anchor != nullptr) {
        const Slot& slot = slots_[at];
        if (slot.hash == hash && slot.anchor->isA() == identity.isA() &&
            identity.isEqual(slot.anchor.get()))
            break;
        at = next(at);
    }
    return at;
}

PRBResourceAnchor* PRBAnchorCollection::find(const PRBResourceAnchor& identity) const {
    if (size_ == 0) return nullptr;
    return slots_[locate(identity, hashOf(identity))].anchor.get();
}

void PRBAnchorCollection::grow() {
    std::vector<Slot> old(slots_.empty() ? kFirstSlots : slots_.size() * 2);
    old.swap(slots_);
    for (Slot& slot : old) {
        if (slot.anchor == nullptr) continue;
        std::size_t at = slot.hash & (slots_.size() - 1);
        while (slots_[at].anchor != nullptr) at = next(at);
        slots_[at] = std::move(slot);
    }
}

PRBResourceAnchor* PRBAnchorCollection::insert(std::unique_ptr<PRBResourceAnchor> anchor) {
    if ((size_ + 1) * 2 > slots_.size()) grow();
    const std::uint32_t hash = hashOf(*anchor);
    Slot& slot = slots_[locate(*anchor, hash)];
    if (slot.anchor == nullptr) {
        slot = {std::move(anchor), hash};
        ++size_;
    }
    return slot.anchor.get();
}

std::unique_ptr<PRBResourceAnchor> PRBAnchorCollection::remove(const PRBResourceAnchor& identity) {
    if (size_ == 0) return nullptr;
    std::size_t hole = locate(identity, hashOf(identity));
    std::unique_ptr<PRBResourceAnchor> anchor = std::move(slots_[hole].anchor);
    if (anchor == nullptr) return nullptr;
    --size_;
    // Anchors behind the hole move up unless that would put them before their first slot.
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = next(hole); slots_[at].anchor != nullptr; at = next(at)) {
        const std::size_t home = slots_[at].hash & mask;
        if (((at - home) & mask) < ((at - hole) & mask)) continue;
        slots_[hole] = std::move(slots_[at]);
        hole = at;
    }
    return anchor;
}

PRBResourceAnchor* PRBAnchorCollection::save(std::unique_ptr<PRBSample> sample,
                                             unsigned int intervalId) {
    PRBResourceAnchor* anchor =
        insert(std::unique_ptr<PRBResourceAnchor>(sample->getResourceAnchor()));
    anchor->saveNewSample(sample.release(), intervalId);
    return anchor;
}
