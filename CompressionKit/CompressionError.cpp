#include "CompressionKit/CompressionError.h"

namespace tidewell {

CompressionError CompressionError::toolMissing(std::string_view tool) {
  return {Case::toolMissing, "缺少压缩组件：" + std::string(tool)};
}

CompressionError CompressionError::toolFailed(std::string_view detail) {
  return {Case::toolFailed, "压缩组件运行失败：" + std::string(detail)};
}

CompressionError CompressionError::fileOperation(std::string_view message) {
  return {Case::fileOperation, std::string(message)};
}

CompressionError CompressionError::invalidImage() {
  return {Case::invalidImage, "图片无法解码"};
}

CompressionError CompressionError::formatMismatch() {
  return {Case::formatMismatch, "文件格式与扩展名不一致"};
}

CompressionError CompressionError::changedDuringCompression() {
  return {Case::changedDuringCompression, "原文件在压缩过程中被其他程序修改"};
}

CompressionError CompressionError::validationFailed() {
  return {Case::validationFailed, "压缩结果未通过验证"};
}

CompressionError CompressionError::unsafeRestore() {
  return {Case::unsafeRestore, "文件已被修改，无法直接恢复"};
}

}  // namespace tidewell
