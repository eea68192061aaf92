// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

namespace tidewell {

/// Tells a running service that backups came back or went. Without a session bus, or a service on it, nothing
/// happens; none is started for it.
void noticeUndoDidChange() noexcept;

}  // namespace tidewell
