// Stand-in used only while the generated description document is not built.
#include "module/description/description.h"

namespace corvanis::monitoring_modules::mqtt {

const std::string& module_description() {
    static const std::string document = R"({"Revision":68,"MetaData":{"Version":"1.16.0.20981"}})";
    return document;
}

}  // namespace corvanis::monitoring_modules::mqtt
