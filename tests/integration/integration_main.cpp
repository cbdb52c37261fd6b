// The producer itself exports a main (the console client's): the tests' own must come from an
// object, not from an archive that the linker would only look at after the shared library.

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
