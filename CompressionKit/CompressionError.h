// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <array>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/FixedText.h"

namespace tidewell {

inline constexpr std::array<std::string_view, 20> fileProblems{
    "请选择普通图片文件",
    "请选择本地图片文件",
    "暂不支持包含多张图片的 HEIC 文件",
    "暂不支持动态 PNG（APNG），已保留原图",
    "压缩结果的尺寸、方向、帧信息或色彩配置与原图不一致",
    "无法创建动图验证帧",
    "无法创建 PNG：同名文件过多",
    "无法找回文件：同名文件过多",
    "无法锁定压缩中的文件",
    "无法获取压缩任务名额",
    "无法创建压缩任务锁",
    "无法创建压缩组件日志",
    "原图备份已损坏，无法恢复或对比",
    "原图备份已不存在",
    "原图备份已过期",
    "图片文件已被修改，无法对比",
    "图片文件在载入过程中被修改，请重新打开对比",
    // With a reason behind them.
    "替换文件失败：",
    "保存 PNG 失败：",
    // With the file's name and the reason in their places.
    "无法删除 {1} 的记录或备份：{2}",
};
/// What went wrong with a file, by the text that the service has for it.
using FileProblem = FixedText<fileProblems>;

/// The failures that a user reads about. Every room of the library throws these; failures of the platform
/// (`FileError`) pass through unchanged beside them.
class CompressionError : public std::exception {
 public:
  enum class Case {
    toolMissing,
    toolFailed,
    fileOperation,
    invalidImage,
    formatMismatch,
    changedDuringCompression,
    validationFailed,
    unsafeRestore,
  };

  /// In what way a tool failed.
  enum class ToolFailure { timedOut, exited, noScore };

  static CompressionError toolMissing(std::string_view tool);
  static CompressionError toolTimedOut(std::string_view tool);
  /// `output` is what the tool said, cut to what a user may read.
  static CompressionError toolExited(std::string_view tool, int status, std::string_view output);
  static CompressionError toolGaveNoScore(std::string_view tool);
  static CompressionError fileOperation(FileProblem problem);
  /// A rename that failed; `code` is an errno value.
  static CompressionError fileOperation(FileProblem problem, int code);
  static CompressionError fileOperation(FileProblem problem, std::string_view name, const FileError& reason);
  static CompressionError invalidImage();
  static CompressionError formatMismatch();
  static CompressionError changedDuringCompression();
  static CompressionError validationFailed();
  static CompressionError unsafeRestore();

  Case kind() const { return kind_; }
  /// The case as machines read it: "tool_missing".
  std::string_view code() const;

  // What each case comes with; empty where it does not.
  const std::string& tool() const { return tool_; }
  std::optional<ToolFailure> toolFailure() const { return toolFailure_; }
  int exitStatus() const { return exitStatus_; }
  const std::string& toolOutput() const { return detail_; }
  std::optional<FileProblem> problem() const { return problem_; }
  int errorNumber() const { return errorNumber_; }
  const std::string& fileName() const { return detail_; }
  const std::optional<FileError>& reason() const { return reason_; }

  const std::string& errorDescription() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

  bool operator==(const CompressionError& other) const {
    return kind_ == other.kind_ && description_ == other.description_;
  }

 private:
  CompressionError(Case kind, std::string description);
  static CompressionError toolFailed(std::string_view tool, ToolFailure failure, std::string_view detail);

  Case kind_;
  std::string description_;
  std::string tool_;
  std::optional<ToolFailure> toolFailure_;
  int exitStatus_ = 0;
  std::string detail_;
  std::optional<FileProblem> problem_;
  int errorNumber_ = 0;
  std::optional<FileError> reason_;
};

}  // namespace tidewell
