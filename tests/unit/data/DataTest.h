// What the tests of records share: bytes as hex texts, a decoder that has nothing in common with
// the code under test, and the agent's log as lines.
#ifndef PRB_TESTS_UNIT_DATA_DATATEST_H
#define PRB_TESTS_UNIT_DATA_DATATEST_H

#include "core/PRBCollections.h"
#include "core/PRBLogFile.h"
#include "core/PRBTrace.h"
#include "data/PRBBuffer.h"
#include "tests/vm/TestFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <utility>
#include <vector>

namespace datatest {

// "00 0A" -> two bytes; anything that is no hex digit is passed over.
inline std::string bytes(const std::string& hex) {
    std::string out;
    int digits = 0, value = 0;
    for (char c : hex) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) continue;
        value = value * 16 + std::stoi(std::string(1, c), nullptr, 16);
        if (++digits % 2 == 0) {
            out += static_cast<char>(value);
            value = 0;
        }
    }
    return out;
}

inline std::string hex(const std::string& bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (char c : bytes) {
        out += digits[static_cast<unsigned char>(c) / 16];
        out += digits[static_cast<unsigned char>(c) % 16];
    }
    return out;
}

struct Decoded {
    unsigned encoding = 0, dataType = 0;
    long sampleType = -1;
    // Key, and "n:<number>" or "t:<text>", in the order of the bytes.
    std::vector<std::pair<int, std::string>> fields;

    std::string of(int key) const {
        for (const auto& [k, value] : fields)
            if (k == key) return value;
        return "";
    }
};

// Reads a well-formed record, one byte at a time.
inline Decoded decode(const std::string& record) {
    std::size_t at = 0;
    const auto number = [&](int n) {
        unsigned long long value = 0;
        while (n-- > 0) value = value * 256 + static_cast<unsigned char>(record.at(at++));
        return value;
    };
    Decoded d;
    d.encoding = static_cast<unsigned>(number(2));
    d.dataType = static_cast<unsigned>(number(2));
    if (d.dataType == 2) d.sampleType = static_cast<long>(number(4));
    while (at < record.size()) {
        const unsigned long long type = number(4);
        const int key = static_cast<int>(number(4));
        if (type == 1) {
            d.fields.emplace_back(key, "n:" + std::to_string(static_cast<long long>(number(8))));
        } else {
            std::string text;
            for (unsigned long long n = number(4); n > 0; --n) text += record.at(at++);
            d.fields.emplace_back(key, "t:" + text);
        }
    }
    return d;
}

template <class Record> Decoded decoded(const Record& record) {
    PRBBuffer buffer;
    record.stream(buffer);
    return decode(buffer);
}

template <class Record> std::string streamed(const Record& record) {
    PRBBuffer buffer;
    record.stream(buffer);
    return buffer;
}

// Tests that read the log: it lies in a folder of the test's own. Tracing is off until
// traceAll or debugOn.
class LogTest : public ::testing::Test {
protected:
    LogTest() { PRBTrace::logFile = &file_; }
    ~LogTest() override {
        PRBTrace::level = 0;
        PRBTrace::filter = nullptr;
        PRBTrace::logFile = nullptr;
        filter_.clearAndDestroy();
    }

    // Debug lines of a component, and its entry and exit lines of the given classes.
    void trace(int level, const char* component) {
        filter_.insert(new PRBCollectableString(component));
        PRBTrace::filter = &filter_;
        PRBTrace::level = level;
    }
    void debugOn(const char* component) { trace(1, component); }

    // The texts handed to the log since the last call, without date, time and CR LF.
    std::vector<std::string> lines() {
        const std::string log = folder_.read(scripted::TestFolder::logName()).substr(seen_);
        seen_ += log.size();
        std::vector<std::string> out;
        for (std::size_t at = 0; at < log.size();) {
            const std::size_t end = log.find("\r\n", at);
            const std::string line = log.substr(at, end - at);
            out.push_back(line.substr(line.find("  ", kShortestDate) + 2));
            at = end + 2;
        }
        return out;
    }

private:
    static constexpr std::size_t kShortestDate = 17; // "01/02/03 04:05:06"
    scripted::TestFolder folder_;
    PRBLogFile file_{nullptr};
    PRBSlist filter_;
    std::size_t seen_ = 0;
};

} // namespace datatest

#endif
