#include "data/PRBKeyNames.h"
#include "data/PRBRecordReader.h"
#include "prb/Commands.h"
#include "prb/Signature.h"

#include <nlohmann/json.hpp>

namespace prb {

namespace {

using nlohmann::ordered_json;

ordered_json decoded(const Capture::Record& record) {
    PRBRecordReader reader(record.bytes.data(), record.bytes.size());
    ordered_json line = {{"offset", record.offset}, {"length", record.bytes.size()}};
    if (!reader.error().isSet()) {
        line["encoding"] = reader.encoding();
        line["data_type"] = reader.dataType();
    }
    if (reader.isSample()) {
        line["type"] = reader.sampleType();
        const char* name = prbSampleTypeName(reader.sampleType());
        line["type_name"] = name == nullptr ? "Unknown" : name;
    }
    ordered_json fields = ordered_json::array();
    for (PRBRecordReader::Field field; reader.next(field);) {
        ordered_json shown = {{"key", field.key}};
        if (const char* name = prbKeyName(reader.sampleType(), field.key)) shown["name"] = name;
        if (field.kind == PRBRecordReader::Kind::Number) {
            shown["value"] = field.number;
        } else {
            shown["value"] = printable(field.text);
        }
        fields.push_back(std::move(shown));
    }
    line["fields"] = std::move(fields);
    if (reader.error().isSet()) line["error"] = reader.error().text();
    return line;
}

} // namespace

int decodeCommand(const std::string& file, std::FILE* out, std::FILE* err) {
    Capture capture(file);
    if (!capture.problem().empty()) {
        std::fprintf(err, "prb: %s\n", capture.problem().c_str());
        return kFailed;
    }
    bool whole = true;
    for (Capture::Record record; capture.next(record);) {
        const ordered_json line = decoded(record);
        whole = whole && !line.contains("error");
        const std::string text = line.dump() + "\n";
        if (std::fwrite(text.data(), 1, text.size(), out) != text.size()) {
            std::fprintf(err, "prb: writing failed: %s\n", strerrordesc_np(errno));
            return kFailed;
        }
    }
    if (std::fflush(out) != 0) return kFailed;
    if (!capture.fault().empty()) {
        std::fprintf(err, "prb: %s\n", capture.fault().c_str());
        return kFailed;
    }
    if (!whole) {
        std::fprintf(err, "prb: %s: some records are damaged; their lines carry an \"error\"\n",
                     file.c_str());
        return kFailed;
    }
    return kOk;
}

} // namespace prb
