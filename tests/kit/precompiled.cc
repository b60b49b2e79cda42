// The precompiled header of the tests is built with this unit; it has no code of its own.
