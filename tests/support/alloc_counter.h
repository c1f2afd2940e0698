// Copyright Marvolith contributors.
// Counts heap allocations of the test binary so tests can prove a path allocates nothing.
#pragma once

#include <cstddef>

namespace marvolith::test {

/// Number of calls to global operator new (all forms) since the process started.
std::size_t AllocationCount();

/// Counts allocations made between construction and Count().
class AllocationScope {
 public:
  AllocationScope() : start_(AllocationCount()) {}
  std::size_t Count() const { return AllocationCount() - start_; }

 private:
  std::size_t start_;
};

}  // namespace marvolith::test
