#include "data/PRBTransportableData.h"

#include "core/PRBFormat.h"
#include "core/PRBTrace.h"
#include "data/PRBBuffer.h"
#include "data/PRBKeyList.h"
#include "data/PRBSample.h"
#include "data/SnapHex.h"

#include <algorithm>
#include <cstring>

namespace {

// A foreign encoding that means the platform's own when it is a target.
constexpr _CharacterEncoding kNativeTarget{2};

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kMember, PRBComponent::kTransportable, operation);
}

void dump(const std::string& text, const char* title) {
    SnapHex(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()),
            title, nullptr);
}

} // namespace

PRBTransportableData::PRBTransportableData(const PRBTransportableData& other)
    : PRBCollectable(other), source_(other.source_), toBeSentAs_(other.toBeSentAs_) {
    if (other.set_ != nullptr) set_.reset(new PRBKeyValueSet(*other.set_));
}

PRBTransportableData& PRBTransportableData::operator=(const PRBTransportableData& other) {
    auto trace = traced("PRBTransportableData::operator=");
    if (this == &other) return *this;
    source_ = other.source_;
    toBeSentAs_ = other.toBeSentAs_;
    set_.reset(other.set_ == nullptr ? nullptr : new PRBKeyValueSet(*other.set_));
    return *this;
}

PRBCollectable* PRBTransportableData::newSpecies() const { return new PRBTransportableData; }
PRBTransportableData* PRBTransportableData::clone() const {
    return new PRBTransportableData(*this);
}

const std::string& PRBTransportableData::emptyText() {
    // Never destroyed: records are read while the process exits.
    static const std::string* const empty = new std::string;
    return *empty;
}

void PRBTransportableData::numericKeys(int*) const {}
void PRBTransportableData::stringKeys(int*) const {}
void PRBTransportableData::buildFromDataString(const char*) {
    auto trace = traced("PRBTransportableData::buildFromDataString");
}
void PRBTransportableData::saveNumericData(int, long long) {
    auto trace = traced("PRBTransportableData::saveNumericData");
}
long long PRBTransportableData::getNumericData(int) const {
    auto trace = traced("PRBTransportableData::getNumericData");
    return trace.returns(0LL);
}
void PRBTransportableData::saveStringData(int, const char*) {
    auto trace = traced("PRBTransportableData::saveStringData");
}
void PRBTransportableData::saveText(int key, std::string_view text) {
    saveStringData(key, std::string(text).c_str());
}
const std::string& PRBTransportableData::getStringData(int) const {
    auto trace = traced("PRBTransportableData::getStringData");
    return emptyText();
}

void PRBTransportableData::save(const PRBKeyValueSet& set) {
    auto trace = traced("PRBTransportableData::save");
    set_.reset(new PRBKeyValueSet(set));
}

void PRBTransportableData::stream(PRBBuffer& buffer) const {
    auto trace = traced("PRBTransportableData::stream");
    streamID(buffer);
    streamData(buffer);
}

void PRBTransportableData::streamID(PRBBuffer& buffer) const {
    auto trace = traced("PRBTransportableData::streamID");
    buffer.streamShortInt(static_cast<unsigned short>(toBeSentAs_));
    if (PRBTrace::isDebugEnabled(PRBComponent::kTransportable))
        PRBTrace::log("Data to be sent in %i format", static_cast<int>(toBeSentAs_));
    buffer.streamShortInt(static_cast<unsigned short>(getDataType()));
}

void PRBTransportableData::streamData(PRBBuffer& buffer) const {
    auto trace = traced("PRBTransportableData::streamData");
    PRBKeyList numbers(getNumNumericKeys());
    numericKeys(numbers.data());
    for (int key : numbers) {
        const long long value = getNumericValueForStream(static_cast<unsigned>(key));
        if (!valueIsNull(value)) buffer.streamIntField(key, value);
    }
    PRBKeyList texts(getNumStringKeys());
    stringKeys(texts.data());
    for (int key : texts) {
        const std::string& text = getStringData(key);
        if (!valueIsNull(text)) streamText(buffer, key, text.c_str());
    }
    streamKeyValueSet(buffer);
}

void PRBTransportableData::streamText(PRBBuffer& buffer, int key, const char* text) const {
    if (toBeSentAs_ == PlatformNativeFormat) {
        buffer.streamStringField(key, text);
    } else {
        buffer.streamStringField(key,
                                 convertString(text, PlatformNativeFormat, toBeSentAs_).c_str());
    }
}

void PRBTransportableData::streamKeyValueSet(PRBBuffer& buffer) const {
    if (set_ == nullptr) return;
    PRBKeyValueSet::Iterator next(*set_);
    while (const PRBKeyValueSet::PRBKeyValuePair* pair = next()) {
        switch (pair->getKeyType()) {
        case PRBKeyValueSet::PRBKeyValuePair::kNumericPair:
            buffer.streamIntField(pair->key(), pair->getIntValue());
            break;
        case PRBKeyValueSet::PRBKeyValuePair::kStringPair:
            streamText(buffer, pair->key(), pair->getStringValue());
            break;
        default:
            break;
        }
    }
}

std::size_t PRBTransportableData::keyValueSetSize() const {
    if (set_ == nullptr) return 0;
    std::size_t size = 0;
    PRBKeyValueSet::Iterator next(*set_);
    while (const PRBKeyValueSet::PRBKeyValuePair* pair = next()) {
        const char* text = pair->getStringValue();
        size += text == nullptr ? PRBBuffer::kNumericFieldSize
                                : PRBBuffer::kStringFieldHead + std::strlen(text);
    }
    return size;
}

