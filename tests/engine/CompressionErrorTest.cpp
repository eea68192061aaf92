#include "CompressionKit/CompressionError.h"

#include <gtest/gtest.h>

#include "CompressionKit/platform/Error.h"

namespace tidewell {
namespace {

// The texts that users read, in one place; elsewhere the tests compare kinds of failure.
TEST(CompressionError, SpeaksToTheUser) {
  const std::pair<CompressionError, const char*> cases[] = {
      {CompressionError::toolMissing("oxipng"), "缺少压缩组件：oxipng"},
      {CompressionError::toolFailed("oxipng 超时"), "压缩组件运行失败：oxipng 超时"},
      {CompressionError::fileOperation("任何文字"), "任何文字"},
      {CompressionError::invalidImage(), "图片无法解码"},
      {CompressionError::formatMismatch(), "文件格式与扩展名不一致"},
      {CompressionError::changedDuringCompression(), "原文件在压缩过程中被其他程序修改"},
      {CompressionError::validationFailed(), "压缩结果未通过验证"},
      {CompressionError::unsafeRestore(), "文件已被修改，无法直接恢复"}};
  for (const auto& [error, text] : cases) EXPECT_EQ(localizedDescription(error), text);
}

}  // namespace
}  // namespace tidewell
