// Exceptions of the task area that the task database and its users share.
#pragma once

#include <exception>
#include <string>

namespace LifeCycle {

/// A lock could not be had. what() is strerror of the errno.
class AccessLockError : public std::exception {
 public:
  explicit AccessLockError(int error);
  char const* what() const noexcept override;
  int error() const noexcept { return error_; }

 private:
  int error_;
};

/// The database file is not there.
class TaskFileNotFoundError : public std::exception {
 public:
  explicit TaskFileNotFoundError(std::string text) : text_(std::move(text)) {}
  char const* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

/// The database file is damaged or not ours.
class JsonParseError : public std::exception {
 public:
  explicit JsonParseError(std::string text) : text_(std::move(text)) {}
  char const* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

}  // namespace LifeCycle
