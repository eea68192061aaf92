// Precompiled headers belong to a target, and targets have sources.