void PRBTransportableData::getDataArrays(int& numNumeric, int& numString, int** numericKeyArray,
                                         long long** numericValues, int** stringKeyArray,
                                         std::string** stringValues) const {
    auto trace = traced("PRBTransportableData::getDataArrays");
    numNumeric = getNumNumericKeys();
    numString = getNumStringKeys();
    const auto numbers = static_cast<std::size_t>(std::max(numNumeric, 1));
    const auto texts = static_cast<std::size_t>(std::max(numString, 1));
    auto nKeys = std::make_unique<int[]>(numbers);
    auto nValues = std::make_unique<long long[]>(numbers);
    auto sKeys = std::make_unique<int[]>(texts);
    auto sValues = std::make_unique<std::string[]>(texts);
    numericKeys(nKeys.get());
    for (int i = 0; i < numNumeric; ++i)
        nValues[static_cast<std::size_t>(i)] =
            getNumericValueForStream(static_cast<unsigned>(nKeys[static_cast<std::size_t>(i)]));
    stringKeys(sKeys.get());
    for (int i = 0; i < numString; ++i)
        sValues[static_cast<std::size_t>(i)] = getStringData(sKeys[static_cast<std::size_t>(i)]);
    *numericKeyArray = nKeys.release();
    *numericValues = nValues.release();
    *stringKeyArray = sKeys.release();
    *stringValues = sValues.release();
}

unsigned int PRBTransportableData::send(PRBSocketConnection& connection) const {
    auto trace = traced("PRBTransportableData::send");
    PRBBuffer buffer(connection);
    stream(buffer);
    return trace.returns(buffer.send());
}

void PRBTransportableData::saveData(PRBBuffer& buffer) {
    auto trace = traced("PRBTransportableData::saveData");
    while (const int type = buffer.getNextFieldType()) {
        const int key = buffer.getNextKey();
        if (type == PRBBuffer::kNumericField) {
            saveNumericData(key, buffer.getNextLongField());
            continue;
        }
        std::string text = buffer.getNextStringField();
        if (source_ != PlatformNativeFormat)
            text = convertString(text.c_str(), source_, PlatformNativeFormat);
        saveStringData(key, text.c_str());
    }
}

std::unique_ptr<PRBTransportableData> PRBTransportableData::buildFromBuffer(PRBBuffer& buffer) {
    auto trace = traced("PRBTransportableData::buildFromBuffer");
    const _CharacterEncoding source{buffer.getNextShortIntField()};
    if (buffer.getNextShortIntField() != PRBRecordReader::kSample) return nullptr;
    std::unique_ptr<PRBTransportableData> record = PRBSample::buildFromBuffer(buffer);
    if (record == nullptr) return nullptr;
    record->source_ = source;
    record->saveData(buffer);
    return record;
}

std::unique_ptr<PRBTransportableData>
PRBTransportableData::buildFromBufferChecked(const void* bytes, std::size_t length,
                                             PRBWireError& error) {
    auto trace = traced("PRBTransportableData::buildFromBufferChecked");
    PRBRecordReader reader(bytes, length);
    error = reader.error();
    if (error.isSet()) return nullptr;
    if (!reader.isSample()) {
        error = {2, "data type 2 (sample)"};
        return nullptr;
    }
    std::unique_ptr<PRBTransportableData> record =
        PRBSample::buildFromType(static_cast<_SampleType>(reader.sampleType()));
    if (record == nullptr) {
        error = {4, "a sample type that has a class"};
        return nullptr;
    }
    record->source_ = static_cast<_CharacterEncoding>(reader.encoding());
    for (PRBRecordReader::Field field; reader.next(field);) {
        if (field.kind == PRBRecordReader::Kind::Number) {
            record->saveNumericData(field.key, field.number);
            continue;
        }
        // Texts end at a zero byte, as they do through the unchecked readers.
        const std::string_view text = field.text.substr(0, field.text.find('\0'));
        if (record->source_ == PlatformNativeFormat) {
            record->saveText(field.key, text);
        } else {
            record->saveText(field.key, convertString(std::string(text).c_str(), record->source_,
                                                      PlatformNativeFormat));
        }
    }
    error = reader.error();
    return error.isSet() ? nullptr : std::move(record);
}

std::string PRBTransportableData::convertString(const char* text, _CharacterEncoding from,
                                                _CharacterEncoding to) {
    auto trace = traced("PRBTransportableData::convertString");
    const std::string original = text == nullptr ? "" : text;
    std::string translated = original;
    if (to == kNativeTarget) to = PlatformNativeFormat;
    if (from != to && PRBTrace::isDebugEnabled(PRBComponent::kTransportable)) {
        PRBTrace::log("PRBCTRAN translated string from %i to %i", static_cast<int>(from),
                      static_cast<int>(to));
        dump(original, "Original String");
        dump(translated, "Translated String");
    }
    return translated;
}

void PRBTransportableData::dumpToLog() const {
    auto trace = traced("PRBTransportableData::dumpToLog");
    PRBBuffer buffer;
    stream(buffer);
    PRBTrace::log("Contents of PRBTransportableData at " PRB_PTR, prbPtr(this));
    dump(buffer, nullptr);
}
