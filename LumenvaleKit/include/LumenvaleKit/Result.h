#pragma once

#include <string>
#include <utility>
#include <variant>

namespace lumenvale {

// A decoding failure with a message a user or a log reader can understand.
struct DecodeError {
    std::string message;
};

// Either a decoded value or the reason it could not be decoded; never a
// half-decoded value.
template <typename T> class Result {
  public:
    Result(T value) : state_(std::move(value)) {}
    Result(DecodeError error) : state_(std::move(error)) {}

    bool ok() const { return std::holds_alternative<T>(state_); }
    explicit operator bool() const { return ok(); }

    // Only valid when ok().
    const T& value() const& { return std::get<T>(state_); }
    T&& value() && { return std::get<T>(std::move(state_)); }
    const T& operator*() const& { return value(); }
    const T* operator->() const { return &value(); }

    // Only valid when !ok().
    const std::string& error() const { return std::get<DecodeError>(state_).message; }

  private:
    std::variant<T, DecodeError> state_;
};

} // namespace lumenvale
