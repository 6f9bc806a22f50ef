#pragma once

#include <string>
#include <utility>
#include <vector>

namespace corvanis::monitoring_modules::libi18n {

// A localisable message: a stable dotted key the host translates by, the English
// default text with "%N:s" placeholders, and the argument strings.
// A message with an empty key is literal text: it is never formatted.
class i18n_msg {
  public:
    i18n_msg() = default;
    i18n_msg(std::string key, std::string default_text)
        : key_(std::move(key)), default_text_(std::move(default_text)) {}

    static i18n_msg literal(std::string text) { return i18n_msg({}, std::move(text)); }

    // A copy of this definition carrying the given arguments, in placeholder order.
    template <class... Args>
    i18n_msg operator()(Args&&... args) const {
        i18n_msg copy = *this;
        copy.args_ = {std::string(std::forward<Args>(args))...};
        return copy;
    }
    i18n_msg with_args(std::vector<std::string> args) const {
        i18n_msg copy = *this;
        copy.args_ = std::move(args);
        return copy;
    }

    const std::string& key() const noexcept { return key_; }
    const std::string& default_text() const noexcept { return default_text_; }
    const std::vector<std::string>& args() const noexcept { return args_; }
    bool empty() const noexcept { return key_.empty() && default_text_.empty(); }

    // The English text with the arguments filled in; throws the formatter's errors.
    std::string render() const;
    // As render(), but falls back to the unformatted text instead of throwing.
    std::string render_or_default() const noexcept;

    bool operator==(const i18n_msg&) const = default;

  private:
    std::string key_;
    std::string default_text_;
    std::vector<std::string> args_;
};

// Defines `name()` returning a process-wide message definition built on first use.
#define LIBI18N_MESSAGE(name, key, text)                                             \
    inline const ::corvanis::monitoring_modules::libi18n::i18n_msg& name() {         \
        static const ::corvanis::monitoring_modules::libi18n::i18n_msg m{key, text}; \
        return m;                                                                    \
    }

namespace messages {
LIBI18N_MESSAGE(generic, "libi18n.error.generic", "An error occurred. %0:s")
}  // namespace messages

}  // namespace corvanis::monitoring_modules::libi18n
