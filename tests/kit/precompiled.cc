// Builds the precompiled header of the tests.
