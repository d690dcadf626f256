// The record of a heap arena of the VM.
#ifndef PRB_CORE_PRBARENA_H
#define PRB_CORE_PRBARENA_H

#include "runtime/PRBJavaObject.h"

#include <string>

// Kept in "_ArenaTable" by arena id. Object records point to it; the arena-delete handler takes
// those pointers away before it deletes the record.
class PRBArena : public PRBJavaObject {
public:
    PRBArena() = default;
    PRBArena(int id, const char* arenaName) : arenaId(id), name(arenaName ? arenaName : "") {}

    // For look-ups in "_ArenaTable" by a holder of it, without a key.
    static std::uint32_t hashOf(int id) { return static_cast<std::uint32_t>(id); }
    struct HasId {
        int id;
        bool operator()(const PRBCollectable* record) const {
            return static_cast<const PRBArena*>(record)->arenaId == id;
        }
    };

    std::uint16_t isA() const override { return 32743; }
    std::uint32_t hash() const override { return hashOf(arenaId); }
    bool isEqual(const PRBCollectable* other) const override {
        return other->isA() == 32743 && static_cast<const PRBArena*>(other)->arenaId == arenaId;
    }

    int getArenaId() const { return arenaId; }
    const std::string& getName() const { return name; }

private:
    int arenaId = 0;
    std::string name;
};

#endif
