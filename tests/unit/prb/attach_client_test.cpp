// The talk with a VM's attach listener, which is played here.
#include "prb/AttachClient.h"
#include "prb/AttachSession.h"
#include "tests/unit/prb/ProcFolder.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

using namespace prb;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class AttachClientTest : public testing::Test {
public:
    ~AttachClientTest() override {
        if (listener.joinable()) listener.join();
    }
    AttachClientTest(const AttachClientTest&) = delete;
    AttachClientTest& operator=(const AttachClientTest&) = delete;

protected:
    AttachClientTest() {
        target.pid = 4711;
        target.innerPid = 7;
        target.uid = geteuid();
        target.gid = getegid();
        target.proc = folder.process;
        target.root = folder.root;
        target.arguments = {"java", "Main"};
    }
    std::string socketPath() const { return folder.root + "/tmp/.java_pid7"; }
    std::string inviting() const { return folder.process + "/cwd/.attach_pid7"; }

    int openSocket() const {
        const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = socketPath();
        EXPECT_LT(path.size(), sizeof address.sun_path);
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(0, bind(made, reinterpret_cast<sockaddr*>(&address), sizeof address));
        return made;
    }
    // The VM's side: takes one request of five texts and gives the answer.
    void serve(const std::string& answer) {
        const int made = openSocket();
        ASSERT_EQ(0, listen(made, 1));
        listener = std::thread([this, made, answer] {
            const int client = accept(made, nullptr, nullptr);
            std::string text;
            char c = 0;
            for (int zeros = 0; zeros < 5 && read(client, &c, 1) == 1; zeros += c == '\0') {
                text += c == '\0' ? '|' : c;
            }
            request = text;
            EXPECT_EQ(static_cast<ssize_t>(answer.size()),
                      write(client, answer.data(), answer.size()));
            close(client);
            close(made);
        });
    }
    // Signals are noted; SIGQUIT makes the VM listen, if an answer is there.
    AttachClient client() {
        return {target, [this](pid_t pid, int signal) {
                    EXPECT_EQ(4711, pid);
                    signals.push_back(signal);
                    if (signal != SIGQUIT) return 0;
                    invited = access(inviting().c_str(), F_OK) == 0 ||
                              access((folder.root + "/tmp/.attach_pid7").c_str(), F_OK) == 0;
                    if (!answerToQuit.empty()) serve(answerToQuit);
                    return 0;
                }};
    }

    ProcFolder folder;
    Target target;
    std::string answerToQuit, request;
    std::vector<int> signals;
    bool invited = false;
    std::thread listener;
};

TEST_F(AttachClientTest, aVmThatListensGetsOneRequestAndNoSignal) {
    serve("0\nreturn code: 0\n");
    EXPECT_EQ("", client().load("/l/libprbbridge.so", "file=/a b,data=x", 5));
    listener.join();
    EXPECT_EQ("1|load|/l/libprbbridge.so|true|file=/a b,data=x|", request);
    EXPECT_TRUE(signals.empty());
}

TEST_F(AttachClientTest, aVmThatDoesNotListenIsInvited) {
    answerToQuit = "0\nreturn code: 0\n";
    EXPECT_EQ("", client().load("/l", "o", 5));
    EXPECT_TRUE(invited);
    EXPECT_EQ(SIGQUIT, signals.at(0));
    EXPECT_NE(0, access(inviting().c_str(), F_OK)) << "the invitation is taken back";
}

TEST_F(AttachClientTest, withoutAWorkingFolderTheInvitationLiesInTmp) {
    std::filesystem::remove(folder.process + "/cwd");
    answerToQuit = "0\nreturn code: 0\n";
    EXPECT_EQ("", client().load("/l", "o", 5));
    EXPECT_TRUE(invited);
    EXPECT_NE(0, access((folder.root + "/tmp/.attach_pid7").c_str(), F_OK));
}

TEST_F(AttachClientTest, aProcessThatWouldDieOfTheSignalGetsNone) {
    folder.status("S", 1000, "4711", "0");
    EXPECT_EQ("process 4711 does not take SIGQUIT: its JVM is not up yet, or going down",
              client().load("/l", "o", 1));
    EXPECT_TRUE(signals.empty());
}

TEST_F(AttachClientTest, aJvmThatForbidsItIsNotAsked) {
    target.arguments = {"java", "-XX:+DisableAttachMechanism", "Main"};
    EXPECT_EQ("process 4711 was started with -XX:+DisableAttachMechanism; start it with 'prb run' "
              "to profile it",
              client().load("/l", "o", 5));
    EXPECT_TRUE(signals.empty());
}

TEST_F(AttachClientTest, silenceEndsWithTheTime) {
    EXPECT_THAT(client().load("/l", "o", 1), HasSubstr("did not answer within 1 s"));
    EXPECT_NE(0, access(inviting().c_str(), F_OK));
}

TEST_F(AttachClientTest, aSocketLeftByAnEarlierProcessIsReplaced) {
    close(openSocket()); // nobody listens there any more
    answerToQuit = "0\nreturn code: 0\n";
    EXPECT_EQ("", client().load("/l", "o", 5));
    EXPECT_EQ(SIGQUIT, signals.at(0));
}

TEST_F(AttachClientTest, whatIsNoSocketIsNotTrusted) {
    ProcFolder::put(socketPath(), "");
    EXPECT_EQ(socketPath() + " is not the socket of process 4711: somebody else made it",
              client().load("/l", "o", 5));
}

TEST_F(AttachClientTest, whatTheVmRefusesIsPassedOn) {
    serve("100\n/l was not loaded.\n/l: wrong ELF class: ELFCLASS32\n");
    EXPECT_EQ("the JVM of process 4711 does not load /l (code 100: /l was not loaded. /l: wrong "
              "ELF class: ELFCLASS32)",
              client().load("/l", "o", 5));
}

TEST_F(AttachClientTest, aVmWithoutDynamicLoadingIsNamed) {
    serve("101\nDynamic agent loading is not enabled. Use -XX:+EnableDynamicAgentLoading\n");
    EXPECT_EQ("process 4711 was started with -XX:-EnableDynamicAgentLoading; start it with 'prb "
              "run', or without that option",
              client().load("/l", "o", 5));
}

TEST_F(AttachClientTest, anEntryFunctionThatFailsIsNoSuccess) {
    serve("0\nreturn code: 5\n");
    EXPECT_THAT(client().load("/l", "o", 5), HasSubstr("return code: 5"));
}

TEST_F(AttachClientTest, aVmThatEndsMeanwhileIsNamed) {
    serve("");
    EXPECT_EQ("process 4711 ended the talk without an answer", client().load("/l", "o", 5));
}

TEST_F(AttachClientTest, longerTextsThanTheVmTakesAreRefusedHere) {
    EXPECT_EQ("the options are longer than the 1024 bytes that a JVM takes: use fewer masks or a "
              "shorter path",
              client().load("/l", std::string(1025, 'x'), 5));
    EXPECT_TRUE(signals.empty());
}

TEST(AttachAnswer, isReadLineByLine) {
    const AttachAnswer answer = AttachAnswer::parse(
        "state=busy\ncapture=/a=b/c.prb\nsaid=prbprof: one\nsaid=two\nnonsense\nother=1\n");
    EXPECT_EQ("busy", answer.state);
    EXPECT_EQ("/a=b/c.prb", answer.capture);
    EXPECT_THAT(answer.said, ElementsAre("one", "two"));
    EXPECT_EQ("", AttachAnswer::parse("").state);
}

} // namespace
