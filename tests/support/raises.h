#ifndef MEMBLOCK_TESTS_SUPPORT_RAISES_H
#define MEMBLOCK_TESTS_SUPPORT_RAISES_H

#include <memblock/base/exception.h>

#include <gtest/gtest.h>
#include <string>
#include <vector>

/// Expect that a statement throws an `Exception` with this code and exactly this text.
#define EXPECT_RAISES(statement, code, text)                                                       \
    do {                                                                                           \
        try {                                                                                      \
            statement;                                                                             \
            ADD_FAILURE() << "nothing raised by: " #statement;                                     \
        } catch (Ntarnwick::Exception const& raised_) {                                            \
            EXPECT_EQ(raised_.Code(), static_cast<unsigned int>(code)) << raised_.what();          \
            EXPECT_STREQ(raised_.what(), Ntarnwick::safestring(text).c_str());                     \
        }                                                                                          \
    } while (false)

/// Keeps what is reported to it, and lets the operation go on.
struct Reports : Ntarnwick::ThrowHandlerBase {
    unsigned int operator()(Ntarnwick::Exception const& e) override
    {
        texts.emplace_back(e.what());
        return e.Code();
    }
    std::vector<std::string> texts;
};

/// What is written to standard error meanwhile.
std::string StderrOf(auto&& run)
{
    testing::internal::CaptureStderr();
    run();
    return testing::internal::GetCapturedStderr();
}

#endif // MEMBLOCK_TESTS_SUPPORT_RAISES_H
