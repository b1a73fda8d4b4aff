#ifndef MEMBLOCK_TESTS_LOGGING_LOG_FIXTURE_H
#define MEMBLOCK_TESTS_LOGGING_LOG_FIXTURE_H

#include <memblock/logging/logger.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>

#include "support/logsink.h"

/// Each test begins and ends with a silent logger without rules and file.
class LoggerTest : public testing::Test {
protected:
    LoggerTest() { Silence(); }
    ~LoggerTest() override
    {
        Silence();
        std::filesystem::remove(path_);
    }

    static void Silence()
    {
        NKelmic::Logger::SetLogFile("", "");
        NKelmic::Logger::ClearRules();
        NKelmic::Logger::SetLogging("custom", 0); // the bits above those of "all"
        NKelmic::Logger::SetLogging("all", 0);
        NKelmic::Logger::SetVelSessionId(0);
    }

    std::string LogFile() const
    {
        std::ostringstream text;
        text << std::ifstream(path_).rdbuf();
        return text.str();
    }

    std::string const path_ = (std::filesystem::temp_directory_path() /
                               ("memblock_log_" + std::to_string(getpid()) + ".txt"))
                                  .string();
};

#endif // MEMBLOCK_TESTS_LOGGING_LOG_FIXTURE_H
