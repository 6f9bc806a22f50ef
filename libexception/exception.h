#pragma once

#include <exception>
#include <string>

namespace corvanis::monitoring_modules::libexception {

// Root of every exception family: carries a plain message that what() returns.
class exception : public std::exception {
  public:
    ~exception() override;
    explicit exception(std::string message) : message_(std::move(message)) {}
    const char* what() const noexcept override { return message_.c_str(); }

  private:
    std::string message_;
};

// Turns a family class T into a concrete exception type; leaf classes derive from it.
template <class T>
class _exception : public T {
  public:
    using T::T;
};

}  // namespace corvanis::monitoring_modules::libexception
