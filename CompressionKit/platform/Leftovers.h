// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include <string>
#include <string_view>

#include "CompressionKit/platform/Date.h"
#include "CompressionKit/platform/URL.h"

/// What processes that were killed, or a power loss, left behind: told by its name, and by having been left
/// alone for long.
namespace tidewell::files {

enum class EntryKind { regularFile, directory };

/// An entry of this kind and of this user, no link to one, that nobody has changed since `moment`. By the
/// time of the last change (ctime), which nobody can set: a copy has its original's modification time and
/// only looks old. False on any failure.
bool isUntouchedSince(Date moment, const URL& url, EntryKind kind);

/// The name under which `writeAtomically` writes, another each time.
std::string temporaryName();
bool isTemporaryName(std::string_view name);

/// Removes what `writeAtomically` left in a directory and nobody has changed since `moment`; failures are
/// ignored.
void removeTemporaries(const URL& directory, Date moment) noexcept;

}  // namespace tidewell::files
