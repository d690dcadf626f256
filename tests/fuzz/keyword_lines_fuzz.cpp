// Any text as keyword lines of every class that reads them, and as the numbers in them. The
// first byte chooses the class. What is built must stream into one whole record that reads back.
#include "data/PRBBuffer.h"
#include "data/PRBServerSamples.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

template <class Sample> std::unique_ptr<PRBSample> make() { return std::make_unique<Sample>(); }

std::unique_ptr<PRBSample> (*const kClasses[])() = {
    make<PRBContainerSample>,   make<PRBTransactionSample>, make<PRBObjectPoolSample>,
    make<PRBEJBSample>,         make<PRBEJBMethodSample>,   make<PRBDBConnectPoolSample>,
    make<PRBApplicationSample>, make<PRBServletSample>,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto sample = kClasses[data[0] % std::size(kClasses)]();
    sample->buildFromSampleString(text.c_str());

    PRBBuffer buffer;
    sample->stream(buffer);
    require(PRBBuffer::isWellFormed(buffer.data(), buffer.size()));
    sample->calculateRates(sample.get());
    sample->mergeSampleData(sample.get());

    // Building the same lines again over the sample changes nothing that is sent but its time.
    const auto again = kClasses[data[0] % std::size(kClasses)]();
    again->buildFromDataString(text.c_str());
    again->buildFromDataString(text.c_str());
    again->saveNumericData(PRBSample::kTimeKey, 0);
    PRBBuffer twice;
    again->stream(twice);
    require(twice.size() == buffer.size());

    double first, second;
    PRBSample::convertPerfLoadValue(text.c_str(), first, second);
    require(!std::isnan(first) && !std::isnan(second));
    require(!std::isnan(PRBSample::convertStringValueToDouble(text.c_str())));
    PRBSample::convertStringValueToInt(text.c_str(), 120);
    return 0;
}
