#include "libi18n/i18n_msg.h"

#include "libstringutils/format.h"

namespace corvanis::monitoring_modules::libi18n {

std::string i18n_msg::render() const {
    if (key_.empty()) {
        return default_text_;
    }
    return libstringutils::format(default_text_, args_);
}

std::string i18n_msg::render_or_default() const noexcept {
    try {
        return render();
    } catch (...) {
        return default_text_;
    }
}

}  // namespace corvanis::monitoring_modules::libi18n
