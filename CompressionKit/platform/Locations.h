// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#pragma once

#include "CompressionKit/platform/URL.h"

/// Every place that belongs to this system, named once. Nothing here creates anything. Relative values of the
/// variables are ignored, as the base-directory rules ask.
namespace tidewell::locations {

// --- The user's ------------------------------------------------------------------------------------------

/// $TMPDIR, or /tmp.
URL temporaryDirectory();
/// $TMPDIR, or /var/tmp, which is no memory: for files that would fill it.
URL largeTemporaryDirectory();
/// $XDG_DATA_HOME, or ~/.local/share.
URL applicationSupportDirectory();
/// $XDG_CONFIG_HOME, or ~/.config.
URL configurationDirectory();

// --- Of this system, below those -------------------------------------------------------------------------

/// The undo store's root.
URL undoStore();
/// The reports' directory of the store at `undoStore`: beside it.
URL compressionDiagnostics(const URL& undoStore);
/// The lock files that all processes of one user share.
URL compressionLocks();
/// What the resident service tells others.
URL backgroundDirectory();
/// The last batch's result, in there.
URL latestResult();
/// What must not be lost but is no user's data: "tidewell" in $XDG_STATE_HOME, or in ~/.local/state.
URL stateDirectory();
/// The installation's settings.
URL settingsFile();

// --- Of the installation, in the build tree as in an installed one ---------------------------------------

/// The directory of the running program's real file. Throws `FileError`, as do those below.
URL executableDirectory();
/// Where the programs lie that the service starts.
URL programsDirectory();
/// Where the command-line tools lie.
URL toolsDirectory();
/// Where the installation's icon themes lie.
URL iconThemesDirectory();

}  // namespace tidewell::locations
