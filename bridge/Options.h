// The bridge's one option text, as it stands behind "libprbbridge.so=" on the command line.
//
// Comma-separated key=value pairs; "\," is a comma and "\\" a backslash inside a value. Every
// key is a row of one table in Options.cpp; docs/bridge-options.md explains them to users.
// Built once on the thread that loads the bridge, read-only afterwards.
#ifndef PRB_BRIDGE_OPTIONS_H
#define PRB_BRIDGE_OPTIONS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bridge {

class Options {
public:
    // Kinds of data that a collection can gather, as bits of data().
    enum Data : uint32_t {
        kThreads = 1,
        kMethods = 2,
        kContention = 4,
        kHeap = 8,
        kGc = 16,
        kAlloc = 32,
        kErrors = 64,
        kSelf = 128,
    };

    // Reads the text. Answers an empty string, or the one line that names the key and what
    // would be right; after a failure the options are not to be used. A null text is empty.
    std::string parse(const char* text);

    // The text as given, for the Java driver, which reads its own keys from it.
    const std::string& text() const { return text_; }
    // What the agent's JVM_OnLoad gets: the agent.KEY=VALUE options as KEY=VALUE,... in order.
    const std::string& agentText() const { return agentText_; }

    const std::string& lib() const { return lib_; }   // empty: beside the bridge
    const std::string& jar() const { return jar_; }   // empty: beside the bridge
    const std::string& file() const { return file_; } // capture file, %p not yet replaced
    const std::string& name() const { return name_; }
    const std::string& reply() const { return reply_; } // file for the answer of an attach
    bool driver() const { return driver_; }
    bool recompile() const { return recompile_; } // attach: drop code compiled before
    bool detach() const { return detach_; }       // end the collection in place of beginning one
    bool protectForks() const { return protectForks_; }
    bool frees() const { return frees_; }
    bool quiet() const { return quiet_; }
    uint32_t data() const { return data_; }             // bits of Data, 0: not given
    uint32_t intervalMs() const { return intervalMs_; } // 0: not given
    uint32_t pollMs() const { return pollMs_; }         // 0: not given
    const std::vector<std::string>& classes() const { return classes_; }
    const std::vector<std::string>& methods() const { return methods_; }

    // Methods that are timed exactly: masks with * and ?, the class with slashes.
    struct Exact {
        std::string type;
        std::string method;
    };
    const std::vector<Exact>& exact() const { return exact_; }

private:
    struct Row;
    static const Row kRows[];
    std::string apply(std::string_view key, const std::string& value);
    void addAgentOption(std::string_view key, const std::string& value);

    std::string text_;
    std::string agentText_;
    std::string lib_;
    std::string jar_;
    std::string file_;
    std::string name_;
    std::string reply_;
    bool driver_ = true;
    bool recompile_ = false;
    bool detach_ = false;
    bool protectForks_ = true;
    bool frees_ = true;
    bool quiet_ = false;
    uint32_t data_ = 0;
    uint32_t intervalMs_ = 0;
    uint32_t pollMs_ = 0;
    std::vector<std::string> classes_;
    std::vector<std::string> methods_;
    std::vector<Exact> exact_;
};

} // namespace bridge

#endif
