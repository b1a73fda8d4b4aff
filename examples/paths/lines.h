#ifndef MEMBLOCK_EXAMPLES_PATHS_LINES_H
#define MEMBLOCK_EXAMPLES_PATHS_LINES_H

#include <string>

namespace paths {

/// The lines that the user types, without blanks at their ends. On a terminal they are asked for
/// with a prompt, and can be edited and recalled where the program was built with libedit.
class Lines {
public:
    Lines();
    /// False at the end of the input.
    bool Next(std::string& line);

private:
    bool Get(std::string& line) const;

    bool terminal_;
};

} // namespace paths

#endif // MEMBLOCK_EXAMPLES_PATHS_LINES_H
