// Reads and writes inside objects by paths that its user types.

#include <measure/picture.h>
#include <paths/lines.h>
#include <paths/session.h>
#include <paths/world.h>

#include <iostream>
#include <vector>

namespace {

constexpr char usage_text[] =
    "Usage: paths [--steps] FILE [PATH | PATH=VALUE]...\n"
    "Open a TIFF, PNG or binary PNM picture as an object and answer paths into it: those\n"
    "given, or without any those typed, a line each. FILE may be -, a container made here\n"
    "of a table with the columns a and b, an image and a note.\n"
    "\n"
    "  --steps   show how each object on the way resolves its step\n"
    "  --help    print this text\n"
    "\n"
    "Paths to try on a picture         and on -\n"
    "  width, 3,4, @mean, @minat         table.a.@mean\n"
    "  type=mask, vector.area            table.a.0=7, table.@columns\n"
    "  @slice:0:10, @class, @md5         image.@slice:8:16.@sum\n"
    "  *, !                              note.length\n"
    "(every key of the object, and those that every object has)\n"
    "\n"
    "Exit status: 0, 1 if the file or a path failed, 2 for a call that is not understood.\n";

struct Options {
    bool steps = false;
    bool help = false;
    std::vector<std::string> words; ///< the file and the paths
};

Options ReadOptions(int argc, char** argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string const word = argv[i];
        if (options.words.empty() && word == "--steps")
            options.steps = true;
        else if (options.words.empty() && word == "--help")
            options.help = true;
        else
            options.words.push_back(word);
    }
    return options;
}

bool AnswerTyped(paths::Session& session)
{
    paths::Lines lines;
    bool ok = true;
    for (std::string line; lines.Next(line);)
        if (!line.empty())
            ok = session.Answer(line) && ok;
    return ok;
}

bool AnswerAll(paths::Session& session, std::vector<std::string> const& words)
{
    if (words.size() == 1)
        return AnswerTyped(session);
    bool ok = true;
    for (std::size_t i = 1; i < words.size(); ++i)
        ok = session.Answer(words[i]) && ok;
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    Options const options = ReadOptions(argc, argv);
    if (options.help) {
        std::cout << usage_text;
        return 0;
    }
    std::string const file = options.words.empty() ? "" : options.words[0];
    if (file.empty() || (file.size() > 1 && file[0] == '-')) {
        std::cerr << "paths: needs a FILE, or - (see paths --help)\n";
        return 2;
    }
    try {
        paths::Session session(file == "-" ? paths::SmallWorld() : paths::OpenPicture(file),
                               std::cout, options.steps);
        return AnswerAll(session, options.words) && std::cout.flush() ? 0 : 1;
    } catch (std::exception const& error) {
        std::cerr << "paths: " << file << ": " << error.what() << '\n';
        return 1;
    }
}
