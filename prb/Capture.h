// Reads a capture file: records, each behind its 4-byte big-endian length.
//
// The file may come from anywhere and may have been cut off anywhere. Lengths are checked
// before any reader sees a record; what is readable up to the fault is answered.
#ifndef PRB_PRB_CAPTURE_H
#define PRB_PRB_CAPTURE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace prb {

class Capture {
public:
    struct Record {
        std::size_t offset = 0; // of the record's length in the file
        std::string_view bytes; // valid while the capture lives
    };

    // Maps the file. Check problem() before anything else.
    explicit Capture(const std::string& path);
    // The same over bytes that outlive the object; `name` stands for the path in messages.
    Capture(std::string_view bytes, const std::string& name);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // Why the file cannot be read at all, in one line; empty when it can.
    const std::string& problem() const { return problem_; }

    // The next whole record; false at the end. A record that is cut off, or whose length is
    // impossible, ends the file: fault() then says so, with the offset.
    bool next(Record& record);
    const std::string& fault() const { return fault_; }
    std::size_t size() const { return bytes_.size(); }
    const std::string& name() const { return name_; }

private:
    void checkBeginning();

    std::string name_, problem_, fault_;
    std::string_view bytes_;
    std::size_t position_ = 0;
    void* mapping_ = nullptr;
};

} // namespace prb

#endif
