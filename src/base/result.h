#pragma once
// Result<T>: a value or an error message. Stages and readers return these instead of
// throwing, so a bad file becomes a message and the run goes on.

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace zv {

struct Error {
  std::string message;
};

template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  Result(Error error) : state_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & { return std::get<0>(state_); }
  const T& value() const& { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }

  const Error& error() const { return std::get<1>(state_); }
  const std::string& message() const { return error().message; }

 private:
  std::variant<T, Error> state_;
};

// Result<void>: success or an error message.
class [[nodiscard]] Status {
 public:
  Status() = default;
  Status(Error error) : error_(std::move(error)) {}  // NOLINT(google-explicit-constructor)
  static Status success() { return {}; }

  bool ok() const { return !error_.has_value(); }
  explicit operator bool() const { return ok(); }
  const Error& error() const { return *error_; }
  const std::string& message() const { return error_->message; }

 private:
  std::optional<Error> error_;
};

}  // namespace zv
