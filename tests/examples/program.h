#ifndef MEMBLOCK_TESTS_EXAMPLES_PROGRAM_H
#define MEMBLOCK_TESTS_EXAMPLES_PROGRAM_H

#include <cstdio>
#include <string>
#include <sys/wait.h>

struct Outcome {
    int status;
    std::string text; ///< standard output and standard error as they came
};

/// What the shell is told where only the messages are looked at.
inline constexpr char errors[] = "2>&1 >/dev/null";

/// Run a command line through the shell.
inline Outcome RunProgram(std::string const& command)
{
    std::FILE* const pipe = popen(command.c_str(), "r");
    Outcome outcome{-1, ""};
    for (int c = std::getc(pipe); c != EOF; c = std::getc(pipe))
        outcome.text += static_cast<char>(c);
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
}

#ifdef MEASURE_PROGRAM
/// Without its progress.
inline Outcome RunMeasure(std::string const& arguments, char const* output = "2>&1")
{
    return RunProgram("'" MEASURE_PROGRAM "' --quiet " + arguments + " " + output);
}
#endif

#endif // MEMBLOCK_TESTS_EXAMPLES_PROGRAM_H
