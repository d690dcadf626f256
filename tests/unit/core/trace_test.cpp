#include "core/InternalTraceTable.h"
#include "core/PRBCollections.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBTrace.h"
#include "core/PRB_Profiler_Log.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct Filter {
    explicit Filter(std::initializer_list<const char*> names) {
        for (const char* name : names) list.insert(new PRBCollectableString(name));
        PRBTrace::filter.store(&list);
    }
    ~Filter() {
        PRBTrace::filter.store(nullptr);
        list.clearAndDestroy();
    }
    PRBSlist list;
};

std::string entry(const InternalTraceTable& table, int i) {
    return std::string(table.begin()[i].text, 64);
}

std::string padded(const std::string& text) { return text + std::string(64 - text.size(), ' '); }

} // namespace

TEST(Trace, isOffWithoutALevel) {
    EXPECT_FALSE(PRBTrace::isTraceEnabled(0x200, "PRBCMNGL"));
    EXPECT_FALSE(PRBTrace::isDebugEnabled("PRBCMNGL"));
    EXPECT_FALSE(PRBTrace::isTraceEnabled(0x200, nullptr));
    PRBTrace::writeToLog("nobody listens");
    PRBTrace::log("nor %s", "here");
}

TEST(Trace, tellsByClassAndLevel) {
    PRBTrace::level.store(0x200);
    EXPECT_FALSE(PRBTrace::isTraceEnabled(0x800, "PRBCMASK"));
    EXPECT_TRUE(PRBTrace::isTraceEnabled(0x200, "PRBCMNGL"));
    EXPECT_TRUE(PRBTrace::isTraceEnabled(0x600, "PRBCMNGL"));
    EXPECT_TRUE(PRBTrace::isDebugEnabled("PRBCMASK"));
    PRBTrace::level.store(-1);
    EXPECT_TRUE(PRBTrace::isTraceEnabled(0x1, "PRBCMNGL"));
    // The sign bit alone is no positive number.
    EXPECT_FALSE(PRBTrace::isTraceEnabled(static_cast<int>(0x80000000u), "PRBCMNGL"));
}

TEST(Trace, theFilterMatchesTheBeginningOfAComponent) {
    PRBTrace::level.store(0x1E00);
    Filter filter({"PRBCJV"});
    EXPECT_TRUE(PRBTrace::isTraceEnabled(0x200, "PRBCJVTH"));
    EXPECT_TRUE(PRBTrace::isDebugEnabled("PRBCJVCL"));
    EXPECT_FALSE(PRBTrace::isTraceEnabled(0x200, "PRBCMNGL"));
    EXPECT_FALSE(PRBTrace::isDebugEnabled("PRBCMNGL"));
    EXPECT_FALSE(PRBTrace::isDebugEnabled("prbcjvth"));
    EXPECT_FALSE(PRBTrace::isDebugEnabled("PRBC")); // shorter than the entry
    EXPECT_TRUE(PRBTrace::isTraceEnabled(0x200, nullptr));
    EXPECT_TRUE(PRBTrace::isDebugEnabled(nullptr));
    EXPECT_TRUE(PRBTrace::doesDebugFilterMatch("PRBCJVTH"));
}

TEST(Trace, anEmptyFilterSilencesNamedComponentsAndAnEmptyEntryPassesAll) {
    PRBTrace::level.store(0x1E00);
    {
        Filter filter({});
        EXPECT_FALSE(PRBTrace::isTraceEnabled(0x200, "PRBCMNGL"));
        EXPECT_FALSE(PRBTrace::isDebugEnabled("PRBCMNGL"));
        EXPECT_TRUE(PRBTrace::isTraceEnabled(0x200, nullptr));
    }
    EXPECT_FALSE(PRBTrace::doesDebugFilterMatch("PRBCMNGL")); // no filter, no match
    Filter filter({"x", ""});
    EXPECT_TRUE(PRBTrace::isTraceEnabled(0x200, "PRBCMNGL"));
}

