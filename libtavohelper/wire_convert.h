#pragma once
// Conversions between framework types and the wire format; private to the framework.

#include <vector>

#include "libi18n/i18n_msg.h"
#include "libtavohelper/errors.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::libtavohelper {

inline void to_wire(const libi18n::i18n_msg& msg, tavo::wire::I18nMessage& out) {
    out.set_key(msg.key());
    out.set_text(msg.render_or_default());
    out.set_default_text(msg.default_text());
    for (const auto& arg : msg.args()) out.add_args(arg);
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
