// Copyright Marvolith contributors.
// The host's exceptions: raised by checked table access and script argument checks.
#pragma once

#include <stdexcept>
#include <string>

namespace MaxSDK::Util {

/// Raised by an out-of-range index; what() is the host's fixed text.
class OutOfRangeException : public std::out_of_range {
 public:
  explicit OutOfRangeException(const std::string& text) : std::out_of_range(text) {}
};

/// Raised by Tab::operator[] on a bad index.
class TabOutOfRangeException : public OutOfRangeException {
 public:
  TabOutOfRangeException() : OutOfRangeException(kText) {}
  static constexpr const char* kText = "Invalid index passed into a Max SDK Tab::operator[]";
};

/// Raised by MaxSDK::Array::operator[], e.g. a published setter called without its argument.
class ArrayOutOfRangeException : public OutOfRangeException {
 public:
  ArrayOutOfRangeException() : OutOfRangeException(kText) {}
  static constexpr const char* kText =
      "Argument index out of bounds, passed into a MaxSDK::Array::operator[]";
};

}  // namespace MaxSDK::Util
