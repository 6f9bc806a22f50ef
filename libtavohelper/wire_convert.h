#pragma once
// Conversions between framework types and the wire format; private to the framework.

#include <string>
#include <string_view>
#include <vector>

#include "libi18n/i18n_msg.h"
#include "libstringutils/utf8.h"
#include "libtavohelper/errors.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::libtavohelper {

// Text for a string field: the host's decoder refuses a whole message over one invalid
// UTF-8 byte, and payload bytes reach logs and results unchecked.
inline std::string wire_text(std::string_view text) {
    return libstringutils::to_valid_utf8(text);
}

inline void to_wire(const libi18n::i18n_msg& msg, tavo::wire::I18nMessage& out) {
    out.set_key(wire_text(msg.key()));
    out.set_text(wire_text(msg.render_or_default()));
    out.set_default_text(wire_text(msg.default_text()));
    for (const auto& arg : msg.args()) out.add_args(wire_text(arg));
}

inline libi18n::i18n_msg from_wire(const tavo::wire::I18nMessage& in) {
    return libi18n::i18n_msg(in.key(), in.default_text())
        .with_args({in.args().begin(), in.args().end()});
}

inline std::vector<char> serialize_envelope(const tavo::wire::ModuleMessage& message) {
    std::vector<char> bytes(message.ByteSizeLong());
    if (!message.SerializeToArray(bytes.data(), static_cast<int>(bytes.size()))) {
        throw utils::exceptions::message_error(messages::message_serialization_failed());
    }
    return bytes;
}

}  // namespace corvanis::monitoring_modules::libtavohelper
