#include "prb/Capture.h"
#include "tests/unit/prb/CaptureBytes.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using prb::Capture;
using testing::HasSubstr;

namespace {

std::size_t recordsOf(Capture& capture) {
    std::size_t n = 0;
    for (Capture::Record record; capture.next(record);) n++;
    return n;
}

TEST(Capture, AnswersEachRecordWithItsOffset) {
    const std::string first = CaptureBytes::Record(1).number(4, 7).bytes;
    const std::string second = CaptureBytes::Record(998).bytes;
    const std::string bytes = CaptureBytes().raw(first).raw(second).bytes;
    Capture capture(bytes, "x.prb");
    Capture::Record record;
    ASSERT_TRUE(capture.next(record));
    EXPECT_EQ(record.offset, 0u);
    EXPECT_EQ(record.bytes, first);
    ASSERT_TRUE(capture.next(record));
    EXPECT_EQ(record.offset, 4 + first.size());
    EXPECT_EQ(record.bytes, second);
    EXPECT_FALSE(capture.next(record));
    EXPECT_EQ(capture.fault(), "");
}

TEST(Capture, EveryCutLeavesTheWholeRecordsBeforeIt) {
    const std::string whole = CaptureBytes().smallRun().bytes;
    std::size_t all = 0;
    {
        Capture capture(whole, "whole");
        all = recordsOf(capture);
    }
    std::size_t firstRecord =
        4 + (static_cast<unsigned char>(whole[2]) << 8) + static_cast<unsigned char>(whole[3]);
    for (std::size_t cut = 1; cut < whole.size(); cut++) {
        const std::string part = whole.substr(0, cut);
        Capture capture(part, "cut");
        const std::size_t n = recordsOf(capture);
        EXPECT_LT(n, all);
        if (cut < firstRecord) {
            EXPECT_NE(capture.problem(), "") << cut;
        } else {
            EXPECT_EQ(capture.problem(), "") << cut;
            EXPECT_GE(n, 1u);
        }
    }
}

TEST(Capture, ImpossibleLengthsEndTheFileWithTheirOffset) {
    for (std::uint32_t length : {0u, 3u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        CaptureBytes good;
        good.add(CaptureBytes::Record(998));
        const std::string bytes = good.bytes + CaptureBytes::big(length, 4) + "abcdef";
        Capture capture(bytes, "bad.prb");
        EXPECT_EQ(recordsOf(capture), 1u);
        EXPECT_THAT(capture.fault(), HasSubstr("bad.prb: offset 12: "));
        EXPECT_THAT(capture.fault(), HasSubstr(std::to_string(length)));
    }
}

TEST(Capture, ARecordThatIsLongerThanTheRestIsACutFile) {
    const std::string bytes =
        CaptureBytes().add(CaptureBytes::Record(998)).bytes + CaptureBytes::big(100, 4) + "12345";
    Capture capture(bytes, "c");
    EXPECT_EQ(recordsOf(capture), 1u);
    EXPECT_THAT(capture.fault(), HasSubstr("cut off: a record of 100 bytes has only 5"));
}

TEST(Capture, ForeignFilesAreNamedAsSuch) {
    for (const std::string& text :
         {std::string("#!/bin/sh\necho hello\n"), std::string("PK\x03\x04zip"), std::string("ab"),
          std::string(64, '\0'), std::string("\0\0\0\x08\0\0\0\0abcd", 12)}) {
        Capture capture(text, "f");
        EXPECT_THAT(capture.problem(), HasSubstr("is not a capture of prbprof")) << text;
        Capture::Record record;
        EXPECT_FALSE(capture.next(record));
    }
}

TEST(Capture, UnreadableAndEmptyFilesSayWhatToDo) {
    EXPECT_THAT(Capture("/no/such/file.prb").problem(),
                HasSubstr("/no/such/file.prb: No such file or directory"));
    EXPECT_THAT(Capture("/").problem(), HasSubstr("not a file"));
    const std::string path = testing::TempDir() + "empty.prb";
    std::ofstream(path).close();
    EXPECT_THAT(Capture(path).problem(), HasSubstr("is empty"));
    std::filesystem::remove(path);
}

TEST(Capture, ReadsFromAFile) {
    const std::string path = testing::TempDir() + "small.prb";
    std::ofstream(path, std::ios::binary) << CaptureBytes().smallRun().bytes;
    Capture capture(path);
    EXPECT_EQ(capture.problem(), "");
    EXPECT_EQ(recordsOf(capture), 10u);
    std::filesystem::remove(path);
}

} // namespace
