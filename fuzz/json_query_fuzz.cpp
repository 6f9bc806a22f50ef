// The JSON query layer: a path and a payload, each of the four queries. A compiled path
// must answer exactly as the same path given as text.
#include <optional>
#include <string>

#include "fuzz/fuzz_support.h"
#include "libjsonparser/jsonpath_parser.h"

namespace jp = corvanis::monitoring_modules::libjsonparser;

namespace {

// The answer of one query: its value as text, or that it failed.
template <typename Query>
std::optional<std::string> answer(Query&& query) {
    std::optional<std::string> out;
    fuzz::expecting_library_errors([&] { out = query(); });
    return out;
}

std::string text_of(double v) {
    return v != v ? "nan" : std::to_string(v);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    const std::string path = in.ConsumeRandomLengthString(256);
    const std::string payload = in.ConsumeRemainingBytesAsString();

    std::optional<jp::jsonpath_parser> parser;
    if (!fuzz::expecting_library_errors([&] { parser.emplace(payload); })) return 0;
    const jp::compiled_jsonpath compiled(path);

    const auto& p = *parser;
    const std::pair<std::optional<std::string>, std::optional<std::string>> pairs[] = {
        {answer([&] { return p.query_text(path); }),
         answer([&] { return p.query_text(compiled); })},
        {answer([&] { return std::to_string(p.query_int64(path)); }),
         answer([&] { return std::to_string(p.query_int64(compiled)); })},
        {answer([&] { return text_of(p.query_double(path)); }),
         answer([&] { return text_of(p.query_double(compiled)); })},
        {answer([&] { return std::string(p.query_bool(path) ? "true" : "false"); }),
         answer([&] { return std::string(p.query_bool(compiled) ? "true" : "false"); })},
    };
    for (const auto& [by_text, by_compiled] : pairs) {
        if (by_text != by_compiled) fuzz::mismatch("compiled path answers differently");
    }
    fuzz::expecting_library_errors([&] { (void)p.query_text_list(path); });
    fuzz::expecting_library_errors([&] { (void)p.contains(path); });
    return 0;
}
