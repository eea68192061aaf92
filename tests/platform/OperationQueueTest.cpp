// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/platform/OperationQueue.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace tidewell {
namespace {

using Priority = OperationQueue::Priority;

TEST(OperationQueueTest, RunsTheMostUrgentFirstAndNoMoreThanItsLimit) {
  std::mutex mutex;
  std::string order;
  std::promise<void> gate;
  const std::shared_future<void> opened = gate.get_future();
  std::promise<void> blocked[2];
  {
    OperationQueue queue("test", 2);
    const auto note = [&](Priority priority, char name) {
      return queue.add(priority, [&, name] {
        const std::lock_guard lock(mutex);
        order += name;
      });
    };
    const auto first = queue.add(Priority::low, [&] { blocked[0].set_value(), opened.wait(); });
    std::promise<void> second;
    const auto secondDone =
        queue.add(Priority::low, [&] { blocked[1].set_value(), second.get_future().wait(); });
    for (auto& one : blocked) one.get_future().wait();
    note(Priority::low, 'd');
    note(Priority::normal, 'b');
    note(Priority::high, 'a');
    note(Priority::normal, 'c');
    EXPECT_EQ(order, "") << "both threads are busy";
    second.set_value();
    note(Priority::veryLow, 'e').wait();
    EXPECT_EQ(order, "abcde");
    for (int i = 0; i < 3; ++i) note(Priority::normal, 'f');
    gate.set_value();
  }
  EXPECT_EQ(order, "abcdefff") << "what was added runs before the queue is gone";
}

TEST(OperationQueueTest, HandsOutResultsAndErrorsAfterLettingGoOfTheOperation) {
  OperationQueue queue("test", 1);
  auto held = std::make_shared<int>(7);
  auto value = queue.add(Priority::normal, [held] { return std::make_unique<int>(*held); });
  EXPECT_EQ(*value.get(), 7);
  EXPECT_EQ(held.use_count(), 1);
  auto error = queue.add(Priority::normal, [held] { throw std::runtime_error("no"); });
  EXPECT_THROW(error.get(), std::runtime_error);
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace tidewell
