#ifndef MEMBLOCK_FUZZ_FUZZ_H
#define MEMBLOCK_FUZZ_FUZZ_H

#include <memblock/base/exception.h>

#include <string>
#include <vector>

/// Feed one input to the code under test. Errors that are raised in the stated way are fine and
/// caught here; a crash, a hang, a sanitizer's report or any other exception is a finding.
void FuzzOne(std::string const& input);

/// Well-formed inputs to start from; the driver changes, cuts and joins them.
std::vector<std::string> FuzzSeeds();

/// Run what may refuse its input in the stated way.
void Ignore(auto&& run)
{
    try {
        run();
    } catch (Ntarnwick::Exception const&) {
    }
}

#endif // MEMBLOCK_FUZZ_FUZZ_H
