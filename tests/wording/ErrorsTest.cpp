// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Errors.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <new>
#include <utility>
#include <vector>

#include "CompressionKit/CompressionError.h"
#include "CompressionKit/platform/Error.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Locations.h"
#include "CompressionKit/wording/Catalogue.h"
#include "CompressionKit/wording/Texts.h"
#include "support/TemporaryFolder.h"

namespace tidewell {
namespace {

// Clang 14 takes an element of a constant array, named in a pack, for no constant.
template <std::size_t index>
constexpr const char* actionText = fileActions[index].data();
template <std::size_t index>
constexpr const char* problemText = fileProblems[index].data();

template <std::size_t... index>
std::vector<FileError> everyAction(std::index_sequence<index...>) {
  return {FileError(actionText<index>, "/照片/a.jpg", ENOSPC)...};
}

/// Without those that end in a reason.
template <std::size_t... index>
std::vector<CompressionError> everyProblem(std::index_sequence<index...>) {
  return {CompressionError::fileOperation(problemText<index>)...};
}

std::vector<std::exception_ptr> everyError() {
  std::vector<std::exception_ptr> errors;
  const auto add = [&](const auto& error) { errors.push_back(std::make_exception_ptr(error)); };
  for (const auto& error : everyAction(std::make_index_sequence<fileActions.size()>())) add(error);
  for (const auto& error : everyProblem(std::make_index_sequence<fileProblems.size() - 3>())) add(error);
  for (int code = 1; code <= EHWPOISON; ++code) add(FileError("打开", "a", code));
  const FileError reason("删除", "/a/b", EACCES);
  for (const auto& error :
       {CompressionError::toolMissing("gifsicle"), CompressionError::toolTimedOut("oxipng"),
        CompressionError::toolExited("cjpegli", 3, "no {1}"),
        CompressionError::toolGaveNoScore("ssimulacra2"),
        CompressionError::fileOperation("无法删除 {1} 的记录或备份：{2}", "{2}.jpg", reason),
        CompressionError::fileOperation("替换文件失败：", EOWNERDEAD),
        CompressionError::fileOperation("保存 PNG 失败：", EOWNERDEAD), CompressionError::invalidImage(),
        CompressionError::formatMismatch(), CompressionError::changedDuringCompression(),
        CompressionError::validationFailed(), CompressionError::unsafeRestore()}) {
    add(error);
  }
  add(Interrupted());
  add(std::bad_alloc());
  add(std::runtime_error("x"));
  return errors;
}

void speak(const char* locale) {
  setenv("LC_ALL", locale, 1);
  prepareTexts(locations::executableDirectory());
}

// Which proves the values that errors carry, and the catalogue.
TEST(Errors, SayInChineseWhatTheServiceSays) {
  speak("zh_CN.UTF-8");
  for (const auto& error : everyError()) EXPECT_EQ(describedError(error), localizedDescription(error));
}

TEST(Errors, AreKnownByTheServicesWords) {
  speak("C");
  for (const auto& error : everyError()) {
    const std::string text = localizedDescription(error);
    if (text.find("的记录或备份") != std::string::npos) continue;  // of no batch
    EXPECT_EQ(describedServiceText(text), describedError(error)) << text;
  }
  EXPECT_EQ(describedServiceText("无法“”：无法"), "无法“”：无法");
}

TEST(Errors, NameTheFileOnce) {
  speak("C");
  const auto said = [](const auto& error) { return describedError(std::make_exception_ptr(error), "/a/b"); };
  EXPECT_EQ(said(FileError("读取", "/a/b", ENOSPC)), "Cannot read “/a/b”: the disk is full");
  EXPECT_EQ(said(FileError("读取", "/a/c", ENOSPC)), "/a/b: Cannot read “c”: the disk is full");
  EXPECT_EQ(said(CompressionError::toolMissing("oxipng")).substr(0, 6), "/a/b: ");
}

TEST(Errors, HaveCodesForScripts) {
  speak("C");
  const auto code = [](const auto& error) { return errorCode(std::make_exception_ptr(error)); };
  EXPECT_EQ(code(CompressionError::changedDuringCompression()), "changed_during_compression");
  EXPECT_EQ(code(CompressionError::unsafeRestore()), "unsafe_restore");
  EXPECT_EQ(code(FileError("打开", "a", ENOSPC)), "ENOSPC");
  EXPECT_EQ(code(Interrupted()), "interrupted");
  EXPECT_EQ(code(std::logic_error("x")), "internal");
  EXPECT_EQ(describedError(std::make_exception_ptr(FileError("打开", "/照片/a.jpg", ENOENT))),
            "Cannot open “a.jpg”: there is no such file");
}

TEST(Catalogue, IsReadWholeOrNotAtAll) {
  const URL built =
      locations::executableDirectory().appending("../share/locale/zh_CN/LC_MESSAGES/tidewell.mo");
  const auto catalogue = Catalogue::read(built);
  ASSERT_TRUE(catalogue);
  EXPECT_STREQ(catalogue->text("{1} file"), "{1} 个文件");
  EXPECT_EQ(catalogue->text("no such text"), nullptr);
  const test::TemporaryFolder folder;
  const std::string bytes = files::read(built);
  for (std::size_t size = 0; size < bytes.size(); size += 97) {
    const URL cut = folder.url().appending("cut.mo");
    files::writeAtomically(cut, std::string_view(bytes).substr(0, size), files::Durability::cached);
    EXPECT_FALSE(Catalogue::read(cut)) << size;
  }
}

}  // namespace
}  // namespace tidewell
