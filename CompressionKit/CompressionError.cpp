// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/CompressionError.h"

#include <string.h>

#include <utility>

namespace tidewell {

CompressionError::CompressionError(Case kind, std::string description)
    : kind_(kind), description_(std::move(description)) {}

std::string_view CompressionError::code() const {
  static constexpr std::string_view codes[] = {"tool_missing",      "tool_failed",
                                               "file_operation",    "invalid_image",
                                               "format_mismatch",   "changed_during_compression",
                                               "validation_failed", "unsafe_restore"};
  return codes[static_cast<std::size_t>(kind_)];
}

CompressionError CompressionError::toolMissing(std::string_view tool) {
  CompressionError error{Case::toolMissing, "缺少压缩组件：" + std::string(tool)};
  error.tool_ = tool;
  return error;
}

CompressionError CompressionError::toolFailed(std::string_view tool, ToolFailure failure,
                                              std::string_view detail) {
  CompressionError error{Case::toolFailed, "压缩组件运行失败：" + std::string(tool) + std::string(detail)};
  error.tool_ = tool;
  error.toolFailure_ = failure;
  return error;
}

CompressionError CompressionError::toolTimedOut(std::string_view tool) {
  return toolFailed(tool, ToolFailure::timedOut, " 超时");
}

CompressionError CompressionError::toolExited(std::string_view tool, int status, std::string_view output) {
  CompressionError error = toolFailed(tool, ToolFailure::exited,
                                      "（退出码 " + std::to_string(status) + "）：" + std::string(output));
  error.exitStatus_ = status;
  error.detail_ = output;
  return error;
}

CompressionError CompressionError::toolGaveNoScore(std::string_view tool) {
  return toolFailed(tool, ToolFailure::noScore, " 未返回有效画质评分");
}

CompressionError CompressionError::fileOperation(FileProblem problem) {
  CompressionError error{Case::fileOperation, std::string(problem.text())};
  error.problem_ = problem;
  return error;
}

CompressionError CompressionError::fileOperation(FileProblem problem, int code) {
  char buffer[256] = {};
  CompressionError error = fileOperation(problem);
  error.description_ += strerror_r(code, buffer, sizeof buffer);
  error.errorNumber_ = code;
  return error;
}

CompressionError CompressionError::fileOperation(FileProblem problem, std::string_view name,
                                                 const FileError& reason) {
  CompressionError error = fileOperation(problem);
  error.description_.replace(error.description_.find("{2}"), 3, reason.what());
  error.description_.replace(error.description_.find("{1}"), 3, name);
  error.detail_ = name;
  error.reason_ = reason;
  return error;
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
