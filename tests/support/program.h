#ifndef MEMBLOCK_TESTS_SUPPORT_PROGRAM_H
#define MEMBLOCK_TESTS_SUPPORT_PROGRAM_H

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

struct Outcome {
    int status;
    std::string text; ///< what came out
};

/// Run a command line through the shell.
inline Outcome RunProgram(std::string const& command)
{
    std::FILE* const pipe = popen(command.c_str(), "r");
    Outcome outcome{-1, ""};
    for (int c = 0; pipe && (c = std::getc(pipe)) != EOF;)
        outcome.text += static_cast<char>(c);
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
}

/// What a command makes of a text.
inline std::string Through(std::string const& command, std::string const& input)
{
    char file[] = "/tmp/through_XXXXXX";
    close(mkstemp(file));
    std::ofstream(file) << input;
    auto const outcome = RunProgram("< " + std::string(file) + " " + command);
    EXPECT_EQ(outcome.status, 0) << command;
    std::remove(file);
    return outcome.text;
}

#endif // MEMBLOCK_TESTS_SUPPORT_PROGRAM_H
