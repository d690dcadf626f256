#include "core/PRBStartupOptions.h"

#include "core/PRBCollections.h"
#include "core/PRBTrace.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <strings.h>

namespace {

using PRBStartupOptions::Targets;

constexpr unsigned kBadDebug = 121;
constexpr unsigned kBadKeyword = 122;

struct DebugValue {
    const char* value;
    bool sets;
    int level;
};
constexpr DebugValue kDebugValues[] = {
    {"INTERNAL", true, PRBStartupOptions::kInternalTrace},
    {"YES", true, 0x1E00},
    {"MINOR", true, 0x1E00},
    {"PRIVATE", true, 0xE00},
    {"RESTRICTED", true, 0x600},
    {"PUBLIC", true, 0x200},
    {"TEST", true, 0x200},
    {"no", false, 0},
};

unsigned port(const std::string& value, const Targets& targets) {
    if (targets.port == nullptr) return 0;
    if (value.empty() || value.find_first_not_of("0123456789") != std::string::npos) {
        PRBTrace::log("Invalid PORT option specified: %s", value.c_str());
        return 0;
    }
    std::uint32_t number = 0;
    for (char digit : value) number = (number * 10 + static_cast<unsigned>(digit - '0')) & 0xFFFF;
    *targets.port = static_cast<std::uint16_t>(number);
    return 0;
}

unsigned debug(const std::string& value, const Targets& targets) {
    if (targets.traceLevel == nullptr) return 0;
    for (const DebugValue& known : kDebugValues) {
        if (strcasecmp(known.value, value.c_str()) != 0) continue;
        if (known.sets) *targets.traceLevel = known.level;
        return 0;
    }
    return kBadDebug;
}

// The entries of a list in parentheses or braces; none when it is not closed.
void splitFilter(const std::string& value, PRBSlist& list) {
    char close = value.front() == '(' ? ')' : '}';
    if (value.size() < 2 || value.back() != close) return;
    std::string names = value.substr(1, value.size() - 2);
    std::replace(names.begin(), names.end(), ';', '/');
    PRBTokenizer next(names);
    for (std::string name = next("/"); !name.empty(); name = next("/"))
        list.insert(new PRBCollectableString(name));
}

unsigned filter(const std::string& value, const Targets& targets) {
    if (targets.filter == nullptr) return 0;
    auto list = std::make_unique<PRBSlist>();
    if (!value.empty() && (value.front() == '(' || value.front() == '{'))
        splitFilter(value, *list);
    else
        list->insert(new PRBCollectableString(value));
    *targets.filter = list.release();
    return 0;
}

unsigned configFile(const std::string& value, const Targets& targets) {
    if (targets.configFile != nullptr) *targets.configFile = value;
    return 0;
}

struct Keyword {
    const char* name;
    unsigned (*apply)(const std::string& value, const Targets& targets);
};
constexpr Keyword kKeywords[] = {
    {"port", port},
    {"debug", debug},
    {"filter", filter},
    {"workanalysisconfig", configFile},
};

unsigned applyOption(const std::string& option, const Targets& targets) {
    PRBTokenizer next(option);
    const std::string keyword = next("=");
    const std::string value = next("=");
    for (const Keyword& known : kKeywords)
        if (strcasecmp(known.name, keyword.c_str()) == 0) return known.apply(value, targets);
    return kBadKeyword;
}

std::atomic<const std::string*> pStartupOptions{nullptr};

} // namespace

PRBReturnCode PRBStartupOptions::parse(const char* options, const Targets& targets) {
    PRBReturnCode rc;
    if (options == nullptr) return rc;
    // A later filter replaces the one before, which nobody else has seen.
    PRBSlist* newest = nullptr;
    Targets own = targets;
    if (targets.filter != nullptr) own.filter = &newest;
    PRBTokenizer next(options);
    for (std::string option = next(","); !option.empty(); option = next(",")) {
        std::unique_ptr<PRBSlist> before(newest);
        if (unsigned error = applyOption(option, own)) rc = error;
        if (before.get() == newest)
            static_cast<void>(before.release());
        else if (before != nullptr)
            before->clearAndDestroy();
    }
    if (newest != nullptr) *targets.filter = newest;
    return rc;
}

void PRBStartupOptions::keep(const char* options) {
    if (options == nullptr) return;
    // The VM loads agents before any Java code that could be reading the text runs.
    delete pStartupOptions.exchange(new std::string(options), std::memory_order_acq_rel);
}

std::string PRBStartupOptions::keptConfigFile() {
    std::string file;
    if (const std::string* text = pStartupOptions.load(std::memory_order_acquire))
        parse(text->c_str(), Targets{nullptr, nullptr, nullptr, &file});
    return file;
}
