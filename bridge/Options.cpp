#include "bridge/Options.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace bridge {
namespace {

struct Word {
    const char* text;
    uint32_t value;
};

constexpr Word kYesNo[] = {{"yes", 1}, {"no", 0}};
constexpr Word kForkModes[] = {{"protect", 1}, {"plain", 0}};
constexpr Word kDataItems[] = {
    {"threads", Options::kThreads},
    {"methods", Options::kMethods},
    {"contention", Options::kContention},
    {"heap", Options::kHeap},
    {"gc", Options::kGc},
    {"alloc", Options::kAlloc},
    {"errors", Options::kErrors},
    {"self", Options::kSelf},
};

template <size_t N> const Word* findWord(const Word (&words)[N], std::string_view text) {
    for (const Word& word : words)
        if (text == word.text) return &word;
    return nullptr;
}

template <size_t N> bool readWord(const Word (&words)[N], std::string_view text, bool& result) {
    const Word* word = findWord(words, text);
    if (word) result = word->value != 0;
    return word != nullptr;
}

bool readNumber(const std::string& text, uint32_t least, uint32_t most, uint32_t& result) {
    uint32_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most) return false;
    result = number;
    return true;
}

// Seconds with a fraction, as milliseconds; digits beyond the third after the point are cut.
bool readSeconds(const std::string& text, uint32_t leastMs, uint32_t mostMs, uint32_t& result) {
    const size_t point = std::min(text.find('.'), text.size());
    uint32_t seconds = 0;
    if (!readNumber(text.substr(0, point), 0, mostMs / 1000, seconds)) return false;
    uint32_t ms = seconds * 1000;
    uint32_t unit = 1000;
    if (point + 1 == text.size()) return false;
    for (size_t i = point + 1; i < text.size(); i++) {
        if (text[i] < '0' || text[i] > '9') return false;
        unit /= 10;
        ms += static_cast<uint32_t>(text[i] - '0') * unit;
    }
    if (ms < leastMs || ms > mostMs) return false;
    result = ms;
    return true;
}

// Items joined by '+'; false when one is empty.
bool split(std::string_view text, std::vector<std::string>& items) {
    for (;;) {
        const size_t plus = text.find('+');
        const std::string_view item = text.substr(0, plus);
        if (item.empty()) return false;
        items.emplace_back(item);
        if (plus == std::string_view::npos) return true;
        text.remove_prefix(plus + 1);
    }
}

bool readMasks(const std::string& text, std::vector<std::string>& masks) {
    masks.clear();
    return split(text, masks);
}

// CLASS or CLASS:METHOD, joined by '+'.
bool readExact(const std::string& text, std::vector<Options::Exact>& masks) {
    std::vector<std::string> items;
    masks.clear();
    if (!split(text, items)) return false;
    for (const std::string& item : items) {
        const size_t colon = item.find(':');
        Options::Exact mask{item.substr(0, colon), "*"};
        if (colon != std::string::npos) mask.method = item.substr(colon + 1);
        if (mask.type.empty() || mask.method.empty()) return false;
        std::replace(mask.type.begin(), mask.type.end(), '.', '/');
        masks.push_back(mask);
    }
    return true;
}

bool readData(const std::string& text, uint32_t& bits) {
    std::vector<std::string> items;
    if (!split(text, items)) return false;
    bits = 0;
    for (const std::string& item : items) {
        const Word* word = findWord(kDataItems, item);
        if (!word) return false;
        bits |= word->value;
    }
    return true;
}

bool readText(const std::string& text, std::string& result) {
    result = text;
    return !text.empty();
}

constexpr std::string_view kAgentPrefix = "agent.";

} // namespace

// The limits are those of the Java driver, which reads the same text.
struct Options::Row {
    const char* key;
    const char* right; // what a right value looks like
    bool (*read)(Options& options, const std::string& value);
};

