#ifndef MEMBLOCK_TESTS_SUPPORT_TESTDATA_H
#define MEMBLOCK_TESTS_SUPPORT_TESTDATA_H

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>

/// The folder of real pictures: the environment variable MEMBLOCK_TEST_DATA, else the one that
/// the build was configured with.
inline std::filesystem::path TestData()
{
    char const* const told = std::getenv("MEMBLOCK_TEST_DATA");
    return told ? told : MEMBLOCK_TEST_DATA_DEFAULT;
}

/// Skip the running test if the pictures are not there; where CI is set it fails instead.
#define NEED_TEST_DATA()                                                                           \
    do {                                                                                           \
        if (!std::filesystem::is_directory(TestData())) {                                          \
            ASSERT_EQ(std::getenv("CI"), nullptr) << "no pictures in " << TestData();              \
            GTEST_SKIP() << "no pictures in " << TestData();                                       \
        }                                                                                          \
    } while (false)

#endif // MEMBLOCK_TESTS_SUPPORT_TESTDATA_H