TEST(Trace, theFilterIsDecidedAlikeForEveryComponent) {
    PRBTrace::level.store(0x1E00);
    const std::vector<std::string> components = {
        "PRBCMNGL", "PRBCLOG", "PRBCPLOG", "PRBCRETC", "PRBCPRER", "PRBCMASK", "PRBCMEMM",
        "PRBCJVRM", "PRBCJVTH", "PRBCJVCL", "PRBCJVMT", "PRBCJVOB", "PRBCJVOA", "PRBCCPUS",
        "PRBCCLCO", "PRBCBUFF", "PRBCTRAN", "PRBCKYST", "PRBCSAMP", "PRBCTIME", "PRBCUTIL",
        "PRBCRSCA", "PRBCAASA", "PRBCAPSA", "PRBCCNSA", "PRBCCOSA", "PRBCDBSA", "PRBCDSSA",
        "PRBCEBSA", "PRBCEJSA", "PRBCEMSA", "PRBCENSA", "PRBCGCSA", "PRBCHESA", "PRBCHSSA",
        "PRBCMSSA", "PRBCMUSA", "PRBCOPSA", "PRBCPRSA", "PRBCSOSA", "PRBCSVSA", "PRBCTHSA",
        "PRBCTRSA", "PRBCWBSA", "PRBCWDSA", "PRBCWESA", "PRBCWSSA",
        // and names that are none
        "PRBC", "PRBCM", "PRBCLO", "PRBCLOGX", "PRBCMNGLX", "PRBDMNGL", "x", "", "PRBCJVXX"};
    for (const std::string& one : components) {
        for (std::size_t length : {one.size(), one.size() / 2, std::size_t{5}}) {
            const std::string entry = one.substr(0, length);
            Filter filter({"other", entry.c_str()});
            for (const std::string& name : components)
                EXPECT_EQ(PRBTrace::isDebugEnabled(name.c_str()),
                          name.compare(0, entry.size(), entry) == 0)
                    << name << " under " << entry;
        }
    }
    EXPECT_TRUE(PRBTrace::isDebugEnabled("PRBCMNGL")); // without a filter everything passes
}

TEST(InternalTraceTable, fillsWithBlanksAndCuts) {
    InternalTraceTable table(3, nullptr);
    EXPECT_EQ(entry(table, 0), std::string(64, ' '));
    const std::string hundred(100, 'x');
    table.newTraceEntry(hundred.c_str());
    table.newTraceEntry("short");
    EXPECT_EQ(entry(table, 0), std::string(64, 'x'));
    EXPECT_EQ(entry(table, 1), padded("short"));
    EXPECT_EQ(entry(table, 2), std::string(64, ' '));
    EXPECT_EQ(table.nextEntry(), table.begin() + 2);
}

TEST(InternalTraceTable, overwritesTheOldestEntry) {
    InternalTraceTable table(500, nullptr);
    for (int i = 0; i < 500; ++i) table.newTraceEntry(std::to_string(i).c_str());
    EXPECT_EQ(table.nextEntry(), table.begin());
    table.newTraceEntry("the 501st");
    EXPECT_EQ(entry(table, 0), padded("the 501st"));
    EXPECT_EQ(entry(table, 1), padded("1"));
    EXPECT_EQ(entry(table, 499), padded("499"));
}

TEST(InternalTraceTable, takesTheLinesInsteadOfTheFile) {
    InternalTraceTable table(4, nullptr);
    PRBTrace::table.store(&table);
    PRBTrace::level.store(0x200);
    int answer;
    {
        PRBTraceScope quiet(0x800, "PRBCMNGL", "quiet");
        PRBTraceScope trace(0x200, "PRBCMNGL", "loud");
        answer = trace.returns(7);
    }
    { PRBTraceScope trace(0x200, "PRBCMNGL", "plain"); }
    PRBTrace::table.store(nullptr);
    EXPECT_EQ(answer, 7);
    EXPECT_EQ(entry(table, 0), padded("loud Entry"));
    EXPECT_EQ(entry(table, 1), padded("loud Exit with return value 7"));
    EXPECT_EQ(entry(table, 2), padded("plain Entry"));
    EXPECT_EQ(entry(table, 3), padded("plain Exit"));
}

