#include <measure/options.h>

#include <memblock/base/number.h>

#include <charconv>
#include <cmath>

namespace measure {

char const* const usage_text =
    "Usage: measure [OPTION]... [FILE]...\n"
    "Print the statistics of each page of TIFF, PNG and binary PNM pictures (P5, P6);\n"
    "without a FILE, of a picture that the program makes.\n"
    "\n"
    "  --factor=F    the raw factor: also print values times F (default 1)\n"
    "  --nan=POLICY  what becomes of NaN: exclude (default), include, or a number\n"
    "  --inf=POLICY  what becomes of infinities: exclude (default), include, or a number;\n"
    "                negative infinity becomes the negative of the number\n"
    "  --format=F    print one table, a row a page: text, html or xml\n"
    "  --objects     print a table of the objects of each page, a row an object, instead:\n"
    "                pixels above the threshold that touch, but for those in the frame\n"
    "  --threshold=T with --objects: a value, or otsu (default), Otsu's\n"
    "  --touch=N     with --objects: 4 (default) neighbours touch, or 8\n"
    "  --and=FILE    with --objects: keep of each what is not 0 in this picture\n"
    "  --zones       with --objects: also the pixels up to, and above, each object's mean\n"
    "  --labels=FILE with --objects: take them from this picture, pixel k marks object k\n"
    "  --report=DIR  --objects, and a page to look at of each FILE: DIR/FILE.html\n"
    "  --threads=N   measure N pages at a time (default: one a processor); the result is the same\n"
    "  --output=FILE print to FILE; if it exists, ask first\n"
    "  --force       overwrite it without a question\n"
    "  --quiet       do not show on standard error how far the work is\n"
    "  --help        print this text\n"
    "\n"
    "Ctrl-C ends the work and prints what is measured by then.\n"
    "Minimum and maximum come with the lowest index that reaches them (x + y * width).\n"
    "Exit status: 0, 1 if a file could not be read or written, 2 for a call that is not\n"
    "understood, 130 after Ctrl-C.\n";

namespace {

double ReadFactor(std::string const& text)
{
    bool ok = true;
    Ntarnwick::CheckOk handler(ok);
    double const factor = Ntarnwick::StringToDouble()(text.c_str(), handler);
    if (!ok || !std::isfinite(factor) || factor <= 0)
        throw UsageError("--factor takes a number above 0, not '" + text + "'");
    return factor;
}

NKelmic::safestring ReadPolicy(std::string const& option, std::string const& text)
{
    if (text == "exclude" || text == "include")
        return text.c_str();
    bool ok = true;
    Ntarnwick::CheckOk handler(ok);
    Ntarnwick::StringToDouble()(text.c_str(), handler);
    if (!ok)
        throw UsageError(option + " takes exclude, include or a number, not '" + text + "'");
    return text.c_str();
}

double ReadThreshold(std::string const& text)
{
    bool ok = true;
    Ntarnwick::CheckOk handler(ok);
    double const threshold = Ntarnwick::StringToDouble()(text.c_str(), handler);
    if (!ok || !std::isfinite(threshold))
        throw UsageError("--threshold takes otsu or a number, not '" + text + "'");
    return threshold;
}

Neighbours ReadNeighbours(std::string const& text)
{
    if (text != "4" && text != "8")
        throw UsageError("--touch takes 4 or 8, not '" + text + "'");
    return text == "4" ? Neighbours::edges : Neighbours::corners;
}

std::string ReadFormat(std::string const& text)
{
    if (text != "text" && text != "html" && text != "xml")
        throw UsageError("--format takes text, html or xml, not '" + text + "'");
    return text;
}

int ReadThreads(std::string const& text)
{
    constexpr int most = 1024;
    int threads = 0;
    auto const end = std::from_chars(text.data(), text.data() + text.size(), threads);
    if (end.ec != std::errc() || *end.ptr || threads < 0 || threads > most)
        throw UsageError("--threads takes a number up to 1024, not '" + text + "'");
    return threads;
}

bool SetObjectOption(ObjectOptions& objects, std::string const& name, std::string const& value)
{
    if (name == "--threshold") {
        objects.threshold.reset();
        if (value != "otsu")
            objects.threshold = ReadThreshold(value);
    } else if (name == "--touch") {
        objects.neighbours = ReadNeighbours(value);
    } else if (name == "--labels") {
        objects.labels = value;
    } else if (name == "--and") {
        objects.within = value;
    } else {
        return false;
    }
    return true;
}

void SetReport(Options& options, std::string const& folder)
{
    if (folder.empty())
        throw UsageError("--report takes a folder");
    options.report = folder;
    options.objects.wanted = true;
}

bool SetOption(Options& options, std::string const& name, std::string const& value)
{
    if (SetObjectOption(options.objects, name, value))
        return true;
    if (name == "--factor")
        options.factor = ReadFactor(value);
    else if (name == "--nan")
        options.policies.nan = ReadPolicy(name, value);
    else if (name == "--inf")
        options.policies.inf = ReadPolicy(name, value);
    else if (name == "--format")
        options.format = ReadFormat(value);
    else if (name == "--report")
        SetReport(options, value);
    else if (name == "--threads")
        options.threads = ReadThreads(value);
    else if (name == "--output")
        options.output = value;
    else
        return false;
    return true;
}

/// An option without a value.
bool SetFlag(Options& options, std::string const& name)
{
    if (name == "--help")
        options.help = true;
    else if (name == "--objects")
        options.objects.wanted = true;
    else if (name == "--zones")
        options.objects.zones = true;
    else if (name == "--force")
        options.force = true;
    else if (name == "--quiet")
        options.quiet = true;
    else
        return false;
    return true;
}

} // namespace

Options ReadOptions(std::vector<std::string> const& arguments)
{
    Options options;
    bool only_files = false; // behind "--"
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string const& argument = arguments[i];
        if (only_files || argument.empty() || argument[0] != '-') {
            options.files.push_back(argument);
        } else if (argument == "--") {
            only_files = true;
        } else if (SetFlag(options, argument)) {
            continue;
        } else { // "--name=value" or "--name value"
            auto const sign = argument.find('=');
            std::string const name = argument.substr(0, sign);
            bool const joined = sign != std::string::npos;
            if (!joined && i + 1 == arguments.size())
                throw UsageError("'" + argument + "' is no option, or its value is missing");
            if (!SetOption(options, name, joined ? argument.substr(sign + 1) : arguments[++i]))
                throw UsageError("'" + name + "' is no option");
        }
    }
    return options;
}

} // namespace measure
