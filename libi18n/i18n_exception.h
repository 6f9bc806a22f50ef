#pragma once

#include "libexception/exception.h"
#include "libi18n/i18n_msg.h"

namespace corvanis::monitoring_modules::libi18n {

// Root of every failure the host can see: what() is the English text, message()
// keeps key and arguments so the host can translate.
class i18n_exception : public libexception::exception {
  public:
    ~i18n_exception() override;
    explicit i18n_exception(i18n_msg message)
        : libexception::exception(message.render_or_default()), message_(std::move(message)) {}

    const i18n_msg& message() const noexcept { return message_; }

  private:
    i18n_msg message_;
};

// Template for localisable families: leaf classes derive from _i18n_exception<Family>.
template <class T>
class _i18n_exception : public T {
  public:
    using T::T;
};

// Wraps the text of any other exception into the generic message.
inline i18n_msg to_i18n_msg(const std::exception& e) {
    if (const auto* localised = dynamic_cast<const i18n_exception*>(&e)) {
        return localised->message();
    }
    return messages::generic()(e.what());
}

}  // namespace corvanis::monitoring_modules::libi18n
