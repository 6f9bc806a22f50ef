// Checks the message catalogue and the document skeleton and writes the module description
// document as a C++ source. Any finding fails the build with one line per problem.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include "module/description/generator/document_builder.h"

namespace fs = std::filesystem;
using namespace corvanis::monitoring_modules::mqtt::description;

namespace {

constexpr const char* usage =
    "usage: mqtt_description_generator --skeleton FILE --output FILE --languages L1,L2,...\n"
    "       [--english-only PREFIX,...] [--english-keys N] CATALOGUE.json...\n";

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    for (std::string part; std::getline(in, part, ',');)
        if (!part.empty()) parts.push_back(part);
    return parts;
}

std::optional<std::string> read_file(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Writes through a temporary file, so that a failed run never leaves half a source behind.
bool write_file(const fs::path& path, const std::string& content) {
    const fs::path temporary = path.string() + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!(out << content)) return false;
    }
    std::error_code ec;
    fs::rename(temporary, path, ec);
    return !ec;
}

}  // namespace

int main(int argc, char** argv) {
    build_input input;
    fs::path skeleton_path, output_path;
    std::vector<fs::path> catalogue_paths;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (arg == "--skeleton" && has_value)
            skeleton_path = argv[++i];
        else if (arg == "--output" && has_value)
            output_path = argv[++i];
        else if (arg == "--languages" && has_value)
            input.language_order = split(argv[++i]);
        else if (arg == "--english-only" && has_value)
            input.english_only = split(argv[++i]);
        else if (arg == "--english-keys" && has_value)
            input.english_key_count = std::stoul(argv[++i]);
        else if (!arg.starts_with("--"))
            catalogue_paths.emplace_back(arg);
        else {
            std::cerr << usage;
            return 2;
        }
    }
    if (skeleton_path.empty() || output_path.empty() || input.language_order.empty()) {
        std::cerr << usage;
        return 2;
    }

    error_list errors;
    if (auto text = read_file(skeleton_path))
        input.skeleton = std::move(*text);
    else
        errors.push_back(skeleton_path.string() + ": cannot be read");
    for (const auto& path : catalogue_paths) {
        if (auto text = read_file(path))
            input.catalogues.push_back(parse_catalogue(path.stem().string(), *text, errors));
        else
            errors.push_back(path.string() + ": cannot be read");
    }
    std::string absent;
    for (const auto& language : input.language_order) {
        const bool present =
            std::any_of(input.catalogues.begin(), input.catalogues.end(),
                        [&](const catalogue& c) { return c.language == language; });
        if (!present) absent += (absent.empty() ? "" : ", ") + language;
    }
    if (!absent.empty()) std::cout << "note: no catalogue yet for " << absent << "; left out\n";

    std::string document;
    if (!input.skeleton.empty()) document = build_document(input, errors);
    if (!errors.empty()) {
        std::cerr << "The module description document cannot be built:\n";
        for (const auto& e : errors) std::cerr << "  " << e << '\n';
        return 1;
    }
    if (!write_file(output_path, render_cpp_source(document))) {
        std::cerr << output_path.string() << ": cannot be written\n";
        return 1;
    }
    return 0;
}
