#include "prb/RunModel.h"

#include "anchors/PRBAnchors.h"
#include "data/PRBRecordReader.h"
#include "data/PRBSample.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

namespace prb {

namespace {

// Sample types and keys of the agent's records; the pairs from 2000 up are the driver's own
// (docs/capture-format.md).
enum SampleType {
    kApplicationServer = 1,
    kThread = 10,
    kMethod = 11,
    kHeap = 13,
    kError = 17,
    kResource = 18,
    kEnd = 998
};
enum Key {
    kThreadId = 2,
    kProcessId = 4,
    kServerName = 5,
    kClassName = 10,
    kMethodName = 11,
    kThreadName = 301,
    kGroupName = 302,
    kBusyCount = 310,
    kCpuSamples = 311,
    kContentionSamples = 312,
    kWaitSamples = 313,
    kAllocations = 308,
    kBytes = 309,
    kTimeMs = 314,
    kCycleCount = 315,
    kProcessCpuMs = 316,
    kSignature = 320,
    kOwnSamples = 321,
    kCalleeSamples = 322,
    kObjects = 340,
    kFrees = 341,
    kErrorCode = 360,
    kErrorText = 361,
    kSamplerCpuUs = 400,
    kMemory = 401,
    kMemoryHigh = 402,
    kCounterNames = 2099,
    kFirstCounter = 2100,
    kLastCounter = 2199,
};

// The facts of a run by key: where each goes.
struct TextFact {
    int key;
    std::string RunFacts::*member;
};
constexpr TextFact kTextFacts[] = {
    {kServerName, &RunFacts::server}, {2001, &RunFacts::jvm},
    {2002, &RunFacts::jvmVersion},    {2003, &RunFacts::jvmVendor},
    {2005, &RunFacts::javaVersion},   {2006, &RunFacts::command},
    {2007, &RunFacts::system},        {2011, &RunFacts::bridgeVersion},
    {2012, &RunFacts::options},       {2017, &RunFacts::dataGiven},
    {2038, &RunFacts::limits},
};
struct NumberFact {
    int key;
    long long RunFacts::*member;
};
constexpr NumberFact kNumberFacts[] = {
    {kProcessId, &RunFacts::processId}, {2004, &RunFacts::bits},
    {2008, &RunFacts::processors},      {2009, &RunFacts::agentLevel},
    {2014, &RunFacts::intervalMs},      {2015, &RunFacts::pollMs},
    {2022, &RunFacts::startMs},         {2031, &RunFacts::elapsedNs},
    {2035, &RunFacts::bytesWritten},    {2037, &RunFacts::pollNs},
    {2039, &RunFacts::endMs},
};
constexpr int kNanoseconds = 2021;
constexpr int kBridgeFacts = 2023;

// The agent's own threads carry this prefix.
constexpr const char* kOwnThreadPrefix = "PRB_";

// Only samples are built of records.
std::unique_ptr<PRBSample> sampleOf(std::string_view record) {
    PRBWireError error;
    auto data = PRBTransportableData::buildFromBufferChecked(record.data(), record.size(), error);
    return std::unique_ptr<PRBSample>(static_cast<PRBSample*>(data.release()));
}

// A value of a sample, or `otherwise` when the sample does not carry it.
long long valueOf(const PRBTransportableData& sample, Key key, long long otherwise) {
    const long long value = sample.getNumericValueForStream(key);
    return value == -1 ? otherwise : value;
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        if (end > at) parts.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

} // namespace

RunModel::RunModel(Capture& capture) {
    for (Capture::Record record; capture.next(record);) read(record.bytes, record.offset);
    finish(capture);
}

double RunModel::meanCycleMs() const {
    return cycles_ > 0 ? elapsedMs_ / static_cast<double>(cycles_) : 0;
}

double RunModel::sampleMs() const {
    if (facts_.nanoseconds) return 1e-6;
    return pricedSamples_ > 0 ? pricedMs_ / static_cast<double>(pricedSamples_) : meanCycleMs();
}

void RunModel::read(std::string_view record, std::size_t offset) {
    records_++;
    PRBRecordReader reader(record.data(), record.size());
    for (PRBRecordReader::Field field; reader.next(field);) {
    }
    if (reader.error().isSet()) {
        warnings_.push_back("record at offset " + std::to_string(offset) + ": " +
                            reader.error().text() + "; left out");
        return;
    }
    const int type = reader.isSample() ? reader.sampleType() : 0;
    byType_[type]++;
    switch (type) {
    case kApplicationServer:
        readFacts(record);
        break;
    case kThread:
        readThread(record);
        break;
    case kMethod:
        readMethod(record);
        break;
    case kHeap:
        readClass(record);
        break;
    case kError: {
        const auto sample = sampleOf(record);
        if (sample == nullptr) break;
        errors_.emplace_back(valueOf(*sample, kErrorCode, 0), sample->getStringData(kErrorText));
        break;
    }
    case kResource: {
        const auto sample = sampleOf(record);
        if (sample == nullptr) break;
        samplerCpuUs_ += valueOf(*sample, kSamplerCpuUs, 0);
        agentBytes_ = valueOf(*sample, kMemory, agentBytes_);
        agentBytesHigh_ = valueOf(*sample, kMemoryHigh, agentBytesHigh_);
        break;
    }
    case kEnd:
        endBatch();
        break;
    default:
        break;
    }
}

void RunModel::readFacts(std::string_view record) {
    PRBRecordReader reader(record.data(), record.size());
    std::map<int, long long> counters;
    std::string counterNames;
    bool ended = false;
    for (PRBRecordReader::Field field; reader.next(field);) {
        if (field.kind == PRBRecordReader::Kind::Text) {
            for (const TextFact& fact : kTextFacts) {
                if (fact.key == field.key) facts_.*fact.member = std::string(field.text);
            }
            if (field.key == kBridgeFacts) readExact(std::string(field.text));
            if (field.key == kCounterNames) counterNames = std::string(field.text);
        } else {
            for (const NumberFact& fact : kNumberFacts) {
                if (fact.key == field.key) facts_.*fact.member = field.number;
            }
            if (field.key == kNanoseconds) facts_.nanoseconds = field.number != 0;
            if (field.key == 2039) ended = true;
            if (field.key >= kFirstCounter && field.key <= kLastCounter) {
                counters[field.key - kFirstCounter] = field.number;
            }
        }
    }
    complete_ = ended;
    const std::vector<std::string> names = split(counterNames, '+');
    for (const auto& [index, value] : counters) {
        const auto i = static_cast<std::size_t>(index);
        facts_.counters[i < names.size() ? names[i] : "counter " + std::to_string(i)] = value;
    }
}

// Lines "exact=class, method, signature, calls, elapsed nanoseconds" with tabulators between.
void RunModel::readExact(const std::string& bridgeFacts) {
    constexpr std::string_view kKey = "exact=";
    for (const std::string& line : split(bridgeFacts, '\n')) {
        if (line.rfind(kKey, 0) != 0) continue;
        const std::vector<std::string> parts = split(line.substr(kKey.size()), '\t');
        if (parts.size() != 5) continue;
        exact_[{parts[0], parts[1], parts[2]}] = {std::strtoll(parts[3].c_str(), nullptr, 10),
                                                  std::strtoll(parts[4].c_str(), nullptr, 10)};
    }
}

// Beside the timed methods there are those that were sampled meanwhile, a nanosecond a sample.
void RunModel::keepExact() {
    std::map<MethodKey, MethodUse> timed;
    for (const auto& [key, figures] : exact_) {
        const auto known = byMethod_.find(key);
        MethodUse& method = timed[key];
        if (known != byMethod_.end()) method = known->second;
        std::tie(method.className, method.name, method.signature) = key;
        std::tie(method.calls, method.elapsedNs) = figures;
    }
    byMethod_ = std::move(timed);
}

void RunModel::readThread(std::string_view record) {
    auto sample = sampleOf(record);
    if (sample == nullptr) return;
    const long long id = valueOf(*sample, kThreadId, 0);
    ThreadUse& thread = byThread_[id];
    thread.id = id;
    if (thread.name.empty()) {
        thread.name = sample->getStringData(kThreadName);
        thread.group = sample->getStringData(kGroupName);
        thread.own = thread.name.rfind(kOwnThreadPrefix, 0) == 0;
    }
    if (!thread.own) batchBusy_ += valueOf(*sample, kCpuSamples, 0);
    const long long cycles = valueOf(*sample, kCycleCount, 0);
    batchCycles_ = std::max(batchCycles_, cycles);
    lastSampleMs_ = std::max(lastSampleMs_, valueOf(*sample, kTimeMs, -1));
    const long long allocated = valueOf(*sample, kAllocations, 0);
    allocations_ = allocations_ || allocated > 0;
    thread.allocatedObjects += allocated;
    thread.allocatedBytes += valueOf(*sample, kBytes, 0);
    const long long processCpu = valueOf(*sample, kProcessCpuMs, -1);
    if (processCpu >= 0) {
        if (firstProcessCpuMs_ < 0) firstProcessCpuMs_ = processCpu;
        processCpuMs_ = processCpu;
    }
    anchors_.save(std::move(sample), static_cast<unsigned>(polls_) + 1);
}

// A thread that changed its name has an anchor for each.
void RunModel::gatherThreads() {
    anchors_.forEachMatch(PRBThreadAnchor::pattern(), [this](PRBResourceAnchor& anchor) {
        const PRBSample* sum = anchor.getLastHistoricalSample();
        ThreadUse& thread = byThread_[valueOf(*sum, kThreadId, 0)];
        thread.busy += valueOf(*sum, kCpuSamples, 0);
        thread.blocked += valueOf(*sum, kContentionSamples, 0);
        thread.waiting += valueOf(*sum, kWaitSamples, 0);
        thread.cycles += valueOf(*sum, kCycleCount, 0);
    });
    for (auto& [id, thread] : byThread_) {
        if (!thread.own) busy_ += thread.busy;
        threads_.push_back(thread);
    }
}

void RunModel::readMethod(std::string_view record) {
    const auto sample = sampleOf(record);
    if (sample == nullptr) return;
    batchCycles_ = std::max(batchCycles_, valueOf(*sample, kCycleCount, 0));
    lastSampleMs_ = std::max(lastSampleMs_, valueOf(*sample, kTimeMs, -1));
    const auto thread = byThread_.find(valueOf(*sample, kThreadId, 0));
    if (thread != byThread_.end() && thread->second.own) return;
    std::string className = sample->getStringData(kClassName);
    std::string name = sample->getStringData(kMethodName);
    std::string signature = sample->getStringData(kSignature);
    MethodUse& method = byMethod_[{className, name, signature}];
    if (method.name.empty()) {
        method.className = std::move(className);
        method.name = std::move(name);
        method.signature = std::move(signature);
    }
    const long long own = valueOf(*sample, kOwnSamples, 0);
    method.own += own;
    method.total += own + valueOf(*sample, kCalleeSamples, 0);
}

void RunModel::readClass(std::string_view record) {
    const auto sample = sampleOf(record);
    if (sample == nullptr) return;
    std::string name = sample->getStringData(kClassName);
    ClassUse& use = byClass_[name];
    use.name = std::move(name);
    const long long allocated = valueOf(*sample, kAllocations, -1);
    allocations_ = allocations_ || allocated >= 0;
    use.allocated += std::max(0LL, allocated);
    use.freed += valueOf(*sample, kFrees, 0);
    use.liveObjects = valueOf(*sample, kObjects, 0);
    use.liveBytes = valueOf(*sample, kBytes, 0);
}

void RunModel::endBatch() {
    polls_++;
    if (batchCycles_ > 0) {
        cycles_ += batchCycles_;
        const long long since = batchStartMs_ >= 0 ? batchStartMs_ : facts_.startMs;
        if (since > 0 && lastSampleMs_ > since) {
            pricedSamples_ += batchBusy_;
            pricedMs_ += static_cast<double>(batchBusy_) *
                         static_cast<double>(lastSampleMs_ - since) /
                         static_cast<double>(batchCycles_);
        }
        batchStartMs_ = lastSampleMs_;
    }
    batchBusy_ = 0;
    batchCycles_ = -1;
}

void RunModel::finish(const Capture& capture) {
    if (batchCycles_ > 0) { // the file ends inside a batch; its samples count
        cycles_ += batchCycles_;
    }
    if (!capture.fault().empty()) warnings_.push_back(capture.fault());
    if (!complete_) {
        warnings_.push_back("the run's last record is missing: the program was killed, or is "
                            "still running");
    }
    if (!facts_.limits.empty()) warnings_.push_back(facts_.limits);
    // Cycles run from the start of the collection to the last poll that carries samples.
    if (lastSampleMs_ > facts_.startMs && facts_.startMs > 0) {
        elapsedMs_ = static_cast<double>(lastSampleMs_ - facts_.startMs);
    }

    gatherThreads();
    std::stable_sort(threads_.begin(), threads_.end(), [](const ThreadUse& a, const ThreadUse& b) {
        return a.busy != b.busy ? a.busy > b.busy : a.name < b.name;
    });
    for (auto& [name, use] : byClass_)
        if (use.allocated != 0 || use.freed != 0 || use.liveObjects > 0) classes_.push_back(use);
    std::stable_sort(classes_.begin(), classes_.end(), [](const ClassUse& a, const ClassUse& b) {
        return a.allocated != b.allocated ? a.allocated > b.allocated : a.liveBytes > b.liveBytes;
    });
    if (facts_.nanoseconds && !exact_.empty()) keepExact();
    long long inMethods = 0;
    for (auto& [key, method] : byMethod_) {
        inMethods += method.own;
        if (!facts_.nanoseconds) method.total = std::min(method.total, busy_);
        methods_.push_back(method);
    }
    unmonitored_ = std::max(0LL, busy_ - inMethods);
    std::stable_sort(methods_.begin(), methods_.end(), [](const MethodUse& a, const MethodUse& b) {
        return a.own != b.own ? a.own > b.own : a.total > b.total;
    });
}

} // namespace prb
