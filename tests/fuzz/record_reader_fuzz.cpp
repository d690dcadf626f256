// Any bytes, read as a record in all the checked ways: they must agree with one another, and a
// record that is accepted must come back from its own bytes.
#include "data/PRBBuffer.h"
#include "data/PRBRecordReader.h"
#include "data/PRBSample.h"

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

std::string streamed(const PRBTransportableData& record) {
    PRBBuffer buffer;
    record.stream(buffer);
    return buffer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    PRBRecordReader reader(data, size);
    std::size_t end = 0, fields = 0;
    for (PRBRecordReader::Field field; reader.next(field); ++fields) {
        require(field.offset >= end);
        end = field.offset + 12 + field.text.size();
        require(end <= size);
    }
    const bool wellFormed = !reader.error().isSet();
    require(PRBBuffer::isWellFormed(data, size) == wellFormed);
    require(reader.error().offset <= size);
    require(reader.error().text().empty() == wellFormed);

    PRBWireError error;
    const auto record = PRBTransportableData::buildFromBufferChecked(data, size, error);
    require((record == nullptr) == error.isSet());
    if (record == nullptr) return 0;
    require(wellFormed);

    const std::string first = streamed(*record);
    require(PRBBuffer::isWellFormed(first.data(), first.size()));
    PRBBuffer buffer(first.data(), first.size());
    const auto again = PRBTransportableData::buildFromBuffer(buffer);
    require(again != nullptr);
    auto& sample = static_cast<PRBSample&>(*record);
    // The time -1 reads as none and is not sent; the new record then has its own.
    if (sample.getNumericData(PRBSample::kTimeKey) != -1) require(streamed(*again) == first);

    sample.mergeSampleData(static_cast<const PRBSample*>(again.get()));
    sample.calculateRates(static_cast<const PRBSample*>(again.get()));
    sample.mergeIntoHistoricalSample(static_cast<const PRBSample*>(again.get()));
    sample.getSampleTime().fields(PRBTime::Zone::Local);
    return 0;
}
