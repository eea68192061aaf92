// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <exception>
#include <future>
#include <optional>
#include <type_traits>
#include <utility>

namespace tidewell {

/// Queued work with its outcome, the type of its result forgotten. A queue calls `perform` or `fail`, or
/// both, and then `resume` once: in between it can make room for what comes next.
struct AnyTask {
  AnyTask() = default;
  AnyTask(const AnyTask&) = delete;
  AnyTask& operator=(const AnyTask&) = delete;
  virtual ~AnyTask() = default;
  virtual void perform() noexcept = 0;                       ///< runs the operation and keeps its outcome
  virtual void fail(std::exception_ptr error) noexcept = 0;  ///< keeps an error instead
  virtual void resume() noexcept = 0;                        ///< hands the outcome to the caller
};

template <typename Operation>
struct Task final : AnyTask {
  using Result = std::invoke_result_t<Operation&>;

  explicit Task(Operation work) : operation(std::move(work)) {}
  void perform() noexcept override {
    try {
      if constexpr (std::is_void_v<Result>) {
        (*operation)();
      } else {
        value.emplace((*operation)());
      }
    } catch (...) {
      error = std::current_exception();
    }
  }
  void fail(std::exception_ptr failure) noexcept override { error = std::move(failure); }
  void resume() noexcept override {
    operation.reset();  // what it holds is gone when the caller goes on
    if (error) {
      promise.set_exception(std::exchange(error, nullptr));
    } else if constexpr (std::is_void_v<Result>) {
      promise.set_value();
    } else {
      promise.set_value(std::move(*value));
    }
  }

  std::optional<Operation> operation;
  std::promise<Result> promise;
  std::optional<std::conditional_t<std::is_void_v<Result>, bool, Result>> value;
  std::exception_ptr error;
};

}  // namespace tidewell
