#include "module/description/generator/document_builder.h"

#include <algorithm>
#include <cctype>
#include <unordered_map>
#include <unordered_set>

#include <jsoncons/json.hpp>

namespace corvanis::monitoring_modules::mqtt::description {

namespace {

using jsoncons::ojson;
using text_map = std::unordered_map<std::string, std::string>;

constexpr std::string_view kind_members[] = {"Text", "IntegerSigned", "Floatingpoint", "Selection"};

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Replaces text markers by English texts and remembers which keys the document used.
class text_filler {
  public:
    text_filler(const text_map& english, error_list& errors) : english_(english), errors_(errors) {}

    // Each member holding the marker takes the text of `prefix` + its name in lower case.
    void fill(ojson& object, const std::string& prefix, const std::string& where) {
        for (auto& member : object.object_range())
            if (is_marker(member.value()))
                member.value() = text_of(prefix + lower(std::string(member.key())), where);
    }

    void fill_member(ojson& object, std::string_view member, const std::string& key,
                     const std::string& where) {
        ojson& value = object.at(member);
        if (is_marker(value))
            value = text_of(key, where);
        else
            errors_.push_back(where + ": \"" + std::string(member) + "\" must be \"{text}\"");
    }

    const std::unordered_set<std::string>& used() const { return used_; }

  private:
    static bool is_marker(const ojson& value) {
        return value.is_string() && value.as_string_view() == text_marker;
    }

    std::string text_of(const std::string& key, const std::string& where) {
        used_.insert(key);
        const auto it = english_.find(key);
        if (it != english_.end()) return it->second;
        errors_.push_back(where + ": no English text for \"" + key + "\"");
        return std::string(text_marker);
    }

