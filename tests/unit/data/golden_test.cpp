// A record of every class, byte for byte.
#include "tests/unit/data/DataTest.h"

#include "tests/unit/data/AllSamples.h"

using namespace datatest;

namespace {

struct Golden {
    const char* name;
    std::unique_ptr<PRBSample> (*create)();
    std::vector<std::pair<int, long long>> numbers;
    std::vector<std::pair<int, const char*>> texts;
    const char* record;
};

// Each line of a record is one field: kind, key, value; the first line is the header. The time
// is 0x65A0B1C2 and the duration 60 in all of them.
// clang-format off
const Golden kGolden[] = {
    {"PRBAppServerSample", [] { return create<PRBAppServerSample>(); },
     {{4, 4660}, {316, 90000}},
     {{5, "shop-1"}},
     "00000002 00000001"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000004 0000000000001234"
     "00000001 0000013C 0000000000015F90"
     "00000002 00000005 00000006 73686F702D31"},
    {"PRBContainerSample", [] { return create<PRBContainerSample>(); },
     {{121, 3}, {159, 5}, {17, 4294967295}},
     {{6, "default"}},
     "00000002 00000002"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000079 0000000000000003"
     "00000001 0000009F 0000000000000005"
     "00000001 00000011 00000000FFFFFFFF"
     "00000002 00000006 00000007 64656661756C74"},
    {"PRBTransactionSample", [] { return create<PRBTransactionSample>(); },
     {{54, 2}, {129, 1000000}},
     {{6, "tx"}},
     "00000002 00000003"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000036 0000000000000002"
     "00000001 00000081 00000000000F4240"
     "00000002 00000006 00000002 7478"},
    {"PRBObjectPoolSample", [] { return create<PRBObjectPoolSample>(); },
     {{122, 7}, {17, 1}},
     {{6, "pool"}},
     "00000002 00000004"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 0000007A 0000000000000007"
     "00000001 00000011 0000000000000001"
     "00000002 00000006 00000004 706F6F6C"},
    {"PRBEJBSample", [] { return create<PRBEJBSample>(); },
     {{200, 2}, {207, 12}},
     {{6, "c"}, {7, "OrderBean"}},
     "00000002 00000005"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 000000C8 0000000000000002"
     "00000001 000000CF 000000000000000C"
     "00000002 00000006 00000001 63"
     "00000002 00000007 00000009 4F726465724265616E"},
    {"PRBEJBMethodSample", [] { return create<PRBEJBMethodSample>(); },
     {{53, 1}, {220, 65536}},
     {{6, "c"}, {7, "OrderBean"}, {11, "place"}},
     "00000002 00000006"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000035 0000000000000001"
     "00000001 000000DC 0000000000010000"
     "00000002 00000006 00000001 63"
     "00000002 00000007 00000009 4F726465724265616E"
     "00000002 0000000B 00000005 706C616365"},
    {"PRBDBConnectPoolSample", [] { return create<PRBDBConnectPoolSample>(); },
     {{240, 10}, {243, 0}},
     {{8, "orders"}},
     "00000002 00000007"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 000000F0 000000000000000A"
     "00000001 000000F3 0000000000000000"
     "00000002 00000008 00000006 6F7264657273"},
    {"PRBApplicationSample", [] { return create<PRBApplicationSample>(); },
     {{260, 1}, {265, 31}},
     {{267, "www"}, {9, "shop"}},
     "00000002 00000008"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000104 0000000000000001"
     "00000001 00000109 000000000000001F"
     "00000002 0000010B 00000003 777777"
     "00000002 00000009 00000004 73686F70"},
    {"PRBServletSample", [] { return create<PRBServletSample>(); },
     {{272, 1}, {264, 1700000000}},
     {{267, "www"}, {9, "shop"}, {270, "cart"}, {271, "/cart.jsp"}},
     "00000002 00000009"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000110 0000000000000001"
     "00000001 00000108 000000006553F100"
     "00000002 0000010B 00000003 777777"
     "00000002 00000009 00000004 73686F70"
     "00000002 0000010E 00000004 63617274"
     "00000002 0000010F 00000009 2F636172742E6A7370"},
    {"PRBCThreadSample", [] { return create<PRBCThreadSample>(); },
     {{2, 255}, {4, 1}, {304, 2}, {305, -3}, {314, 1700000000123}, {313, 9}},
     {{301, "main"}, {302, "system"}},
     "00000002 0000000A"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000002 00000000000000FF"
     "00000001 00000004 0000000000000001"
     "00000001 00000130 0000000000000002"
     "00000001 00000131 FFFFFFFFFFFFFFFD"
     "00000001 0000013A 0000018BCFE5687B"
     "00000001 00000139 0000000000000009"
     "00000002 0000012D 00000004 6D61696E"
     "00000002 0000012E 00000006 73797374656D"},
    {"PRBMethodUsageSample", [] { return create<PRBMethodUsageSample>(); },
     {{2, 7}, {4, 1}, {314, 256}, {304, 0}, {310, 400}, {315, 500}, {321, 40}, {322, 41}},
     {{10, "com/example/Pricing"}, {11, "price"}, {320, "(I)J"}},
     "00000002 0000000B"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000002 0000000000000007"
     "00000001 00000004 0000000000000001"
     "00000001 0000013A 0000000000000100"
     "00000001 00000130 0000000000000000"
     "00000001 00000136 0000000000000190"
     "00000001 0000013B 00000000000001F4"
     "00000001 00000141 0000000000000028"
     "00000001 00000142 0000000000000029"
     "00000002 0000000A 00000013 636F6D2F6578616D706C652F50726963696E67"
     "00000002 0000000B 00000005 7072696365"
     "00000002 00000140 00000004 2849294A"},
    {"PRBContentionSample", [] { return create<PRBContentionSample>(); },
     {{2, 7}, {304, 1}, {307, 12}},
     {{10, "A"}, {11, "b"}, {320, "()V"}, {330, "java/lang/Object"}},
     "00000002 0000000C"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000002 0000000000000007"
     "00000001 00000130 0000000000000001"
     "00000001 00000133 000000000000000C"
     "00000002 0000000A 00000001 41"
     "00000002 0000000B 00000001 62"
     "00000002 00000140 00000003 282956"
     "00000002 0000014A 00000010 6A6176612F6C616E672F4F626A656374"},
    {"PRBHeapSample", [] { return create<PRBHeapSample>(); },
     {{4, 1}, {340, 1000}, {309, 24000}, {342, 1}},
     {{10, "java/lang/String"}},
     "00000002 0000000D"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000004 0000000000000001"
     "00000001 00000154 00000000000003E8"
     "00000001 00000135 0000000000005DC0"
     "00000001 00000156 0000000000000001"
     "00000002 0000000A 00000010 6A6176612F6C616E672F537472696E67"},
    {"PRBGarbageCollectionSample", [] { return create<PRBGarbageCollectionSample>(); },
     {{350, 12}, {352, 3}, {354, 1073741824}, {357, -4096}, {353, 2147483648}},
     {},
     "00000002 0000000E"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 0000015E 000000000000000C"
     "00000001 00000160 0000000000000003"
     "00000001 00000162 0000000040000000"
     "00000001 00000165 FFFFFFFFFFFFF000"
     "00000001 00000161 0000000080000000"},
    {"PRBProfilerError", [] { return create<PRBProfilerError>(); },
     {{360, 43}},
     {{361, "fork: no"}},
     "00000002 00000011"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000168 000000000000002B"
     "00000002 00000169 00000008 666F726B3A206E6F"},
    {"PRBProfilerResourceSample", [] { return create<PRBProfilerResourceSample>(); },
     {{4, 1}, {400, 1500}, {401, 1048576}, {402, 2097152}, {403, 0}},
     {},
     "00000002 00000012"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000004 0000000000000001"
     "00000001 00000190 00000000000005DC"
     "00000001 00000191 0000000000100000"
     "00000001 00000192 0000000000200000"
     "00000001 00000193 0000000000000000"},
    {"PRBWorkloadSumSample", [] { return create<PRBWorkloadSumSample>(); },
     {{700, 1}, {703, 10}, {704, 1000}, {705, 20}, {739, 1}},
     {},
     "00000002 0000001F"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 000002BC 0000000000000001"
     "00000001 000002BF 000000000000000A"
     "00000001 000002C0 00000000000003E8"
     "00000001 000002C1 0000000000000014"
     "00000001 000002E3 0000000000000001"},
    {"PRBWorkloadDetailSample", [] { return create<PRBWorkloadDetailSample>(); },
     {{750, 3}, {753, 2}, {754, 40}, {762, 1}},
     {},
     "00000002 00000020"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 000002EE 0000000000000003"
     "00000001 000002F1 0000000000000002"
     "00000001 000002F2 0000000000000028"
     "00000001 000002FA 0000000000000001"},
    {"PRBHTTPSample", [] { return create<PRBHTTPSample>(); },
     {{773, 1}, {770, 2}, {776, 3}},
     {{701, "a"}, {777, "shop"}, {774, "z"}},
     "00000002 00000021"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000305 0000000000000001"
     "00000001 00000302 0000000000000002"
     "00000001 00000308 0000000000000003"
     "00000002 000002BD 00000001 61"
     "00000002 00000309 00000004 73686F70"
     "00000002 00000306 00000001 7A"},
    {"PRBDataSourceDetSample", [] { return create<PRBDataSourceDetSample>(); },
     {{783, 1}, {789, 2}},
     {{8, "jdbc/x"}, {782, "y"}},
     "00000002 00000022"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 0000030F 0000000000000001"
     "00000001 00000315 0000000000000002"
     "00000002 00000008 00000006 6A6462632F78"
     "00000002 0000030E 00000001 79"},
    {"PRBWorkloadExceptionSample", [] { return create<PRBWorkloadExceptionSample>(); },
     {{703, 1}, {812, 9}, {731, 8}, {813, 7}},
     {},
     "00000002 00000024"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 000002BF 0000000000000001"
     "00000001 0000032C 0000000000000009"
     "00000001 000002DB 0000000000000008"
     "00000001 0000032D 0000000000000007"},
    {"PRBMethodSummarySample", [] { return create<PRBMethodSummarySample>(); },
     {{314, 5}, {321, 6}},
     {{10, "A"}, {11, "b"}, {320, "()V"}},
     "00000002 00000025"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 0000013A 0000000000000005"
     "00000001 00000141 0000000000000006"
     "00000002 0000000A 00000001 41"
     "00000002 0000000B 00000001 62"
     "00000002 00000140 00000003 282956"},
    {"PRBAppServerOverviewSample", [] { return create<PRBAppServerOverviewSample>(); },
     {{833, 1}, {62, 2}, {841, 3}},
     {{830, "n"}, {838, "m"}},
     "00000002 00000027"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"
     "00000001 00000341 0000000000000001"
     "00000001 0000003E 0000000000000002"
     "00000001 00000349 0000000000000003"
     "00000002 0000033E 00000001 6E"
     "00000002 00000346 00000001 6D"},
    {"PRBEndSample", [] { return create<PRBEndSample>(); },
     {},
     {},
     "00000002 000003E6"
     "00000001 00000014 0000000065A0B1C2"
     "00000001 00000015 000000000000003C"},
};
// clang-format on

class GoldenRecord : public testing::TestWithParam<Golden> {};

} // namespace

