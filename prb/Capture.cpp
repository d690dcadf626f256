#include "prb/Capture.h"

#include "data/PRBRecordReader.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace prb {

namespace {

constexpr std::size_t kLengthBytes = 4;
constexpr std::size_t kShortestRecord = 4; // encoding and data type
// A record is one sample: names of a thread or method, or the facts of a run. Far above any
// that the agent writes, far below what would only be a number read from a foreign file.
constexpr std::size_t kLongestRecord = 64u << 20;

std::uint32_t bigEndian(std::string_view bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < kLengthBytes; i++) {
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return value;
}

} // namespace

Capture::Capture(const std::string& path) : name_(path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0) {
        problem_ = path + ": " + strerrordesc_np(errno) + "; name a capture file (*.prb)";
    } else if (!S_ISREG(status.st_mode)) {
        problem_ = path + " is not a file; name a capture file (*.prb)";
    } else if (status.st_size == 0) {
        problem_ = path + " is empty: the profiled program ended before the agent could start, "
                          "or the disk is full";
    } else {
        const auto size = static_cast<std::size_t>(status.st_size);
        void* mapped = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (mapped == MAP_FAILED) {
            problem_ = path + " cannot be read: " + strerrordesc_np(errno);
        } else {
            mapping_ = mapped;
            bytes_ = {static_cast<const char*>(mapped), size};
            checkBeginning();
        }
    }
    if (fd >= 0) close(fd);
}

Capture::Capture(std::string_view bytes, const std::string& name) : name_(name), bytes_(bytes) {
    if (bytes_.empty()) {
        problem_ = name + " is empty";
    } else {
        checkBeginning();
    }
}

Capture::~Capture() {
    if (mapping_ != nullptr) munmap(mapping_, bytes_.size());
}

void Capture::checkBeginning() {
    // A capture starts with a sample; anything else is some other file.
    const std::string foreign = name_ +
                                " is not a capture of prbprof (it does not begin with a record); "
                                "captures are written by 'prb run'";
    if (bytes_.size() < kLengthBytes) {
        problem_ = foreign;
        return;
    }
    const std::uint32_t length = bigEndian(bytes_);
    const bool plausible = length >= kShortestRecord && length <= kLongestRecord;
    if (plausible && length > bytes_.size() - kLengthBytes) {
        // Cut off inside the first record: is what there is at least the start of one?
        const std::string_view start = bytes_.substr(kLengthBytes);
        if (start.size() >= 4 && start.substr(0, 4) != std::string_view("\0\0\0\2", 4)) {
            problem_ = foreign;
        } else {
            problem_ = name_ + " is cut off inside its first record; nothing can be shown";
        }
        return;
    }
    if (!plausible) {
        problem_ = foreign;
        return;
    }
    const PRBRecordReader first(bytes_.data() + kLengthBytes, length);
    if (first.error().isSet() || !first.isSample()) problem_ = foreign;
}

bool Capture::next(Record& record) {
    if (!problem_.empty() || !fault_.empty() || position_ == bytes_.size()) return false;
    const std::string_view rest = bytes_.substr(position_);
    const auto stop = [this](const std::string& what) {
        fault_ = name_ + ": offset " + std::to_string(position_) + ": " + what;
        return false;
    };
    if (rest.size() < kLengthBytes) return stop("the file is cut off inside a record's length");
    const std::uint32_t length = bigEndian(rest);
    if (length < kShortestRecord || length > kLongestRecord) {
        return stop("impossible record length " + std::to_string(length));
    }
    if (length > rest.size() - kLengthBytes) {
        return stop("the file is cut off: a record of " + std::to_string(length) +
                    " bytes has only " + std::to_string(rest.size() - kLengthBytes));
    }
    record.offset = position_;
    record.bytes = rest.substr(kLengthBytes, length);
    position_ += kLengthBytes + length;
    return true;
}

} // namespace prb
