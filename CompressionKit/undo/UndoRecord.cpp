// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/undo/UndoRecord.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "CompressionKit/platform/Base64.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/platform/Text.h"

namespace tidewell {
namespace {

using nlohmann::json;

/// A record is some hundred bytes; nothing that comes near this is one.
constexpr std::size_t maximumRecordBytes = std::size_t{1} << 20;

/// A path under its key: as text where it is text, else repaired, with its exact bytes under a second key.
void putPath(json& object, const std::string& key, const std::string& path) {
  object[key] = repairedUTF8(path);
  if (!isValidUTF8(path)) object[key + "Base64"] = base64Encoded(path);
}

std::string path(const json& object, const std::string& key) {
  if (const auto bytes = object.find(key + "Base64"); bytes != object.end() && bytes->is_string()) {
    if (auto decoded = base64Decoded(bytes->get_ref<const std::string&>())) return *decoded;
  }
  return object.at(key).get<std::string>();
}

/// An optional key may be missing or null.
bool has(const json& object, const char* key) {
  const auto value = object.find(key);
  return value != object.end() && !value->is_null();
}

UUID uuid(const json& object, const char* key) {
  const auto value = UUID::parse(object.at(key).get_ref<const std::string&>());
  if (!value) throw std::invalid_argument(key);
  return *value;
}

std::int64_t byteCount(const json& object, const char* key) {
  const auto& value = object.at(key);
  if (!value.is_number_integer()) throw std::invalid_argument(key);
  return value.get<std::int64_t>();
}

UndoRecord::State state(const std::string& text) {
  if (text == "prepared") return UndoRecord::State::prepared;
  if (text == "committed") return UndoRecord::State::committed;
  throw std::invalid_argument(text);
}

/// A name that leads nowhere but into its own session directory.
bool isPlainFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == name.npos;
}

bool isAbsolutePath(const std::string& path) {
  return path.starts_with('/') && path.find('\0') == std::string::npos;
}

}  // namespace

std::string UndoRecord::json() const {
  nlohmann::json object = {
      {"id", id.string()},
      {"sessionID", sessionID.string()},
      {"createdAt", createdAt.sinceReferenceDate},
      {"backupName", repairedUTF8(backupName)},
      {"originalBytes", originalBytes},
      {"replacementBytes", replacementBytes},
      {"replacementHash", replacementHash},
      {"state", rawValue(state)},
  };
  putPath(object, "originalPath", originalPath);
  if (originalHash) object["originalHash"] = *originalHash;
  if (convertedPath) putPath(object, "convertedPath", *convertedPath);
  return object.dump();
}

std::optional<UndoRecord> UndoRecord::parse(std::string_view text) {
  try {
    const auto object = nlohmann::json::parse(text);
    UndoRecord record;
    record.id = uuid(object, "id");
    record.sessionID = uuid(object, "sessionID");
    record.createdAt = {object.at("createdAt").get<double>()};
    record.originalPath = path(object, "originalPath");
    record.backupName = object.at("backupName").get<std::string>();
    record.originalBytes = byteCount(object, "originalBytes");
    record.replacementBytes = byteCount(object, "replacementBytes");
    record.replacementHash = object.at("replacementHash").get<std::string>();
    if (has(object, "originalHash")) record.originalHash = object.at("originalHash").get<std::string>();
    record.state = tidewell::state(object.at("state").get_ref<const std::string&>());
    if (has(object, "convertedPath")) record.convertedPath = path(object, "convertedPath");

    // A record names files that are overwritten and removed on its word: only those that we could have
    // written ourselves count.
    if (!isPlainFileName(record.backupName) || !isAbsolutePath(record.originalPath)) return std::nullopt;
    if (record.convertedPath && !isAbsolutePath(*record.convertedPath)) return std::nullopt;
    return record;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<UndoRecord> UndoRecord::read(const URL& file) {
  return parse(files::read(file, maximumRecordBytes));
}

std::string_view rawValue(UndoRecord::State state) {
  return state == UndoRecord::State::prepared ? "prepared" : "committed";
}

}  // namespace tidewell