    const text_map& english_;
    error_list& errors_;
    std::unordered_set<std::string> used_;
};

std::string text(const ojson& object, std::string_view member) {
    return object.at(member).as<std::string>();
}

void substitute(ojson& value, const std::string& number) {
    if (value.is_string())
        value = replace_all(value.as<std::string>(), channel_marker, number);
    else if (value.is_object())
        for (auto& member : value.object_range()) substitute(member.value(), number);
    else if (value.is_array())
        for (auto& element : value.array_range()) substitute(element, number);
}

// A "$channels" item becomes the settings of its first channel, then for every later channel
// its selection followed by its settings, each shown only under the selection's condition.
ojson expand_channels(const ojson& items, const std::string& group,
                      std::vector<channel_range>& ranges) {
    ojson out(jsoncons::json_array_arg);
    for (const auto& item : items.array_range()) {
        if (!item.contains("$channels")) {
            out.push_back(item);
            continue;
        }
        const ojson& channels = item.at("$channels");
        const int first = channels.at("First").as<int>();
        const int last = channels.at("Last").as<int>();
        const std::string selection_name = text(channels.at("Selection"), "Name");
        ranges.push_back({group + ".", first, last});
        ranges.push_back({group + "." + selection_name + ".", first + 1, last});
        for (int channel = first; channel <= last; ++channel) {
            const std::string number = std::to_string(channel);
            const std::string selection = replace_all(selection_name, channel_marker, number);
            if (channel > first) {
                out.push_back(channels.at("Selection"));
                substitute(out[out.size() - 1], number);
            }
            for (const auto& setting : channels.at("Settings").array_range()) {
                ojson expanded = setting;
                substitute(expanded, number);
                if (channel == first) {
                    out.push_back(std::move(expanded));
                    continue;
                }
                ojson wrapper(jsoncons::json_object_arg);
                wrapper.insert_or_assign("DependsOn", selection);
                wrapper.insert_or_assign("Condition", channels.at("Condition"));
                wrapper.insert_or_assign("Setting", std::move(expanded));
                out.push_back(std::move(wrapper));
            }
        }
    }
    return out;
}

bool has_option(const ojson& selection, const std::string& value) {
    const auto& options = selection.at("Options").array_range();
    return std::any_of(options.begin(), options.end(),
                       [&](const ojson& o) { return text(o, "Value") == value; });
}

void fill_group(ojson& group, const std::string& name, text_filler& filler, error_list& errors) {
    std::unordered_map<std::string, const ojson*> selections;  // by setting name, so far
    for (auto& item : group.at("Items").array_range()) {
        const bool wrapped = item.contains("Setting");
        ojson& setting = wrapped ? item.at("Setting") : item;
        const std::string setting_name = text(setting, "Name");
        const std::string where = "group " + name + ", setting " + setting_name;
        if (wrapped) {
            const auto depends_on = selections.find(text(item, "DependsOn"));
            if (depends_on == selections.end())
                errors.push_back(where + ": \"DependsOn\" names no earlier selection of the group");
            else if (!has_option(*depends_on->second, text(item, "Condition")))
                errors.push_back(where + ": \"Condition\" is not an option of \"" +
                                 depends_on->first + "\"");
        }
        const auto kinds = std::count_if(std::begin(kind_members), std::end(kind_members),
                                         [&](std::string_view k) { return setting.contains(k); });
        if (kinds != 1) errors.push_back(where + ": needs exactly one kind of value");
        if (!setting.contains("Display") || !setting.contains("Help"))
            errors.push_back(where + ": needs \"Display\" and \"Help\"");

        const std::string prefix = name + "." + setting_name + ".";
        filler.fill(setting, prefix, where);
        if (!setting.contains("Selection")) continue;
        ojson& selection = setting.at("Selection");
        for (auto& option : selection.at("Options").array_range())
            filler.fill_member(option, "Display", prefix + "option." + text(option, "Value"),
                               where);
        if (setting.contains("Default") && !has_option(selection, text(setting, "Default")))
            errors.push_back(where + ": the default is not one of the options");
        selections[setting_name] = &selection;
    }
}

void check_names(const ojson& names, const ojson& known, const std::string& where,
                 error_list& errors) {
    for (const auto& name : names.array_range())
        if (!known.contains(name.as_string_view()))
            errors.push_back(where + ": \"" + name.as<std::string>() + "\" is not defined");
}

void find_markers(const ojson& value, const std::string& path, error_list& errors) {
    if (value.is_string()) {
        const auto s = value.as_string_view();
        if (s.find(text_marker) != s.npos || s.find(channel_marker) != s.npos)
            errors.push_back(path + ": a marker is left where no text key can be formed");
    } else if (value.is_object()) {
        for (const auto& member : value.object_range())
            find_markers(member.value(), path + "." + std::string(member.key()), errors);
    } else if (value.is_array()) {
        std::size_t i = 0;
        for (const auto& element : value.array_range())
            find_markers(element, path + "[" + std::to_string(i++) + "]", errors);
    }
}

void fill_document(ojson& doc, text_filler& filler, error_list& errors) {
    filler.fill(doc.at("MetaData"), "module.", "MetaData");
    for (auto& member : doc.at("Sensors").object_range()) {
        const std::string& name = member.key();
        ojson& sensor = member.value();
        const std::string where = "sensor " + name;
        if (text(sensor, "Name") != name)
            errors.push_back(where + ": \"Name\" differs from its key");
        filler.fill(sensor, name + ".", where);
        check_names(sensor.at("Settings").at("Sections"), doc.at("Sections"), where, errors);
        check_names(sensor.at("RequiredChecks"), doc.at("Checks"), where, errors);
    }
    for (const auto& member : doc.at("Checks").object_range())
        check_names(member.value().at("Sections"), doc.at("Sections"), "check " + member.key(),
                    errors);
    for (auto& member : doc.at("Sections").object_range()) {
        const std::string where = "section " + member.key();
        filler.fill(member.value(), member.key() + ".", where);
        check_names(member.value().at("Groups"), doc.at("Groups"), where, errors);
    }
    for (auto& member : doc.at("Groups").object_range())
        fill_group(member.value(), member.key(), filler, errors);
    for (auto& member : doc.at("Lookups").object_range())
        for (auto& value : member.value().at("LookupValues").array_range())
            filler.fill_member(value, "Display",
                               "lookup." + member.key() + "." + text(value, "Value"),
                               "lookup " + member.key());
}

// Keys of the families the document shows must all be shown; error and channel names are the
// code's and are checked against the code instead.
void find_unused(const std::vector<entry>& english, const ojson& doc,
                 const std::unordered_set<std::string>& used, error_list& errors) {
    std::unordered_set<std::string> families{"module", "lookup"};
    for (const char* part : {"Sensors", "Sections", "Groups"})
        for (const auto& member : doc.at(part).object_range()) families.emplace(member.key());
    for (const auto& e : english)
        if (families.contains(e.key.substr(0, e.key.find('.'))) && !used.contains(e.key))
            errors.push_back("English: \"" + e.key + "\" is not used by the document");
}

ojson text_section(const std::vector<std::string>& order,
                   const std::vector<std::pair<std::string, std::vector<entry>>>& languages,
                   const std::vector<entry>& english) {
    ojson section(jsoncons::json_object_arg);
    for (const auto& language : order) {
        const auto found = std::find_if(languages.begin(), languages.end(),
                                        [&](const auto& l) { return l.first == language; });
        if (found == languages.end()) continue;
        text_map texts;
        for (const auto& e : found->second) texts.emplace(e.key, e.text);
        ojson translation(jsoncons::json_object_arg);
        for (const auto& e : english) {
            const auto it = texts.find(e.key);
            if (it == texts.end()) continue;
            ojson display(jsoncons::json_object_arg);
            display.insert_or_assign("Display", it->second);
            translation.insert_or_assign(e.key, std::move(display));
        }
        ojson wrapper(jsoncons::json_object_arg);
        wrapper.insert_or_assign("Translation", std::move(translation));
        section.insert_or_assign(language, std::move(wrapper));
    }
    return section;
}

const catalogue* check_languages(const build_input& input, error_list& errors) {
    const catalogue* english = nullptr;
    std::unordered_set<std::string> seen;
    for (const auto& c : input.catalogues) {
        if (std::find(input.language_order.begin(), input.language_order.end(), c.language) ==
            input.language_order.end())
            errors.push_back(c.language + ": not one of the document's languages");
        if (!seen.insert(c.language).second)
            errors.push_back(c.language + ": given more than once");
        if (c.language == "English") english = &c;
    }
    if (!english) errors.push_back("English: the catalogue is missing");
    return english;
}

}  // namespace

std::string build_document(const build_input& input, error_list& errors) {
    const std::size_t errors_before = errors.size();
    const catalogue* english = check_languages(input, errors);
    if (!english) return {};
    check_english(*english, errors);
    for (const auto& c : input.catalogues)
        if (&c != english) check_translation(*english, c, input.english_only, errors);

    ojson doc;
    std::string stage = "reading";
    try {
        doc = ojson::parse(input.skeleton);
        if (doc.contains("Text")) errors.push_back("document skeleton: \"Text\" is generated");

        stage = "expanding the channels of";
        std::vector<channel_range> ranges;
        for (auto& group : doc.at("Groups").object_range())
            group.value().insert_or_assign(
                "Items", expand_channels(group.value().at("Items"), group.key(), ranges));

        std::vector<std::pair<std::string, std::vector<entry>>> expanded;
        for (const auto& c : input.catalogues)
            expanded.emplace_back(c.language, expand_templates(c, ranges, errors));
        const auto& english_entries =
            std::find_if(expanded.begin(), expanded.end(), [](const auto& l) {
                return l.first == "English";
            })->second;
        if (input.english_key_count && english_entries.size() != *input.english_key_count)
            errors.push_back("English: " + std::to_string(english_entries.size()) +
                             " keys once the templates are expanded, expected " +
                             std::to_string(*input.english_key_count));

        stage = "filling the texts of";
        text_map english_texts;
        for (const auto& e : english_entries) english_texts.emplace(e.key, e.text);
        text_filler filler(english_texts, errors);
        fill_document(doc, filler, errors);
        find_markers(doc, "document", errors);
        find_unused(english_entries, doc, filler.used(), errors);
        doc.insert_or_assign("Text", text_section(input.language_order, expanded, english_entries));
    } catch (const std::exception& e) {
        errors.push_back("document skeleton: failed while " + stage + " it: " + e.what());
    }
    if (errors.size() != errors_before) return {};
    std::string out;
    doc.dump(out);
    return out;
}

std::string render_cpp_source(std::string_view document) {
    // Small pieces stay far below any compiler's limit for one literal.
    constexpr std::size_t piece_size = 8192;
    std::string out =
        "// Generated by mqtt_description_generator from document.json and the catalogue; do not "
        "edit.\n"
        "#include \"module/description/description.h\"\n\n"
        "#include <string_view>\n\n"
        "namespace corvanis::monitoring_modules::mqtt {\n"
        "namespace {\n\n"
        "using namespace std::string_view_literals;\n\n"
        "constexpr std::string_view pieces[] = {\n";
    for (std::size_t pos = 0; pos < document.size();) {
        std::size_t end = std::min(pos + piece_size, document.size());
        while (end < document.size() && (static_cast<unsigned char>(document[end]) & 0xC0) == 0x80)
            --end;  // keep every UTF-8 sequence within one piece
        const std::string_view piece = document.substr(pos, end - pos);
        std::string delimiter = "doc";
        for (int n = 0; piece.find(")" + delimiter + "\"") != piece.npos; ++n)
            delimiter = "doc" + std::to_string(n);
        out += "    R\"" + delimiter + "(" + std::string(piece) + ")" + delimiter + "\"sv,\n";
        pos = end;
    }
    out +=
        "};\n\n"
        "std::string assemble() {\n"
        "    std::string document;\n"
        "    document.reserve(" +
        std::to_string(document.size()) +
        ");\n"
        "    for (const auto piece : pieces) document.append(piece);\n"
        "    return document;\n"
        "}\n\n"
        "}  // namespace\n\n"
        "const std::string& module_description() {\n"
        "    static const std::string document = assemble();\n"
        "    return document;\n"
        "}\n\n"
        "namespace {\n"
        "[[maybe_unused]] const std::string& assembled_at_load = module_description();\n"
        "}  // namespace\n\n"
        "}  // namespace corvanis::monitoring_modules::mqtt\n";
    return out;
}

}  // namespace corvanis::monitoring_modules::mqtt::description
