// Nothing of its own: the precompiled headers of all test programs belong to this file's target.
