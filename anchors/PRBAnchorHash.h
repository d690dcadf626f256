// The hash over all identifying fields of an anchor.
#ifndef PRB_ANCHORS_PRBANCHORHASH_H
#define PRB_ANCHORS_PRBANCHORHASH_H

#include <cstdint>
#include <cstring>
#include <string>

// Folds numbers and texts into 64 bits, eight bytes at a time. The same values in the same order
// give the same hash on both word sizes; not for keys that somebody chooses with bad intent.
class PRBAnchorHash {
public:
    void add(std::uint64_t value) {
        state_ = (state_ ^ value) * 0x9E3779B97F4A7C15u;
        state_ ^= state_ >> 32;
    }
    void add(const std::string& text) {
        const char* at = text.data();
        std::size_t left = text.size();
        add(std::uint64_t{left});
        for (; left >= 8; left -= 8, at += 8) {
            std::uint64_t word;
            std::memcpy(&word, at, 8);
            add(word);
        }
        if (left == 0) return;
        std::uint64_t word = 0;
        std::memcpy(&word, at, left);
        add(word);
    }
    std::uint64_t value() const {
        const std::uint64_t mixed = state_ * 0xD6E8FEB86659FD93u;
        return mixed ^ mixed >> 32;
    }

private:
    std::uint64_t state_ = 0x243F6A8885A308D3u;
};

#endif
