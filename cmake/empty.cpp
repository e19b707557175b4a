// Placeholder translation unit for a subsystem that has no sources of its own yet.
