#ifndef MEMBLOCK_TESTS_EXAMPLES_PROGRAM_H
#define MEMBLOCK_TESTS_EXAMPLES_PROGRAM_H

#include <support/program.h>

/// What the shell is told where only the messages are looked at.
inline constexpr char errors[] = "2>&1 >/dev/null";

#ifdef MEASURE_PROGRAM
/// Without its progress.
inline Outcome RunMeasure(std::string const& arguments, char const* output = "2>&1")
{
    return RunProgram("'" MEASURE_PROGRAM "' --quiet " + arguments + " " + output);
}
#endif

#endif // MEMBLOCK_TESTS_EXAMPLES_PROGRAM_H
