// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Errors.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <new>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Text.h"
#include "CompressionKit/wording/Texts.h"

namespace tidewell {
namespace {

/// Our words beside the service's.
struct Words {
  std::string_view service;
  const char* text;
};

constexpr Words actions[] = {
    {"打开", N_("Cannot open “{1}”: {2}")},
    {"读取", N_("Cannot read “{1}”: {2}")},
    {"写入", N_("Cannot write “{1}”: {2}")},
    {"创建", N_("Cannot create “{1}”: {2}")},
    {"创建文件夹", N_("Cannot create the folder “{1}”: {2}")},
    {"读取文件夹", N_("Cannot read the folder “{1}”: {2}")},
    {"复制", N_("Cannot copy “{1}”: {2}")},
    {"移动", N_("Cannot move “{1}”: {2}")},
    {"复制属性到", N_("Cannot copy the attributes to “{1}”: {2}")},
    {"设置权限", N_("Cannot set the permissions of “{1}”: {2}")},
    {"删除", N_("Cannot remove “{1}”: {2}")},
    {"限制", N_("Cannot restrict “{1}”: {2}")},
    {"启动", N_("Cannot start “{1}”: {2}")},
    {"等待", N_("Cannot wait for “{1}”: {2}")},
};

constexpr Words problems[] = {
    {"请选择普通图片文件", N_("This is not a plain file")},
    {"请选择本地图片文件", N_("This is not a local file")},
    {"暂不支持包含多张图片的 HEIC 文件", N_("HEIC files of several images are not supported yet")},
    {"暂不支持动态 PNG（APNG），已保留原图", N_("Animated PNG is not supported yet; the original stays")},
    {"压缩结果的尺寸、方向、帧信息或色彩配置与原图不一致",
     N_("The result differs from the original in size, orientation, frames or colour profile")},
    {"无法创建动图验证帧", N_("Cannot write the frames of the animation for comparison")},
    {"无法创建 PNG：同名文件过多", N_("Cannot create the PNG: too many files of that name")},
    {"无法找回文件：同名文件过多", N_("Cannot put the file back: too many files of that name")},
    {"无法锁定压缩中的文件", N_("Cannot lock the file for compression")},
    {"无法获取压缩任务名额", N_("Cannot get a place among the running compressions")},
    {"无法创建压缩任务锁", N_("Cannot create the lock of a compression")},
    {"无法创建压缩组件日志", N_("Cannot create the log of a compression tool")},
    {"原图备份已损坏，无法恢复或对比", N_("The backup is damaged; it can be neither restored nor compared")},
    {"原图备份已不存在", N_("The backup is gone")},
    {"原图备份已过期", N_("The backup has expired")},
    {"图片文件已被修改，无法对比", N_("The picture was edited and cannot be compared")},
    {"图片文件在载入过程中被修改，请重新打开对比",
     N_("The picture was changed while it was read; compare it again")},
    {"替换文件失败：", N_("Cannot replace the file: {1}")},
    {"保存 PNG 失败：", N_("Cannot save the PNG: {1}")},
    {"无法删除 {1} 的记录或备份：{2}", N_("Cannot remove the record or the backup of {1}: {2}")},
};

constexpr std::pair<int, const char*> reasons[] = {
    {ENOENT, N_("there is no such file")},
    {ENOTDIR, N_("a part of the path is no folder")},
    {EISDIR, N_("this is a folder")},
    {EACCES, N_("access is not permitted")},
    {EPERM, N_("this operation is not permitted")},
    {EROFS, N_("the disk is read-only")},
    {ENOSPC, N_("the disk is full")},
    {EDQUOT, N_("the disk quota is used up")},
    {EFBIG, N_("the file is too large")},
    {EIO, N_("the disk failed to read or write")},
    {EEXIST, N_("a file of that name is there already")},
    {ENOTEMPTY, N_("the folder is not empty")},
    {EXDEV, N_("they are not on the same disk")},
    {ELOOP, N_("too many symbolic links")},
    {ENAMETOOLONG, N_("the name is too long")},
    {EMFILE, N_("too many open files")},
    {ENFILE, N_("the system has too many open files")},
    {ENOMEM, N_("not enough memory")},
    {EBUSY, N_("the file is in use")},
    {ETXTBSY, N_("the program is in use")},
    {ENOEXEC, N_("the program has no valid format")},
    {ENOTSUP, N_("the file system does not support this")},
    {ENODEV, N_("there is no such device")},
    {ESTALE, N_("the network file is no longer valid")},
    {EBADF, N_("the file is not open")},
    {EPIPE, N_("the reader is gone")},
};

template <std::size_t size, std::size_t known>
constexpr bool haveWords(const std::array<std::string_view, size>& texts, const Words (&words)[known]) {
  return std::ranges::all_of(texts, [&](std::string_view text) {
    return std::ranges::find(words, text, &Words::service) != std::end(words);
  });
}
static_assert(haveWords(fileActions, actions) && haveWords(fileProblems, problems));

template <std::size_t known>
const char* wordsFor(std::string_view text, const Words (&words)[known]) {
  return _(std::ranges::find(words, text, &Words::service)->text);
}

std::string described(const FileError& error, std::string_view name) {
  return filled(wordsFor(error.action().text(), actions), {printable(name), describedErrno(error.code())});
}

std::string described(const FileError& error) {
  const std::string_view path = error.path();
  const auto slash = path.rfind('/');
  return described(
      error, slash == std::string_view::npos || slash + 1 == path.size() ? path : path.substr(slash + 1));
}

/// On one line.
std::string shown(std::string_view toolOutput) {
  std::string line(trimmed(toolOutput));
  std::ranges::replace(line, '\n', ' ');
  return printable(line);
}

std::string describedToolFailure(const CompressionError& error) {
  switch (error.toolFailure().value()) {
    case CompressionError::ToolFailure::timedOut:
      return filled(_("A compression tool failed: {1} took too long"), {error.tool()});
    case CompressionError::ToolFailure::exited:
      return filled(_("A compression tool failed: {1} (status {2}): {3}"),
                    {error.tool(), std::to_string(error.exitStatus()), shown(error.toolOutput())});
    case CompressionError::ToolFailure::noScore:
      return filled(_("A compression tool failed: {1} gave no valid score"), {error.tool()});
  }
  return error.what();
}

std::string describedFileOperation(const CompressionError& error) {
  const char* words = wordsFor(error.problem().value().text(), problems);
  if (error.reason()) return filled(words, {error.fileName(), described(*error.reason())});
  if (error.errorNumber() != 0) return filled(words, {describedErrno(error.errorNumber())});
  return words;
}

std::string described(const CompressionError& error) {
  switch (error.kind()) {
    case CompressionError::Case::toolMissing:
      return filled(_("A compression tool is missing: {1}"), {error.tool()});
    case CompressionError::Case::toolFailed:
      return describedToolFailure(error);
    case CompressionError::Case::fileOperation:
      return describedFileOperation(error);
    case CompressionError::Case::invalidImage:
      return _("The picture cannot be decoded");
    case CompressionError::Case::formatMismatch:
      return _("The format of the file is not what its name says");
    case CompressionError::Case::changedDuringCompression:
      return _("Another program changed the original while it was compressed");
    case CompressionError::Case::validationFailed:
      return _("The result did not pass validation");
    case CompressionError::Case::unsafeRestore:
      return _("The file was edited since and cannot be restored in place");
  }
  return error.what();
}

/// What the service says of other failures, with the values in their places.
constexpr Words others[] = {
    {"缺少压缩组件：{1}", N_("A compression tool is missing: {1}")},
    {"压缩组件运行失败：{1} 超时", N_("A compression tool failed: {1} took too long")},
    {"压缩组件运行失败：{1}（退出码 {2}）：{3}", N_("A compression tool failed: {1} (status {2}): {3}")},
    {"压缩组件运行失败：{1} 未返回有效画质评分", N_("A compression tool failed: {1} gave no valid score")},
    {"替换文件失败：{1}", N_("Cannot replace the file: {1}")},
    {"保存 PNG 失败：{1}", N_("Cannot save the PNG: {1}")},
    {"内部错误：{1}", N_("Internal error: {1}")},
};

/// The values of "{1}", "{2}" and "{3}", in this order, in a text that was made of the pattern.
std::optional<std::array<std::string, 3>> valuesIn(std::string_view text, std::string_view pattern) {
  std::array<std::string, 3> values;
  for (std::size_t index = 0; !pattern.empty(); ++index) {
    const auto place = pattern.find('{');
    if (!text.starts_with(pattern.substr(0, place))) return std::nullopt;
    if (place == std::string_view::npos) return text == pattern ? std::optional(values) : std::nullopt;
    text.remove_prefix(place);
    pattern.remove_prefix(place + std::string_view("{1}").size());
    const auto behind = pattern.substr(0, pattern.find('{'));
    const auto end = behind.empty() ? text.size() : text.find(behind);
    if (end == std::string_view::npos) return std::nullopt;
    values.at(index) = shown(text.substr(0, end));
    text.remove_prefix(end);
  }
  return text.empty() ? std::optional(values) : std::nullopt;
}

std::string describedReasonText(std::string_view text) {
  for (const auto& [code, words] : reasons) {
    if (describeErrno(code) == text) return _(words);
  }
  return printable(text);
}

}  // namespace

std::string describedServiceText(std::string_view text) {
  for (const auto& error : {CompressionError::invalidImage(), CompressionError::formatMismatch(),
                            CompressionError::changedDuringCompression(),
                            CompressionError::validationFailed(), CompressionError::unsafeRestore()}) {
    if (text == error.what()) return described(error);
  }
  if (text == Interrupted().what()) return describedError(std::make_exception_ptr(Interrupted()));
  const auto* const problem = std::ranges::find(problems, text, &Words::service);
  if (problem != std::end(problems)) return _(problem->text);
  for (const auto& [pattern, words] : others) {
    if (const auto values = valuesIn(text, pattern)) {
      return filled(_(words), {(*values)[0], (*values)[1], (*values)[2]});
    }
  }
  if (const auto file = valuesIn(text, "无法{1}“{2}”：{3}")) {
    const auto* const action = std::ranges::find(actions, (*file)[0], &Words::service);
    if (action != std::end(actions)) {
      return filled(_(action->text), {(*file)[1], describedReasonText((*file)[2])});
    }
  }
  return describedReasonText(text);
}

std::string describedErrno(int code) {
  for (const auto& [value, text] : reasons) {
    if (value == code) return _(text);
  }
  char buffer[256] = {};
  return strerror_r(code, buffer, sizeof buffer);
}

std::string describedError(const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const CompressionError& known) {
    return described(known);
  } catch (const FileError& known) {
    return described(known);
  } catch (const Interrupted&) {
    return _("Compression was interrupted; the original is unchanged");
  } catch (const std::bad_alloc&) {
    return describedErrno(ENOMEM);
  } catch (const std::system_error& known) {
    return describedErrno(known.code().value());
  } catch (const std::exception& other) {
    return filled(_("Internal error: {1}"), {other.what()});
  }
}

std::string describedError(const std::exception_ptr& error, const std::string& path) {
  try {
    std::rethrow_exception(error);
  } catch (const FileError& known) {
    if (known.path() == path) return described(known, path);
  } catch (...) {
  }
  return printable(path) + ": " + describedError(error);
}

std::string errorCode(const std::exception_ptr& error) {
  const auto name = [](int code) -> std::string {
    const char* text = strerrorname_np(code);
    return text != nullptr ? text : "internal";
  };
  try {
    std::rethrow_exception(error);
  } catch (const CompressionError& known) {
    return std::string(known.code());
  } catch (const FileError& known) {
    return name(known.code());
  } catch (const Interrupted&) {
    return "interrupted";
  } catch (const std::bad_alloc&) {
    return name(ENOMEM);
  } catch (const std::system_error& known) {
    return name(known.code().value());
  } catch (...) {
    return "internal";
  }
}

}  // namespace tidewell
