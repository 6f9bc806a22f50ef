#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <random>
#include <string>

namespace corvanis::monitoring_modules::libstringutils {

// Uniform draws from 0..max. Not for security. Not synchronised.
template <class T>
class random_number_generator_interface {
  public:
    virtual ~random_number_generator_interface() = default;
    virtual void set_max(const T& max) = 0;
    virtual T next() = 0;
};

// The minimal standard Lehmer engine, seeded once from the system's random device.
template <class T>
class random_number_generator : public random_number_generator_interface<T> {
  public:
    explicit random_number_generator(T max) : engine_(device_()), distribution_(0, max) {}

    void set_max(const T& max) override {
        distribution_.param(typename std::uniform_int_distribution<T>::param_type(0, max));
    }
    T next() override { return distribution_(engine_); }

  private:
    std::random_device device_{"default"};
    std::linear_congruential_engine<T, 16807, 0, 2147483647> engine_;
    std::uniform_int_distribution<T> distribution_;
};

class random_string_generator_interface {
  public:
    virtual ~random_string_generator_interface() = default;
    // An empty alphabet is not checked: generating from it indexes outside it.
    virtual void set_alphabet(std::string alphabet) = 0;
    virtual std::string generate(std::size_t length) = 0;
};

// Digits, then lower case, then upper case: 62 characters.
const std::string& default_alphabet();

// Strings of characters drawn uniformly from the alphabet. Thread-safe: sensors that
// scan in parallel share one instance through the service container.
class random_string_generator : public random_string_generator_interface {
  public:
    random_string_generator(
        std::unique_ptr<random_number_generator_interface<unsigned long>> numbers,
        std::string alphabet);

    void set_alphabet(std::string alphabet) override;
    std::string generate(std::size_t length) override;

  private:
    std::mutex mutex_;
    std::unique_ptr<random_number_generator_interface<unsigned long>>
        numbers_;           // guarded by mutex_
    std::string alphabet_;  // guarded by mutex_
};

// The factory the module registers: the default alphabet over a freshly seeded engine.
std::unique_ptr<random_string_generator_interface> make_random_string_generator();

}  // namespace corvanis::monitoring_modules::libstringutils