const Options::Row Options::kRows[] = {
    {"lib", "the path of libprbprof.so",
     [](Options& o, const std::string& v) { return readText(v, o.lib_); }},
    {"jar", "the path of prbprof.jar",
     [](Options& o, const std::string& v) { return readText(v, o.jar_); }},
    {"driver", "yes or no",
     [](Options& o, const std::string& v) { return readWord(kYesNo, v, o.driver_); }},
    {"fork", "protect or plain",
     [](Options& o, const std::string& v) { return readWord(kForkModes, v, o.protectForks_); }},
    {"frees", "yes or no",
     [](Options& o, const std::string& v) { return readWord(kYesNo, v, o.frees_); }},
    {"file", "the path of the capture file (%p is the process id)",
     [](Options& o, const std::string& v) { return readText(v, o.file_); }},
    {"name", "the server's name",
     [](Options& o, const std::string& v) { return readText(v, o.name_); }},
    {"data", "threads, methods, contention, heap, gc, alloc, errors or self, joined by '+'",
     [](Options& o, const std::string& v) { return readData(v, o.data_); }},
    {"interval", "1 to 60000 milliseconds",
     [](Options& o, const std::string& v) { return readNumber(v, 1, 60000, o.intervalMs_); }},
    {"poll", "0.02 to 3600 seconds",
     [](Options& o, const std::string& v) { return readSeconds(v, 20, 3600000, o.pollMs_); }},
    {"classes", "class masks joined by '+'",
     [](Options& o, const std::string& v) { return readMasks(v, o.classes_); }},
    {"methods", "method masks joined by '+'",
     [](Options& o, const std::string& v) { return readMasks(v, o.methods_); }},
    {"exact", "masks of CLASS or CLASS:METHOD joined by '+'",
     [](Options& o, const std::string& v) { return readExact(v, o.exact_); }},
    {"quiet", "yes or no",
     [](Options& o, const std::string& v) { return readWord(kYesNo, v, o.quiet_); }},
    {"recompile", "yes or no",
     [](Options& o, const std::string& v) { return readWord(kYesNo, v, o.recompile_); }},
    {"detach", "yes or no",
     [](Options& o, const std::string& v) { return readWord(kYesNo, v, o.detach_); }},
    {"reply", "the path of the file that gets the answer",
     [](Options& o, const std::string& v) { return readText(v, o.reply_); }},
};

std::string Options::parse(const char* text) {
    text_ = text ? text : "";
    std::string key;
    std::string part; // the key until '=', then the value
    bool inValue = false;
    const size_t length = text_.size();
    for (size_t i = 0; i <= length; i++) {
        if (i == length || text_[i] == ',') {
            if (inValue) {
                if (std::string problem = apply(key, part); !problem.empty()) return problem;
            } else if (!part.empty()) {
                std::string problem = "option '" + part;
                return problem.append("' has no value: write ").append(part).append("=...");
            }
            key.clear();
            part.clear();
            inValue = false;
        } else if (text_[i] == '\\') {
            i++;
            if (i == length || (text_[i] != ',' && text_[i] != '\\'))
                return "option text has a single backslash: write '\\\\' for a backslash and "
                       "'\\,' for a comma";
            part += text_[i];
        } else if (text_[i] == '=' && !inValue) {
            key.swap(part);
            part.clear();
            inValue = true;
        } else {
            part += text_[i];
        }
    }
    return {};
}

std::string Options::apply(std::string_view key, const std::string& value) {
    if (key.size() > kAgentPrefix.size() && key.starts_with(kAgentPrefix)) {
        addAgentOption(key.substr(kAgentPrefix.size()), value);
        return {};
    }
    for (const Row& row : kRows) {
        if (key != row.key) continue;
        if (row.read(*this, value)) return {};
        return "option " + std::string(key) + "='" + value + "' is not right: give " + row.right;
    }
    std::string known;
    for (const Row& row : kRows) known.append(row.key).append(", ");
    return "option '" + std::string(key) + "' is not known: the keys are " + known + "agent.KEY";
}

void Options::addAgentOption(std::string_view key, const std::string& value) {
    if (!agentText_.empty()) agentText_ += ',';
    agentText_.append(key).append("=");
    agentText_ += value;
}

} // namespace bridge