TEST_P(GoldenRecord, IsWrittenByteForByte) {
    const Golden& golden = GetParam();
    const auto sample = golden.create();
    sample->saveNumericData(20, 0x65A0B1C2);
    sample->saveNumericData(21, 60);
    // In reverse: the order of the bytes is the class's, not that of saving.
    for (auto it = golden.texts.rbegin(); it != golden.texts.rend(); ++it)
        sample->saveStringData(it->first, it->second);
    for (auto it = golden.numbers.rbegin(); it != golden.numbers.rend(); ++it)
        sample->saveNumericData(it->first, it->second);
    EXPECT_EQ(hex(streamed(*sample)), hex(bytes(golden.record)));
    // The general way, which streams key by key, gives the same.
    PRBBuffer general;
    sample->streamID(general);
    sample->streamData(general);
    EXPECT_EQ(hex(general), hex(bytes(golden.record)));
}

TEST_P(GoldenRecord, IsReadBackByReceivers) {
    const Golden& golden = GetParam();
    const std::string record = bytes(golden.record);
    PRBWireError error;
    const auto built =
        PRBTransportableData::buildFromBufferChecked(record.data(), record.size(), error);
    const int type = static_cast<int>(golden.create()->getSampleType());
    if (PRBSample::buildFromType(static_cast<_SampleType>(type)) == nullptr) {
        EXPECT_EQ(error.offset, 4u);
        return;
    }
    ASSERT_NE(built, nullptr) << error.text();
    for (const auto& [key, value] : golden.numbers)
        EXPECT_EQ(built->getNumericValueForStream(static_cast<unsigned>(key)), value) << key;
    for (const auto& [key, text] : golden.texts) EXPECT_EQ(built->getStringData(key), text) << key;
    EXPECT_EQ(hex(streamed(*built)), hex(record));
}

INSTANTIATE_TEST_SUITE_P(EveryClass, GoldenRecord, testing::ValuesIn(kGolden),
                         [](const auto& test) { return std::string(test.param.name); });
