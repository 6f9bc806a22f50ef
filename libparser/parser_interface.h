#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvanis::monitoring_modules::libparser {

// Typed queries over one parsed document; the path language is the implementation's
// (JSONPath, JSON Pointer). An instance owns its document, never changes it and may be
// queried from one thread at a time. Failures are libparser or implementation exceptions
// (all localisable), except the operations marked "not implemented" by an implementation,
// which throw exceptions::not_implemented.
class parser_interface {
  public:
    virtual ~parser_interface() = default;

    // The value's text: strings as they are, other values as their document notation.
    virtual std::string query_text(const std::string& path) const = 0;
    virtual std::int64_t query_int64(const std::string& path) const = 0;
    virtual double query_double(const std::string& path) const = 0;
    virtual bool query_bool(const std::string& path) const = 0;

    // Whether the path selects anything; an invalid path still throws.
    virtual bool contains(const std::string& path) const = 0;
    // The text of every selected value, in document order; empty when nothing matches.
    virtual std::vector<std::string> query_text_list(const std::string& path) const = 0;
    virtual std::vector<std::int64_t> query_int64_list(const std::string& path) const = 0;
    virtual std::vector<double> query_double_list(const std::string& path) const = 0;
    // Checks the document against a schema given as text.
    virtual void validate(const std::string& schema) const = 0;
};

}  // namespace corvanis::monitoring_modules::libparser
