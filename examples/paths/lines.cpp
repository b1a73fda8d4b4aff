#include <paths/lines.h>

#include <iostream>
#include <unistd.h>

#ifdef PATHS_EDITLINE
#include <cstdlib>
#include <editline/readline.h>
#include <memory>
#endif

namespace paths {
namespace {

constexpr char prompt[] = "> ";

std::string Trimmed(std::string const& text)
{
    constexpr char blanks[] = " \t\r";
    auto const from = text.find_first_not_of(blanks);
    return from == std::string::npos ? ""
                                     : text.substr(from, text.find_last_not_of(blanks) + 1 - from);
}

} // namespace

Lines::Lines() : terminal_(isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0) {}

bool Lines::Next(std::string& line)
{
    if (!Get(line))
        return false;
    line = Trimmed(line);
    return true;
}

bool Lines::Get(std::string& line) const
{
#ifdef PATHS_EDITLINE
    if (terminal_) {
        std::unique_ptr<char, decltype(&std::free)> const typed(readline(prompt), std::free);
        if (!typed)
            return false;
        line = typed.get();
        if (!line.empty())
            add_history(typed.get());
        return true;
    }
#endif
    if (terminal_)
        std::cout << prompt << std::flush;
    return static_cast<bool>(std::getline(std::cin, line));
}

} // namespace paths
