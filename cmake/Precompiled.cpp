// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

// Precompiled headers belong to a target, and targets have sources.