TEST(Trace, linesOfAnyLengthAreFormatted) {
    InternalTraceTable table(1, nullptr);
    PRBTrace::table.store(&table);
    const std::string longText(5000, 'y');
    PRBTrace::log("%s%%%i", longText.c_str(), 5);
    EXPECT_EQ(entry(table, 0), std::string(64, 'y'));
    PRBTrace::log("100%% of %s", "%s%n"); // percent signs of users are no formats
    EXPECT_EQ(entry(table, 0), padded("100% of %s%n"));
    PRBTrace::table.store(nullptr);
}

namespace {

struct SpyLog : PRB_Log {
    using PRB_Log::PRB_Log;
    struct Seen {
        std::string a, b, text;
        int c, isError, argument;
    };
    mutable std::vector<Seen> seen;
    using PRB_Log::SendMessage;
    int SendMessage(const char* a, const char* b, int c, const char* text, void*& args,
                    int isError) const override {
        seen.push_back({a, b, text, c, isError, va_arg(static_cast<Arguments*>(args)->list, int)});
        return 77;
    }
};

} // namespace

TEST(MessageLog, theTableHasSixTexts) {
    const std::vector<std::string> texts = {
        "PRB001I OPX for WebSphere Application Server startup complete",
        "PRB002E Exception % caught in %s %s",
        "PRB003E Environmental error %i caught in %s rc = %i",
        "PRB004E Exception %s caught",
        "PRB005E Exception address %X",
        "PRB006E Windows exception address %X",
    };
    EXPECT_EQ(std::vector<std::string>(pProfilerMessageTable,
                                       pProfilerMessageTable + ProfilerMessageTableSize),
              texts);
}

TEST(MessageLog, messagesAndErrorsTakeTheNumberInDifferentPlaces) {
    SpyLog log(pProfilerMessageTable, ProfilerMessageTableSize);
    EXPECT_EQ(log.LogMessage("a", "b", 9, 4, 123), 77);
    EXPECT_EQ(log.LogError("a", "b", 5, 9, 456), 77);
    ASSERT_EQ(log.seen.size(), 2u);
    EXPECT_EQ(log.seen[0].text, "PRB004E Exception %s caught");
    EXPECT_EQ(log.seen[0].c, 9);
    EXPECT_EQ(log.seen[0].isError, 0);
    EXPECT_EQ(log.seen[0].argument, 123);
    EXPECT_EQ(log.seen[1].text, "PRB005E Exception address %X");
    EXPECT_EQ(log.seen[1].c, 9);
    EXPECT_EQ(log.seen[1].isError, 1);
    EXPECT_EQ(log.seen[1].argument, 456);
    EXPECT_EQ(log.seen[0].a + log.seen[0].b, "ab");
}

TEST(MessageLog, numbersWithoutATextSendNothing) {
    SpyLog log(pProfilerMessageTable, ProfilerMessageTableSize);
    EXPECT_EQ(log.LogMessage("a", "b", 9, 0, 1), 0);
    EXPECT_EQ(log.LogError("a", "b", 7, 9, 1), 1);
    EXPECT_TRUE(log.seen.empty());
}

TEST(MessageLog, theProfilersOwnSendsNumberedMessagesNowhere) {
    InternalTraceTable table(1, nullptr);
    PRBTrace::table.store(&table);
    PRB_Profiler_Log log;
    EXPECT_EQ(log.LogMessage("a", "b", 0, 1), 0);
    EXPECT_EQ(log.LogError("a", "b", 1, 0), 1);
    EXPECT_EQ(entry(table, 0), std::string(64, ' '));
    PRBTrace::table.store(nullptr);
}
