#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>

/// The suite also runs under a locale with a decimal comma: LC_ALL decides.
int main(int argc, char** argv)
{
    if (!std::setlocale(LC_ALL, "")) {
        std::printf("The locale %s is not installed.\n", std::getenv("LC_ALL"));
        constexpr int skipped = 77;
        return std::getenv("CI") ? EXIT_FAILURE : skipped;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
