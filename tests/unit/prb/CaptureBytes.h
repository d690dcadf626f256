// Builds capture files byte by byte, sharing no code with the writers of the product.
#ifndef PRB_TESTS_UNIT_PRB_CAPTUREBYTES_H
#define PRB_TESTS_UNIT_PRB_CAPTUREBYTES_H

#include <cstdint>
#include <string>

class CaptureBytes {
public:
    static std::string big(std::uint64_t value, int bytes) {
        std::string result;
        for (int i = bytes - 1; i >= 0; i--) {
            result += static_cast<char>(value >> (8 * i) & 0xFF);
        }
        return result;
    }

    struct Record {
        std::string bytes;
        explicit Record(int type)
            : bytes(big(0, 2) + big(2, 2) + big(static_cast<unsigned>(type), 4)) {}
        Record& number(int key, long long value) {
            bytes += big(1, 4) + big(static_cast<unsigned>(key), 4) +
                     big(static_cast<std::uint64_t>(value), 8);
            return *this;
        }
        Record& text(int key, const std::string& value) {
            bytes += big(2, 4) + big(static_cast<unsigned>(key), 4) + big(value.size(), 4) + value;
            return *this;
        }
    };

    CaptureBytes& add(const Record& record) { return raw(record.bytes); }
    CaptureBytes& raw(const std::string& record) {
        bytes += big(record.size(), 4) + record;
        return *this;
    }
    // The records of a small run: 100 cycles of 10 ms in one poll, two threads and the poller.
    CaptureBytes& smallRun(bool complete = true) {
        Record facts(1);
        facts.number(20, 1).number(21, 0).number(4, 77).text(5, "shop").number(2004, 64);
        facts.text(2001, "OpenJDK VM").text(2002, "17.0.15").number(2022, 1000000);
        add(facts);
        add(thread(1, "main", 60, 5, 0));
        add(thread(2, "worker", 30, 0, 70));
        add(thread(9, "PRB_Poller_Thread", 10, 0, 90));
        add(method(1, "com/x/A", "price", "(I)V", 50, 0));
        add(method(1, "com/x/A", "main", "([Ljava/lang/String;)V", 10, 50));
        add(method(2, "com/x/B", "run", "()V", 30, 0));
        add(method(9, "com/tessel/prb/workanalysis/Poller", "run", "()V", 10, 0));
        if (complete) {
            facts.number(2039, 1001001)
                .text(2099, "cycles+dropped")
                .number(2100, 100)
                .number(2101, 3);
            add(facts);
        }
        return add(Record(998).number(20, 1).number(21, 0));
    }
    // `cycles` of the sampler ended `atMs`.
    static Record thread(int id, const std::string& name, long long busy, long long blocked,
                         long long waiting, long long cycles = 100, long long atMs = 1001000) {
        return Record(10)
            .number(2, id)
            .number(4, 77)
            .number(316, 1234)
            .number(310, 100)
            .number(315, cycles)
            .number(314, atMs)
            .number(311, busy)
            .number(312, blocked)
            .number(313, waiting)
            .text(301, name)
            .text(302, "main");
    }
    static Record method(int thread, const std::string& cls, const std::string& name,
                         const std::string& signature, long long own, long long callees) {
        return Record(11)
            .number(2, thread)
            .number(314, 1001000)
            .number(315, 100)
            .number(321, own)
            .number(322, callees)
            .text(10, cls)
            .text(11, name)
            .text(320, signature);
    }

    std::string bytes;
};

#endif
