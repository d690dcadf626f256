// The Java side's own serialiser, byte for byte against the agent's.
#include "data/PRBAppServerSample.h"
#include "data/PRBBuffer.h"
#include "data/PRBEndSample.h"
#include "tests/live/Live.h"

namespace live {
namespace {

std::string framed(const PRBTransportableData& record) {
    PRBBuffer buffer;
    record.stream(buffer);
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(buffer.size() >> shift & 0xFF);
    }
    return bytes.append(buffer);
}

class JavaSerialiser : public PerJdk {
protected:
    std::string serialised(const std::vector<std::string>& items) {
        std::vector<std::string> argv = {jdk().home + "/bin/java",
                                         "-Dfile.encoding=UTF-8",
                                         "-cp",
                                         product("tests/programs.jar") + ":" +
                                             product("prbprof.jar"),
                                         "com.tessel.prb.workanalysis.SerialiserProbe",
                                         "out.bin"};
        argv.insert(argv.end(), items.begin(), items.end());
        const prb::Captured result = run(argv);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return slurp("out.bin");
    }
};

TEST_P(JavaSerialiser, ApplicationServerRecordsAreTheAgentsOwn) {
    PRBAppServerSample sample;
    sample.saveNumericData(20, 1700000000);
    sample.saveNumericData(21, 7);
    sample.saveNumericData(4, 4711);
    sample.saveStringData(5, "shop one");
    PRBKeyValueSet pairs;
    pairs.defineKeyValuePair(2000, 1LL);
    pairs.defineKeyValuePair(2001, "OpenJDK VM");
    pairs.defineKeyValuePair(2033, 0LL);
    pairs.defineKeyValuePair(2031, -1LL);
    pairs.defineKeyValuePair(2019, "");
    pairs.defineKeyValuePair(2022, 0x123456789ABCLL);
    sample.save(pairs);
    EXPECT_EQ(serialised({"begin:1:1700000000:7", "number:4:4711", "text:5:shop one", "pair:2000:1",
                          "pairtext:2001:OpenJDK VM", "pair:2033:0", "pair:2031:-1",
                          "pairtext:2019:", "pair:2022:20015998343868", "end"}),
              framed(sample));
}

TEST_P(JavaSerialiser, NullValuesAreLeftOutAsTheAgentDoes) {
    PRBAppServerSample sample;
    sample.saveNumericData(20, 5);
    EXPECT_EQ(serialised({"begin:1:5:0", "number:4:-1", "text:5:", "end"}), framed(sample));
}

TEST_P(JavaSerialiser, EndRecordsAreTheAgentsOwn) {
    PRBEndSample end;
    end.saveNumericData(20, 0x7FFFFFFF);
    end.saveNumericData(21, 0);
    EXPECT_EQ(serialised({"begin:998:2147483647:0", "end"}), framed(end));
}

PRB_FOR_EVERY_JDK(JavaSerialiser);

} // namespace
} // namespace live
