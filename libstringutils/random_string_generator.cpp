#include "libstringutils/random_string_generator.h"

#include <limits>

namespace corvanis::monitoring_modules::libstringutils {

const std::string& default_alphabet() {
    static const std::string alphabet =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    return alphabet;
}

random_string_generator::random_string_generator(
    std::unique_ptr<random_number_generator_interface<unsigned long>> numbers, std::string alphabet)
    : numbers_(std::move(numbers)), alphabet_(std::move(alphabet)) {
    numbers_->set_max(alphabet_.size() - 1);
}

void random_string_generator::set_alphabet(std::string alphabet) {
    std::lock_guard lock(mutex_);
    alphabet_ = std::move(alphabet);
    numbers_->set_max(alphabet_.size() - 1);
}

std::string random_string_generator::generate(std::size_t length) {
    std::lock_guard lock(mutex_);
    std::string text(length, '\0');
    for (auto& c : text) {
        c = alphabet_[numbers_->next()];
    }
    return text;
}

std::unique_ptr<random_string_generator_interface> make_random_string_generator() {
    auto numbers = std::make_unique<random_number_generator<unsigned long>>(
        std::numeric_limits<unsigned long>::max());
    return std::make_unique<random_string_generator>(std::move(numbers), default_alphabet());
}

}  // namespace corvanis::monitoring_modules::libstringutils
